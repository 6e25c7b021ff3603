#include "publisher/build/estimate.h"

#include "publisher/build/history.h"
#include "publisher/common/filefingerprint.h"

#include <algorithm>
#include <cmath>

using namespace Qt::StringLiterals;

namespace Publisher {

namespace {

constexpr qint64 runsOfAStart = 2;
// Updater, launcher, manifest.
constexpr qint64 requestsOfARun = 3;
// The text for the window comes once, beside the runs.
constexpr qint64 otherRequests = 1;
// TCP, the two of a TLS 1.2 handshake, request and answer.
constexpr qint64 roundTripsOfARequest = 4;
// The server's half of a TLS 1.2 handshake with two certificates, an answer's headers,
// and the end of a connection.
constexpr qint64 bytesOfARequest = 4'500;
// Of what goes over an Ethernet line: 1,448 bytes of 1,538 are content, and TLS adds
// 29 to each record of 16 KiB.
constexpr double wireBytesPerByte = 1538.0 / 1448.0 * (16384.0 + 29.0) / 16384.0;
constexpr double bitsOfAByte = 8;
constexpr double bitsOfAMegabit = 1e6;

qint64 onTheWire(qint64 bytes)
{
    return std::llround(static_cast<double>(bytes) * wireBytesPerByte);
}

void add(PlayersShare& share, qint64 size)
{
    ++share.files;
    share.fileBytes += size;
}

/// What comes with every start, whatever the player lacks.
void complete(PlayersShare& share, qint64 manifestSize)
{
    share.requests = otherRequests + runsOfAStart * (requestsOfARun + share.files);
    share.bytes = onTheWire(
        runsOfAStart * (share.fileBytes + manifestSize) + share.requests * bytesOfARequest);
}

/// The publication that players have; an empty one where there is none.
Problem findBefore(const EstimateRequest& request, Publication& before, int& number)
{
    const History history(request.server, request.kind);
    const QList<HistoryEntry> entries = history.entries();
    const bool isLiveKnown = !entries.isEmpty() && entries.constLast().isLive;
    const qsizetype last = entries.size() - (isLiveKnown ? 2 : 1);
    for (qsizetype i = last; i >= 0; --i) {
        const HistoryEntry& entry = entries.at(i);
        if (request.since && entry.number != *request.since)
            continue;
        before = history.publicationOf(entry);
        number = entry.number;
        return std::nullopt;
    }
    if (request.since)
        return u"there is no publication %1 before the live one; halden-publish history lists "
               "them"_s.arg(*request.since);
    return std::nullopt;
}

} // namespace

Problem estimate(const EstimateRequest& request, Estimate& result)
{
    const QString manifest = request.server + u'/' + ServerLayout::manifestName(request.kind);
    const FileFingerprint manifestFile = FileFingerprint::of(manifest);
    if (!manifestFile.isFile())
        return u"%1 is not there; build publishes it"_s.arg(manifest);
    Publication before;
    if (Problem problem = findBefore(request, before, result.since))
        return problem;
    const Publication live = readPublication(manifest, request.kind);
    for (const PublishedFile& file : live.files) {
        const QString path = request.server + u'/' + file.serverPath;
        const FileFingerprint onDisk = FileFingerprint::of(path);
        if (!onDisk.isFile())
            return u"%1 is not there; publish the source folder again, which brings it back"_s.arg(
                path);
        add(result.anew, onDisk.size);
        const auto old = before.files.constFind(file.path);
        if (old == before.files.cend() || old->hash != file.hash)
            add(result.updating, onDisk.size);
    }
    for (PlayersShare* share : { &result.anew, &result.updating })
        complete(*share, manifestFile.size);
    return std::nullopt;
}

ServingTime ServingTime::of(const EstimateRequest& request, const PlayersShare& share)
{
    const auto players = static_cast<double>(request.players);
    const auto servers = static_cast<double>(request.servers);
    return { .lineSeconds = players * static_cast<double>(share.bytes) * bitsOfAByte
                 / (request.line * bitsOfAMegabit * servers),
             .connectionSeconds = players * static_cast<double>(share.requests)
                 / (static_cast<double>(request.connections) * servers) };
}

double ServingTime::seconds() const
{
    return std::max(lineSeconds, connectionSeconds);
}

qint64 ServingTime::serversFor(double limit, qint64 servers) const
{
    const double work = seconds() * static_cast<double>(servers);
    return std::max<qint64>(1, static_cast<qint64>(std::ceil(work / limit)));
}

double waitingTime(const EstimateRequest& request, const PlayersShare& share)
{
    constexpr double millisecondsOfASecond = 1000;
    const qint64 oneAfterTheOther = (share.requests - otherRequests) / runsOfAStart;
    return static_cast<double>(oneAfterTheOther * roundTripsOfARequest * request.roundTrip)
        / millisecondsOfASecond
        + static_cast<double>(share.bytes) * bitsOfAByte / (request.playersLine * bitsOfAMegabit);
}

} // namespace Publisher
