#pragma once

#include "publisher/common/exitcode.h"
#include "publisher/common/record.h"

#include <QString>

#include <functional>

class QCommandLineParser;

namespace Publisher {

class Output;

/// The record to which a command adds what it has published, "--record FILE".
/// Without the option nothing is kept, and all goes well. Several may add to one record
/// at the same time.
class RecordKeeping {
public:
    static void addOption(QCommandLineParser& parser);

    RecordKeeping(const QCommandLineParser& parser, Output& output);

    /// Complains of a file that is no record, and of one that cannot be written. To be
    /// asked before anything is published.
    bool isReady();
    /// What goes with a manifest of this kind, or with the next one.
    ExitCode addPatch(const QString& server, Kind kind, bool next = false);
    ExitCode addLauncher(const QString& server);

private:
    [[nodiscard]] Problem read();
    /// With what others have put down meanwhile, none of whom is at it until this has ended.
    ExitCode add(const std::function<Problem()>& follow);
    QString folderOfRecord() const;
    bool complain(const Problem& problem);

    Output& output;
    QString path;
    Record record;
    QDateTime time;
};

} // namespace Publisher
