#pragma once

#include <algorithm>
#include <array>
#include <cstdint>
#include <limits>
#include <vector>

namespace Publisher {

struct LogLine;

/// What players hold a copy of, and get a new one of with each publication.
enum class Track { Live, Test, Launcher };
inline constexpr std::size_t trackCount = 3;

/// From the first time that something was seen to the last.
struct TimeSpan {
    static constexpr std::int64_t never = std::numeric_limits<std::int64_t>::max();

    std::int64_t first = never;
    std::int64_t last = std::numeric_limits<std::int64_t>::min();

    void add(std::int64_t time)
    {
        first = std::min(first, time);
        last = std::max(last, time);
    }

    bool isEmpty() const
    {
        return first == never;
    }
};

/// A content that a player has got.
struct Had {
    std::uint32_t version = 0;
    /// Answers that brought `bytes`, the most of it that came.
    std::uint32_t answers = 0;
    std::int64_t bytes = 0;
    TimeSpan times = {};
    /// Dates of the copies that he had then; empty where logs do not tell.
    TimeSpan copies = {};
    /// Answers to a copy that is not older than what came.
    std::uint32_t needless = 0;
    /// Answers that there is nothing newer.
    TimeSpan confirmed = {};

    void add(const LogLine& line);
};

/// An address, as far as its requests tell of a player.
struct PlayerRecord {
    /// The keyed hash of the address.
    std::uint64_t tag = 0;
    std::uint32_t requests = 0;
    std::uint32_t launcherRequests = 0;
    std::uint32_t clientErrors = 0;
    std::uint32_t serverErrors = 0;
    std::uint32_t brokenOff = 0;
    /// Times that the player's clock was seen ahead, and by how many seconds at most.
    std::uint32_t ahead = 0;
    std::int64_t mostAhead = 0;
    /// Of launcher requests.
    TimeSpan times = {};
    std::vector<Had> had = {};
    /// Answers that there is nothing newer, of which the content is not known.
    std::array<TimeSpan, trackCount> notModified = {};
    /// Days since 1970 on which the launcher was seen, in order.
    std::vector<std::uint32_t> days = {};

    Had& hadOf(std::uint32_t version)
    {
        const auto found = std::find_if(
            had.begin(), had.end(), [=](const Had& one) { return one.version == version; });
        if (found != had.end())
            return *found;
        return had.emplace_back(Had{ .version = version });
    }

    void seenOn(std::uint32_t day)
    {
        if (!days.empty() && days.back() == day)
            return;
        const auto place = std::lower_bound(days.begin(), days.end(), day);
        if (place == days.end() || *place != day)
            days.insert(place, day);
    }
};

} // namespace Publisher
