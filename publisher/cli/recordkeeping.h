#pragma once

#include "publisher/common/exitcode.h"
#include "publisher/common/record.h"

#include <QString>

class QCommandLineParser;

namespace Publisher {

class Output;

/// The record to which a command adds what it has published, "--record FILE".
/// Without the option nothing is kept, and all goes well.
class RecordKeeping {
public:
    static void addOption(QCommandLineParser& parser);

    RecordKeeping(const QCommandLineParser& parser, Output& output);

    /// Reads what is on record; complains of a file that is no record, and of
    /// one that cannot be written. To be asked
    /// before anything is published.
    bool isReady();
    /// What goes with a manifest of this kind, or with the next one.
    ExitCode addPatch(const QString& server, Kind kind, bool next = false);
    ExitCode addLauncher(const QString& server);

private:
    ExitCode store(const Problem& failed);
    bool complain(const Problem& problem);

    Output& output;
    QString path;
    Record record;
    QDateTime time;
};

} // namespace Publisher
