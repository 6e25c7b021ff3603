#pragma once

#include "publisher/common/filework.h"
#include "publisher/common/problem.h"
#include "publisher/common/treelock.h"

#include <QString>

#include <functional>
#include <memory>

namespace Publisher {

class Clock;

/// The folder that the web server serves, in the hands of one publisher. While the
/// object lives, what is made there can be read by everybody.
class ServedFolder {
public:
    explicit ServedFolder(QString path);
    ServedFolder(const ServedFolder&) = delete;
    ServedFolder& operator=(const ServedFolder&) = delete;
    /// Removes the staging folder and lets others in, if the folder is ours.
    ~ServedFolder();

    /// Makes the folder if need be, keeps other publishers out, and clears away what
    /// one that was cut off has left.
    [[nodiscard]] Problem take();

    QString root() const;
    /// A path below the folder.
    QString path(const QString& relativePath) const;
    /// Takes what is not yet to be served. Lies on the disk of the patch files, is
    /// hidden, and not there before somebody makes it.
    QString stagingFolder() const;

    /// A file that is to be served in place of another, or of none.
    struct Replacement {
        /// What launchers ask for, directly below the folder.
        QString name;
        std::function<Problem(const QString& draft)> write;
        /// Looks at the draft when it bears its date.
        std::function<Problem(const QString& draft)> verify = {};
        /// Waits for the disk.
        bool flush = true;
    };

    /// Replaces the file atomically: writes a draft under a hidden name beside it,
    /// dates it newer than what it replaces, and renames it. After a problem before
    /// the renaming the old file is in place and nothing is left of the draft.
    [[nodiscard]] Problem replace(const Replacement& replacement, Clock& clock) const;

private:
    QString folder;
    FileWork::PublicFiles publicFiles;
    std::unique_ptr<TreeLock> lock;
};

} // namespace Publisher
