#include "publisher/report/logbook.h"

#include "publisher/report/logtime.h"
#include "publisher/report/publishedtree.h"
#include "publisher/report/visitoraddress.h"

#include <algorithm>

namespace Publisher {

namespace {

constexpr int found = 200;
constexpr int notModified = 304;
constexpr int firstClientError = 400;
constexpr int firstServerError = 500;
// Two years.
constexpr std::size_t mostMinutes = std::size_t{ 1 } << 20;
constexpr std::size_t mostFiles = 200'000;
constexpr std::size_t longestPath = 512;
// What is smaller says nothing about a line.
constexpr std::int64_t leastDownload = 64 << 10;

std::string_view pathOf(std::string_view target)
{
    return target.substr(0, std::min(target.find('?'), target.size()));
}

/// nginx has a status of its own for players who have gone.
bool isError(const LogLine& line)
{
    constexpr int gone = 499;
    return line.status >= firstClientError && line.status != gone;
}

/// By the format that has no place for a user agent, whatever looks like it.
bool isOfLauncher(const LogLine& line, Asked asked)
{
    return asked != Asked::Other && line.method == "GET"
        && (!line.userAgent || isLauncher(*line.userAgent));
}

std::optional<Track> trackOf(Asked asked)
{
    switch (asked) {
    case Asked::LiveManifest:
        return Track::Live;
    case Asked::TestManifest:
        return Track::Test;
    case Asked::Launcher:
        return Track::Launcher;
    default:
        return std::nullopt;
    }
}

} // namespace

LogBook::LogBook(const KeyedHash& keyedHash, const PublishedTree* publishedTree)
    : hash(keyedHash)
    , tree(publishedTree)
    , versionTable(publishedTree)
    // Stands for all beyond those that are kept.
    , fileTable(1)
{
}

void LogBook::leaveOut(std::string_view address)
{
    own.insert(hash.of(VisitorAddress(address).household()));
}

void LogBook::add(const LogLine& line)
{
    const std::uint64_t tag = hash.of(VisitorAddress(line.address).household());
    if (own.contains(tag)) {
        ++sums.leftOut;
        return;
    }
    const std::uint32_t number = playerOf(tag);
    PlayerRecord& player = playerRecords[number];
    ++player.requests;
    addLoad(line);
    const std::string_view path = pathOf(line.target);
    const Asked asked = askedBy(line.target);
    if (isError(line))
        addErrors(line, path, player);
    if (isOfLauncher(line, asked))
        addLauncher(line, asked, path, number);
    else
        addForeign(line, path);
}

std::uint32_t LogBook::playerOf(std::uint64_t tag)
{
    const auto [place, isNew]
        = playerNumbers.try_emplace(tag, static_cast<std::uint32_t>(playerRecords.size()));
    if (isNew)
        playerRecords.push_back({ .tag = tag });
    return place->second;
}

void LogBook::addLoad(const LogLine& line)
{
    // Where logs do not tell, every request is one: launchers keep none open.
    const int connections = line.isNewConnection.value_or(true) ? 1 : 0;
    ++sums.requests;
    sums.bytes += line.bytes;
    sums.connections += connections;
    sums.withConnection += line.isNewConnection ? 1 : 0;
    sums.withDuration += line.seconds ? 1 : 0;
    ++sums.statuses[line.status];
    sums.times.add(line.time);
    const std::int64_t minute = line.time / LogTime::secondsOfAMinute;
    if (minuteTable.size() >= mostMinutes && !minuteTable.contains(minute)) {
        ++sums.beyondMinutes;
        return;
    }
    MinuteLoad& load = minuteTable[minute];
    ++load.requests;
    load.bytes += line.bytes;
    load.connections += connections;
}

void LogBook::addForeign(const LogLine& line, std::string_view path)
{
    sums.foreign.add(line.method.empty() ? std::string_view("(no request)") : path);
}

void LogBook::addErrors(const LogLine& line, std::string_view path, PlayerRecord& player)
{
    const bool isServers = line.status >= firstServerError;
    ++(isServers ? player.serverErrors : player.clientErrors);
    TopTally& tally = isServers ? sums.serverErrors : sums.clientErrors;
    tally.add(std::to_string(line.status) + ' ' + std::string(path.substr(0, longestPath)));
}

void LogBook::addLauncher(
    const LogLine& line, Asked asked, std::string_view path, std::uint32_t number)
{
    PlayerRecord& player = playerRecords[number];
    ++player.launcherRequests;
    player.times.add(line.time);
    player.seenOn(static_cast<std::uint32_t>(line.time / LogTime::secondsOfADay));
    addDates(line, path, player);
    addRate(line);
    if (asked == Asked::PatchFile)
        addPatchFile(line, path, number);
    else if (const auto track = trackOf(asked))
        addVersion(line, *track, number);
}

void LogBook::addDates(const LogLine& line, std::string_view path, PlayerRecord& player)
{
    if (line.ifModifiedSince) {
        ++sums.withDates;
        const std::int64_t ahead = *line.ifModifiedSince - line.time;
        player.ahead += ahead > tolerance ? 1 : 0;
        player.mostAhead = std::max(player.mostAhead, ahead);
    }
    if (line.lastModified && *line.lastModified - line.time > tolerance)
        sums.datedAhead.add(path);
}

void LogBook::addVersion(const LogLine& line, Track track, std::uint32_t number)
{
    if (line.status != found && line.status != notModified)
        return;
    PlayerRecord& player = playerRecords[number];
    const auto version = versionTable.of(track, line);
    if (!version) {
        player.notModified[static_cast<std::size_t>(track)].add(line.time);
        return;
    }
    versionTable.at(*version).seen.add(line.time);
    Had& had = player.hadOf(*version);
    if (line.status == notModified) {
        had.confirmed.add(line.time);
        return;
    }
    tallyVersion(line, *version, number);
    had.add(line);
}

void LogBook::tallyVersion(const LogLine& line, std::uint32_t number, std::uint32_t player)
{
    const Version& version = versionTable.at(number);
    if (versionTallies.size() <= number)
        versionTallies.resize(number + 1);
    FileTally& tally = versionTallies[number];
    if (tally.requests() == 0)
        tally.setSize(version.size);
    const std::uint32_t one = version.isHeldToSize() ? 1 : 0;
    tally.add(player, line.bytes, [this, one](std::uint32_t broken) {
        playerRecords[broken].brokenOff += one;
    });
}

void LogBook::addPatchFile(const LogLine& line, std::string_view path, std::uint32_t player)
{
    if (line.status != found) {
        if (tree != nullptr && !tree->sizeOfPatchFile(path))
            sums.unnamed.add(path);
        return;
    }
    const std::uint32_t number = fileOf(path);
    File& file = fileTable[number];
    if (!file.isNamed)
        sums.unnamed.add(path);
    if (number == 0)
        return;
    file.tally.add(
        player, line.bytes, [this](std::uint32_t one) { ++playerRecords[one].brokenOff; });
    fetchTally.add(player, number);
}

std::uint32_t LogBook::fileOf(std::string_view path)
{
    const auto known = fileNumbers.find(path);
    if (known != fileNumbers.end())
        return known->second;
    if (fileTable.size() > mostFiles || path.size() > longestPath)
        return 0;
    const auto number = static_cast<std::uint32_t>(fileTable.size());
    File file{ .path = std::string(path) };
    if (tree != nullptr) {
        const auto size = tree->sizeOfPatchFile(path);
        file.isNamed = size.has_value();
        file.tally.setSize(size.value_or(0));
    }
    fileTable.push_back(file);
    fileNumbers.emplace(path, number);
    return number;
}

void LogBook::addRate(const LogLine& line)
{
    if (line.status == found && line.bytes >= leastDownload && line.seconds && *line.seconds > 0)
        rateTally.add(static_cast<double>(line.bytes) / *line.seconds);
}

const std::vector<PlayerRecord>& LogBook::players() const
{
    return playerRecords;
}

const std::vector<Version>& LogBook::versions() const
{
    return versionTable.all();
}

const FileTally& LogBook::tallyOf(std::uint32_t version) const
{
    static const FileTally none;
    return version < versionTallies.size() ? versionTallies[version] : none;
}

const std::vector<LogBook::File>& LogBook::files() const
{
    return fileTable;
}

const PairTally& LogBook::fetches() const
{
    return fetchTally;
}

const std::unordered_map<std::int64_t, MinuteLoad>& LogBook::minutes() const
{
    return minuteTable;
}

const RateTally& LogBook::rates() const
{
    return rateTally;
}

const LogBook::Totals& LogBook::totals() const
{
    return sums;
}

} // namespace Publisher
