#include "publisher/build/estimate.h"
#include "publisher/cli/commands.h"
#include "publisher/cli/options.h"
#include "publisher/cli/output.h"
#include "publisher/common/progress.h"

#include <QCommandLineParser>
#include <QFileInfo>
#include <QJsonObject>

using namespace Qt::StringLiterals;

namespace Publisher {

namespace {

// From when players come home until they go to bed.
constexpr double secondsOfAnEvening = 4 * 3600;

void configure(QCommandLineParser& parser)
{
    parser.setApplicationDescription(
        u"\nTells what the live publication of SERVER costs the line: what a player fetches, how "
        "long that takes, how long it takes until all have it, and how many servers do that in an "
        "evening of four hours. The lines are taken to be full all the time, so nothing comes "
        "sooner."_s);
    Options::addServer(parser);
    Options::addKind(parser, u"Whose publication: live (patch.ini) or test (patchTest.ini)."_s);
    parser.addOptions({
        { u"players"_s, u"So many fetch it."_s, u"NUMBER"_s },
        { u"line"_s, u"Of each server, in Mbit/s."_s, u"MBIT"_s },
        { u"servers"_s, u"Share the players."_s, u"NUMBER"_s, u"1"_s },
        { u"since"_s,
          u"Publication that they have, by its number in the history; the one before the live one "
          "unless you say otherwise."_s,
          u"NUMBER"_s },
        { u"connections"_s, u"New TLS connections per second that a server takes on."_s,
          u"NUMBER"_s, u"500"_s },
        { u"player-line"_s, u"Of a player, in Mbit/s."_s, u"MBIT"_s, u"50"_s },
        { u"round-trip"_s, u"From a player to a server and back, in milliseconds."_s, u"MS"_s,
          u"30"_s },
    });
}

QString faultOf(const QCommandLineParser& parser)
{
    if (parser.positionalArguments().size() != 1)
        return u"give the server folder, the one that build publishes into"_s;
    if (!QFileInfo(parser.positionalArguments().constFirst()).isDir())
        return u"there is no folder \"%1\"; name the one that build publishes into"_s.arg(
            parser.positionalArguments().constFirst());
    for (const QString& needed : { u"players"_s, u"line"_s }) {
        if (!parser.isSet(needed))
            return u"give --%1"_s.arg(needed);
    }
    return {};
}

EstimateRequest requestOf(const QCommandLineParser& parser, QString& fault)
{
    OptionReader options(parser);
    EstimateRequest request;
    request.server = options.folder(0);
    request.kind = options.kind();
    request.players = options.number(u"players"_s, 1);
    request.line = options.number(u"line"_s, 1);
    request.servers = options.number(u"servers"_s, 1);
    request.connections = options.number(u"connections"_s, 1);
    request.playersLine = options.number(u"player-line"_s, 1);
    request.roundTrip = options.number(u"round-trip"_s, 0);
    if (options.isSet(u"since"_s))
        request.since = options.number(u"since"_s, 1);
    fault = options.fault();
    return request;
}

QString duration(double seconds)
{
    constexpr double minute = 60;
    constexpr double hour = 3600;
    if (seconds < 2 * minute)
        return u"%1 seconds"_s.arg(seconds, 0, 'f', seconds < 10 ? 1 : 0);
    if (seconds < 2 * hour)
        return u"%1 minutes"_s.arg(seconds / minute, 0, 'f', 0);
    return u"%1 hours"_s.arg(seconds / hour, 0, 'f', 1);
}

QJsonObject
toJson(const PlayersShare& share, double waiting, const ServingTime& time, qint64 servers)
{
    return { { u"files"_s, share.files },
             { u"fileBytes"_s, share.fileBytes },
             { u"requests"_s, share.requests },
             { u"bytes"_s, share.bytes },
             { u"waitingSeconds"_s, waiting },
             { u"lineSeconds"_s, time.lineSeconds },
             { u"connectionSeconds"_s, time.connectionSeconds },
             { u"serversForAnEvening"_s, servers } };
}

void show(
    const QString& who, const QString& key, const PlayersShare& share,
    const EstimateRequest& request, Output& output)
{
    const ServingTime time = ServingTime::of(request, share);
    const qint64 servers = time.serversFor(secondsOfAnEvening, request.servers);
    const double waiting = waitingTime(request, share);
    output.set(key, toJson(share, waiting, time, servers));
    output.line(u"%1 lacks %2 files, %3. Both update runs fetch them, each over a connection of "
                "its own: %4 over %5 connections."_s.arg(who)
                    .arg(share.files)
                    .arg(humanSize(share.fileBytes), humanSize(share.bytes))
                    .arg(share.requests));
    output.line(u"    A player with %1 Mbit/s and %2 ms waits %3."_s.arg(request.playersLine)
                    .arg(request.roundTrip)
                    .arg(duration(waiting)));
    output.line(u"    %1 such players: %2 by the lines, %3 by the connections; servers for an "
                "evening: %4."_s.arg(request.players)
                    .arg(duration(time.lineSeconds), duration(time.connectionSeconds))
                    .arg(servers));
}

ExitCode run(const QCommandLineParser& parser, Output& output)
{
    QString fault = faultOf(parser);
    EstimateRequest request;
    if (fault.isEmpty())
        request = requestOf(parser, fault);
    if (!fault.isEmpty()) {
        output.error(fault);
        return ExitCode::Usage;
    }
    Estimate result;
    if (const Problem problem = estimate(request, result)) {
        output.error(*problem);
        return ExitCode::InputOutput;
    }
    output.set(u"since"_s, result.since);
    show(
        result.since > 0 ? u"A player with publication %1"_s.arg(result.since)
                         : u"A player of today"_s,
        u"updating"_s, result.updating, request, output);
    show(u"A new player"_s, u"anew"_s, result.anew, request, output);
    return ExitCode::Fine;
}

} // namespace

const Command estimateCommand{ "estimate"_L1,
                               "tells what a publication costs the servers' lines"_L1, configure,
                               run };

} // namespace Publisher
