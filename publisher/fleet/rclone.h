#pragma once

#include "publisher/common/problem.h"

#include <QByteArray>
#include <QString>
#include <QStringList>

#include <functional>

/// The program that copies. It reads the configuration that it would read in the
/// admin's own hands, and it alone decides on retries, time limits and bandwidth
/// (RCLONE_BWLIMIT and the like in the environment).
namespace Publisher::Rclone {

struct Outcome {
    /// Negative when it has not ended by itself.
    int exitCode = -1;
    QByteArray output;
    /// Its last words on what went wrong.
    QString error;

    bool isFine() const
    {
        return exitCode == 0;
    }
    /// What was asked for is not there.
    bool isNothingThere() const;
};

/// Who is told of a copy while it is made.
struct Listener {
    /// How much of it is done.
    std::function<void(qint64 bytes, qint64 files)> progress = {};
    /// A file has arrived, by its path as rclone was given it. rclone is asked to say so
    /// only where somebody listens; one that uses other words says nothing here.
    std::function<void(const QString& file)> arrived = {};
};

/// Runs it to its end, which it cannot outlive: it dies with the calling thread, whose
/// events are dealt with meanwhile.
Outcome run(const QStringList& arguments, const Listener& listener = {});

/// Why it cannot be used on this machine: it is missing, or too old.
[[nodiscard]] Problem fault();

/// The names of the remotes that it knows, each with a colon behind it.
[[nodiscard]] Problem listRemotes(QStringList& names);

} // namespace Publisher::Rclone
