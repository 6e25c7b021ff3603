#include "publisher/cli/commands.h"
#include "publisher/cli/findingreport.h"
#include "publisher/cli/fleetoptions.h"
#include "publisher/cli/options.h"
#include "publisher/cli/output.h"
#include "publisher/common/clock.h"
#include "publisher/common/progress.h"
#include "publisher/fleet/push.h"
#include "publisher/fleet/rclone.h"

#include <QCommandLineParser>
#include <QFileInfo>

#include <algorithm>
#include <optional>

using namespace Qt::StringLiterals;

namespace Publisher {

namespace {

void configure(QCommandLineParser& parser)
{
    parser.setApplicationDescription(
        u"\nTakes what has been published into TREE to all servers of a fleet: first the patch "
        "files, then, when every server hands them out, manifests and launcher files everywhere "
        "at once. A push that was cut off is continued by the same command. rclone does the "
        "copying."_s);
    parser.addPositionalArgument(
        u"TREE"_s, u"Folder into which build publishes; nobody serves it."_s);
    FleetOptions::addFleet(parser);
    parser.addOptions({
        { u"without"_s,
          u"Leaves this server out (repeatable). It must be out of the rotation until it has been "
          "pushed to."_s,
          u"NAME"_s },
        { { u"n"_s, u"dry-run"_s }, u"Tells what would go where and writes nothing."_s },
        { u"prune-after"_s,
          u"Removes patch files that no manifest of any server has named for so long."_s,
          u"DAYS"_s },
        { u"pause"_s,
          u"For so long no server hands out a launcher file that is being replaced, so that no "
          "player misses it or fetches it twice (default 60)."_s,
          u"SECONDS"_s, u"60"_s },
    });
    FleetOptions::addQuestions(parser);
    Options::addPlayers(parser, u"Players have up to this many realm entries (default 16)."_s);
    FindingReport::addOptions(parser);
}

/// Reads the command line and the list of servers.
class RequestReader {
public:
    RequestReader(const QCommandLineParser& acceptedLine, Output& target)
        : parser(acceptedLine)
        , output(target)
        , options(acceptedLine)
    {
    }

    std::optional<PushRequest> read()
    {
        if (!FindingReport::acceptsKnownOnly(parser, output) || !takeOptions())
            return std::nullopt;
        const auto fleet = FleetOptions::readFleet(parser, output);
        if (!fleet || !takeServers(*fleet))
            return std::nullopt;
        return request;
    }

    ExitCode code() const
    {
        return failure;
    }

private:
    bool complain(const QString& sentence, ExitCode how = ExitCode::Usage)
    {
        output.error(sentence);
        failure = how;
        return false;
    }

    bool takeOptions()
    {
        if (parser.positionalArguments().size() != 1)
            return complain(u"which tree? Name the folder into which build publishes"_s);
        if (!parser.isSet(u"fleet"_s))
            return complain(u"to which servers? Name the list of them with --fleet FILE"_s);
        request.tree = options.folder(0);
        if (!QFileInfo(request.tree).isDir())
            return complain(
                u"there is no folder \"%1\"; name the one into which build publishes"_s.arg(
                    request.tree),
                ExitCode::InputOutput);
        request.players = { .realms = options.realms(), .separator = options.separator() };
        request.accepted = parser.values(u"accept"_s);
        request.dryRun = parser.isSet(u"dry-run"_s);
        if (parser.isSet(u"prune-after"_s))
            request.pruneAfterDays = options.number(u"prune-after"_s, 0);
        request.pause = options.number(u"pause"_s, 0, 3600);
        request.secondsOfSilence = options.number(u"timeout"_s, 1);
        request.daysOfCertificate = options.number(u"days"_s, 0);
        return options.fault().isEmpty() || complain(options.fault());
    }

    bool takeServers(const FleetFile& fleet)
    {
        const QStringList left = parser.values(u"without"_s);
        for (const QString& name : left) {
            if (!hasServer(fleet, name))
                return complain(
                    u"--without names \"%1\", and %2 has no such server"_s.arg(name, fleet.name));
        }
        request.servers = fleet.servers;
        request.servers.removeIf(
            [&](const FleetServer& server) { return left.contains(server.name); });
        if (request.servers.isEmpty())
            return complain(u"no server is left to push to; leave --without away"_s);
        // The web host has a server of its own, as a rule, which has other tasks.
        request.infoUrl = QUrl(parser.value(u"alert"_s), QUrl::TolerantMode);
        return takeRemotes(fleet);
    }

