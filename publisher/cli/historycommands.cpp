#include "publisher/build/history.h"
#include "publisher/build/republication.h"
#include "publisher/cli/commands.h"
#include "publisher/cli/findingreport.h"
#include "publisher/cli/options.h"
#include "publisher/cli/output.h"
#include "publisher/cli/recordkeeping.h"
#include "publisher/common/clock.h"
#include "publisher/common/dates.h"

#include <QCommandLineParser>
#include <QFileInfo>

#include <optional>

using namespace Qt::StringLiterals;

namespace Publisher {

namespace {

QString ofWhichPlayers()
{
    return u"Of which players: live (patch.ini) or test (patchTest.ini)."_s;
}

/// Why the arguments make no sense; empty when they do.
QString faultOf(const QCommandLineParser& parser, bool wantsNumber)
{
    const QStringList arguments = parser.positionalArguments();
    if (arguments.size() != (wantsNumber ? 2 : 1))
        return wantsNumber
            ? u"give the server folder and the number of a publication, which history lists"_s
            : u"give the server folder, the one that build publishes into"_s;
    if (!QFileInfo(arguments.at(0)).isDir())
        return u"there is no folder \"%1\"; name the one that build publishes into"_s.arg(
            arguments.at(0));
    return {};
}

/// Whose history is asked for.
struct Asked {
    QString server;
    Kind kind;
};

std::optional<Asked> readAsked(const QCommandLineParser& parser, bool wantsNumber, Output& output)
{
    QString fault = faultOf(parser, wantsNumber);
    if (fault.isEmpty()) {
        OptionReader options(parser);
        const Asked asked{ options.folder(0), options.kind() };
        fault = options.fault();
        if (fault.isEmpty())
            return asked;
    }
    output.error(fault);
    return std::nullopt;
}

std::optional<HistoryEntry>
entryOf(const Asked& asked, const QCommandLineParser& parser, Output& output)
{
    const QString wanted = parser.positionalArguments().at(1);
    const QList<HistoryEntry> entries = History(asked.server, asked.kind).entries();
    for (const HistoryEntry& entry : entries) {
        if (QString::number(entry.number) == wanted)
            return entry;
    }
    output.error(u"there is no publication %1; halden-publish history lists them"_s.arg(wanted));
    return std::nullopt;
}

QString headline(const HistoryEntry& entry)
{
    const PublicationNote& note = entry.note;
    QString text = u"%1%2  %3"_s.arg(entry.number, 5)
                       .arg(QChar(entry.isLive ? u'*' : u' '))
                       .arg(Dates::shown(note.time));
    for (const QString& part : { note.who, note.command, note.message }) {
        if (!part.isEmpty())
            text += "  "_L1 + part;
    }
    return text;
}

QJsonObject toJson(const HistoryEntry& entry)
{
    QJsonObject object = entry.note.toJson();
    object.insert(u"number"_s, entry.number);
    object.insert(u"isLive"_s, entry.isLive);
    return object;
}

void list(const QString& word, const QStringList& paths, Output& output)
{
    for (const QString& path : paths)
        output.line(u"%1 %2"_s.arg(word, -9).arg(path));
    output.set(word, QJsonArray::fromStringList(paths));
}

void show(const RepublicationRequest& request, const RepublicationReport& report, Output& output)
{
    list(u"added"_s, report.added, output);
    list(u"changed"_s, report.changed, output);
    list(u"removed"_s, report.removed, output);
    output.set(u"kind"_s, ServerLayout::word(request.kind));
    output.set(u"dryRun"_s, request.dryRun);
    output.set(u"unchanged"_s, report.unchanged);
    output.set(u"bytesToUpdate"_s, report.traffic.bytesToUpdate);
    output.set(u"bytesInAll"_s, report.traffic.bytesInAll);
    output.set(u"manifestChanged"_s, report.manifestChanged);
    output.line(u"%1 added, %2 changed, %3 removed, %4 unchanged."_s.arg(report.added.size())
                    .arg(report.changed.size())
                    .arg(report.removed.size())
                    .arg(report.unchanged));
    if (!report.refusals.isEmpty()) {
        FindingReport::showRefusals(report.refusals, output);
        return;
    }
    output.line(report.traffic.sentence());
    const QString manifest = ServerLayout::manifestName(request.kind);
    if (request.dryRun)
        output.line(u"Dry run: nothing has been written."_s);
    else
        output.line((report.manifestChanged ? u"Published: %1 is live."_s : u"%1 is unchanged."_s)
                        .arg(manifest));
}

ExitCode run(RepublicationRequest request, const QCommandLineParser& parser, Output& output)
{
    OptionReader options(parser);
    request.message = options.text(u"message"_s);
    request.confirmedDrops = options.confirmedDrops();
    request.dryRun = options.isSet(u"dry-run"_s);
    request.rehash = options.isSet(u"rehash"_s);
    request.flush = !options.isSet(u"no-flush"_s);
    request.threads = options.number(u"jobs"_s, 1);
    if (const QString fault = options.fault(); !fault.isEmpty()) {
        output.error(fault);
        return ExitCode::Usage;
    }
    RecordKeeping record(parser, output);
    if (!record.isReady())
        return ExitCode::InputOutput;
    Clock clock;
    RepublicationReport report;
    const ExitCode code = republish(request, clock, report);
    if (code == ExitCode::InputOutput)
        output.error(report.error);
    else
        show(request, report, output);
    return code == ExitCode::Fine && !request.dryRun ? record.addPatch(request.server, request.kind)
                                                     : code;
}

void configureHistory(QCommandLineParser& parser)
{
    parser.setApplicationDescription(
        u"\nLists the publications of SERVER, the latest last. A star marks the one that is live."_s);
    Options::addServer(parser);
    Options::addKind(parser, ofWhichPlayers());
}

ExitCode runHistory(const QCommandLineParser& parser, Output& output)
{
    const std::optional<Asked> asked = readAsked(parser, false, output);
    if (!asked)
        return ExitCode::Usage;
    const QList<HistoryEntry> entries = History(asked->server, asked->kind).entries();
    QJsonArray array;
    for (const HistoryEntry& entry : entries) {
        output.line(headline(entry));
        array.append(toJson(entry));
    }
    if (entries.isEmpty())
        output.line(u"Nothing has been published yet."_s);
    output.set(u"publications"_s, array);
    return ExitCode::Fine;
}

void configureShow(QCommandLineParser& parser)
{
    parser.setApplicationDescription(u"\nLists what a publication of the history holds."_s);
    Options::addServer(parser);
    parser.addPositionalArgument(u"NUMBER"_s, u"As history lists it."_s);
    Options::addKind(parser, ofWhichPlayers());
}

ExitCode runShow(const QCommandLineParser& parser, Output& output)
{
    const std::optional<Asked> asked = readAsked(parser, true, output);
    const std::optional<HistoryEntry> entry
        = asked ? entryOf(*asked, parser, output) : std::nullopt;
    if (!entry)
        return ExitCode::Usage;
    const Publication publication = readPublication(entry->manifestPath, asked->kind);
    QStringList paths = publication.files.keys();
    paths.sort();
    output.line(headline(*entry));
    QJsonArray files;
    for (const QString& path : std::as_const(paths)) {
        const PublishedFile file = publication.files.value(path);
        output.line(file.hash + "  "_L1 + path);
        files.append(QJsonObject{ { u"path"_s, path }, { u"md5"_s, file.hash } });
    }
    QJsonArray removals;
    for (const PublishedRemoval& removal : publication.removals) {
        output.line("removes from players: "_L1 + removal.path);
        removals.append(removal.path);
    }
    output.set(u"publication"_s, toJson(*entry));
    output.set(u"files"_s, files);
    output.set(u"removals"_s, removals);
    return ExitCode::Fine;
}

void configureRollback(QCommandLineParser& parser)
{
    parser.setApplicationDescription(
        u"\nMakes a publication of the history live again, without its source folder and without "
        "copying anything, if all of its files are still on the server. It gets a newer date than "
        "what it replaces and is a publication of its own."_s);
    Options::addServer(parser);
    parser.addPositionalArgument(u"NUMBER"_s, u"As history lists it."_s);
    Options::addKind(parser, ofWhichPlayers());
    Options::addPublishing(parser);
    RecordKeeping::addOption(parser);
}

ExitCode runRollback(const QCommandLineParser& parser, Output& output)
{
    const std::optional<Asked> asked = readAsked(parser, true, output);
    const std::optional<HistoryEntry> entry
        = asked ? entryOf(*asked, parser, output) : std::nullopt;
    if (!entry)
        return ExitCode::Usage;
    RepublicationRequest request;
    request.server = asked->server;
    request.kind = asked->kind;
    request.fromKind = asked->kind;
    request.manifestPath = entry->manifestPath;
    request.command = u"rollback to %1"_s.arg(entry->number);
    return run(request, parser, output);
}

void configurePromote(QCommandLineParser& parser)
{
    parser.setApplicationDescription(
        u"\nMakes the test publication the live one, byte by byte. Its files get live addresses by "
        "links, so that nothing is copied or uploaded anew."_s);
    Options::addServer(parser);
    Options::addPublishing(parser);
    RecordKeeping::addOption(parser);
}

ExitCode runPromote(const QCommandLineParser& parser, Output& output)
{
    QString fault = faultOf(parser, false);
    RepublicationRequest request;
    request.kind = Kind::Live;
    request.fromKind = Kind::Test;
    if (fault.isEmpty()) {
        request.server = OptionReader(parser).folder(0);
        request.manifestPath = request.server + u'/' + ServerLayout::manifestName(Kind::Test);
        if (!QFileInfo::exists(request.manifestPath))
            fault = u"there is no test publication; build --kind test makes one"_s;
    }
    if (!fault.isEmpty()) {
        output.error(fault);
        return ExitCode::Usage;
    }
    request.command = u"promote"_s;
    return run(request, parser, output);
}

} // namespace

const Command historyCommand{ "history"_L1, "lists what has been live, when and by whom"_L1,
                              configureHistory, runHistory };

const Command showCommand{ "show"_L1, "lists the files of a publication"_L1, configureShow,
                           runShow };

const Command rollbackCommand{ "rollback"_L1, "publishes a former publication once more"_L1,
                               configureRollback, runRollback };

const Command promoteCommand{ "promote"_L1, "gives the test publication to all players"_L1,
                              configurePromote, runPromote };

} // namespace Publisher
