#pragma once

#include "publisher/common/serverlayout.h"

#include <QChar>
#include <QString>

#include <limits>

class QCommandLineParser;

namespace Publisher {

/// Options that several commands have: each is described and read in one place.
namespace Options {

/// "SERVER", the folder that the web server serves.
void addServer(QCommandLineParser& parser);
/// "--kind"; the description says of what.
void addKind(QCommandLineParser& parser, const QString& description);
/// "--realms" and "--separator": for whom a manifest is.
void addPlayers(QCommandLineParser& parser, const QString& descriptionOfRealms);
/// What every command has that makes a manifest go live.
void addPublishing(QCommandLineParser& parser);

} // namespace Options

/// Reads options of an accepted command line and keeps the first that makes no
/// sense; what it returns for that one means nothing.
class OptionReader {
public:
    explicit OptionReader(const QCommandLineParser& parser);

    /// The folder named by a positional argument, absolute and without detours.
    QString folder(qsizetype argument) const;
    bool isSet(const QString& option) const;
    QString text(const QString& option) const;

    Kind kind();
    /// Of the players' system.
    QChar separator();
    int realms();
    /// As many files as may be dropped.
    qsizetype confirmedDrops();
    int number(const QString& option, int least, int most = std::numeric_limits<int>::max());

    /// A sentence for whoever typed it; empty when all made sense.
    QString fault() const;

private:
    void complain(const QString& sentence);

    const QCommandLineParser& parser;
    QString firstFault;
};

} // namespace Publisher
