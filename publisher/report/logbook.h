#pragma once

#include "publisher/report/asked.h"
#include "publisher/report/filetally.h"
#include "publisher/report/keyedhash.h"
#include "publisher/report/logline.h"
#include "publisher/report/pairtally.h"
#include "publisher/report/player.h"
#include "publisher/report/ratetally.h"
#include "publisher/report/toptally.h"
#include "publisher/report/versions.h"

#include <cstdint>
#include <map>
#include <string>
#include <string_view>
#include <unordered_map>
#include <unordered_set>
#include <vector>

namespace Publisher {

class PublishedTree;

/// What a server did in a minute.
struct MinuteLoad {
    std::int64_t requests = 0;
    std::int64_t bytes = 0;
    std::int64_t connections = 0;
};

/// Takes in requests, in any order, and keeps what they tell of players, files and
/// load. It grows with players, files and minutes, not with requests, and keeps no
/// address.
class LogBook {
public:
    /// Times of servers and players this far apart are no wonder, in seconds.
    static constexpr std::int64_t tolerance = 120;

    /// `tree` may be null.
    LogBook(const KeyedHash& hash, const PublishedTree* tree);

    /// Its requests are left out and counted.
    void leaveOut(std::string_view address);
    void add(const LogLine& line);

    struct File {
        std::string path;
        FileTally tally = {};
        /// Whether a manifest of the tree names it.
        bool isNamed = true;
    };

    const std::vector<PlayerRecord>& players() const;
    const std::vector<Version>& versions() const;
    /// Of a version's content.
    const FileTally& tallyOf(std::uint32_t version) const;
    const std::vector<File>& files() const;
    const PairTally& fetches() const;
    const std::unordered_map<std::int64_t, MinuteLoad>& minutes() const;
    const RateTally& rates() const;

    /// Counts of the whole, and paths by how often they came.
    struct Totals {
        std::int64_t requests = 0;
        std::int64_t bytes = 0;
        std::int64_t connections = 0;
        std::int64_t leftOut = 0;
        /// Requests with this piece of information.
        std::int64_t withDates = 0;
        std::int64_t withDuration = 0;
        std::int64_t withConnection = 0;
        /// Requests of minutes beyond those that are kept.
        std::int64_t beyondMinutes = 0;
        std::map<int, std::int64_t> statuses;
        TimeSpan times;
        TopTally clientErrors;
        TopTally serverErrors;
        TopTally datedAhead;
        TopTally foreign;
        TopTally unnamed;
    };
    const Totals& totals() const;

private:
    std::uint32_t playerOf(std::uint64_t tag);
    void addLoad(const LogLine& line);
    void addForeign(const LogLine& line, std::string_view path);
    void addErrors(const LogLine& line, std::string_view path, PlayerRecord& player);
    void addLauncher(const LogLine& line, Asked asked, std::string_view path, std::uint32_t player);
    void addDates(const LogLine& line, std::string_view path, PlayerRecord& player);
    void addVersion(const LogLine& line, Track track, std::uint32_t player);
    void tallyVersion(const LogLine& line, std::uint32_t version, std::uint32_t player);
    void addPatchFile(const LogLine& line, std::string_view path, std::uint32_t player);
    std::uint32_t fileOf(std::string_view path);
    void addRate(const LogLine& line);

    KeyedHash hash;
    const PublishedTree* tree;
    std::unordered_set<std::uint64_t> own;
    std::unordered_map<std::uint64_t, std::uint32_t> playerNumbers;
    std::vector<PlayerRecord> playerRecords;
    Versions versionTable;
    std::vector<FileTally> versionTallies;
    std::unordered_map<std::string, std::uint32_t, TextHash, std::equal_to<>> fileNumbers;
    std::vector<File> fileTable;
    PairTally fetchTally;
    std::unordered_map<std::int64_t, MinuteLoad> minuteTable;
    RateTally rateTally;
    Totals sums;
};

} // namespace Publisher