    static bool hasServer(const FleetFile& fleet, const QString& name)
    {
        return std::any_of(
            fleet.servers.cbegin(), fleet.servers.cend(),
            [&](const FleetServer& server) { return server.name == name; });
    }

    bool takeRemotes(const FleetFile& fleet)
    {
        QStringList known;
        const Problem problem
            = inOrder([] { return Rclone::fault(); }, [&] { return Rclone::listRemotes(known); });
        if (problem)
            return complain(*problem, ExitCode::InputOutput);
        const QStringList faults = fleet.faultsOfRemotes(known, request.tree);
        for (const QString& fault : faults)
            output.error(fault);
        return faults.isEmpty();
    }

    const QCommandLineParser& parser;
    Output& output;
    OptionReader options;
    PushRequest request;
    ExitCode failure = ExitCode::Usage;
};

QString inSeconds(qint64 milliseconds)
{
    return QString::number(static_cast<double>(milliseconds) / 1000, 'f', 1);
}

QJsonObject toJson(const PushReport::Row& row)
{
    return {
        { u"server"_s, row.server },
        { u"files"_s, row.files },
        { u"bytes"_s, row.bytes },
        { u"seconds"_s, static_cast<double>(row.milliseconds) / 1000 },
        { u"verdict"_s, row.verdict },
        { u"exchanged"_s, QJsonArray::fromStringList(row.exchanged) },
        { u"prunedFiles"_s, row.pruned },
    };
}

void showTable(const QList<PushReport::Row>& rows, Output& output)
{
    qsizetype width = QLatin1StringView("server").size();
    for (const PushReport::Row& row : rows)
        width = std::max(width, row.server.size());
    const auto line = [&](const QString& server, const QString& files, const QString& bytes,
                          const QString& seconds, const QString& verdict) {
        output.line(
            server.leftJustified(width) + files.rightJustified(8) + bytes.rightJustified(12)
            + seconds.rightJustified(10) + "  "_L1 + verdict);
    };
    line(u"server"_s, u"files"_s, u"bytes"_s, u"seconds"_s, u"verdict"_s);
    for (const PushReport::Row& row : rows)
        line(
            row.server, QString::number(row.files), humanSize(row.bytes),
            inSeconds(row.milliseconds), row.verdict);
}

void show(const PushReport& report, const QStringList& leftOut, Output& output)
{
    QJsonArray servers;
    for (const PushReport::Row& row : report.rows) {
        servers.append(toJson(row));
        if (row.pruned > 0)
            output.line(u"%1: %2 files pruned"_s.arg(row.server).arg(row.pruned));
        if (!row.exchanged.isEmpty())
            output.line(row.server + ": "_L1 + row.exchanged.join(", "_L1));
    }
    if (!report.rows.isEmpty())
        showTable(report.rows, output);
    for (const QString& name : leftOut)
        output.line(u"%1 is left out: players must not be sent there until it has been pushed "
                    u"to."_s.arg(name));
    output.set(u"servers"_s, servers);
    output.set(u"leftOut"_s, QJsonArray::fromStringList(leftOut));
    output.set(u"switched"_s, report.stage == PushReport::Stage::Switched);
    for (const QString& sentence : report.errors)
        output.error(sentence);
}

ExitCode run(const QCommandLineParser& parser, Output& output)
{
    RequestReader reader(parser, output);
    const std::optional<PushRequest> request = reader.read();
    if (!request)
        return reader.code();
    Clock clock;
    PushReport report;
    const ExitCode code = push(*request, clock, report);
    show(report, parser.values(u"without"_s), output);
    output.set(u"dryRun"_s, request->dryRun);
    const ExitCode findings = FindingReport::conclude(report.findings, parser, output);
    if (request->dryRun)
        output.line(u"Dry run: nothing has been written."_s);
    else if (report.stage == PushReport::Stage::Before)
        output.line(u"Not switched: players get what they got before."_s);
    else if (report.stage == PushReport::Stage::Switching)
        output.line(u"The switch was cut off: some servers may have the new manifests, and some "
                    "no launcher. Run the same command again."_s);
    return code == ExitCode::Fine ? findings : code;
}

} // namespace

const Command pushCommand{ "push"_L1, "takes a publication to several servers at once"_L1,
                           configure, run };

} // namespace Publisher
