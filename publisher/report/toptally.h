#pragma once

#include <algorithm>
#include <cstdint>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

namespace Publisher {

/// Lets maps be searched by a part of a line.
struct TextHash {
    using is_transparent = void;

    std::size_t operator()(std::string_view text) const
    {
        return std::hash<std::string_view>()(text);
    }
};

/// Counts texts that anybody may make up without end: exactly for as many as it holds,
/// beyond that the frequent ones, and those a little low.
class TopTally {
public:
    explicit TopTally(std::size_t mostTexts = 20'000)
        : most(mostTexts)
    {
    }

    void add(std::string_view text)
    {
        ++all;
        const auto found = counts.find(text.substr(0, longest));
        if (found != counts.end()) {
            ++found->second;
            return;
        }
        if (counts.size() >= most)
            makeRoom();
        counts.emplace(text.substr(0, longest), 1);
    }

    struct Entry {
        std::string text;
        std::int64_t count = 0;
    };

    /// The most frequent ones first.
    std::vector<Entry> top(std::size_t size) const
    {
        std::vector<Entry> entries;
        for (const auto& [text, count] : counts)
            entries.push_back({ text, count });
        std::sort(entries.begin(), entries.end(), [](const Entry& one, const Entry& other) {
            return one.count != other.count ? one.count > other.count : one.text < other.text;
        });
        entries.resize(std::min(size, entries.size()));
        return entries;
    }

    std::int64_t total() const
    {
        return all;
    }

    bool isExact() const
    {
        return dropped == 0;
    }

private:
    static constexpr std::size_t longest = 512;

    /// Whoever has come least often makes room.
    void makeRoom()
    {
        for (std::int64_t lowest = 1; counts.size() >= most; ++lowest) {
            std::erase_if(counts, [=](const auto& entry) { return entry.second <= lowest; });
            dropped = std::max(dropped, lowest);
        }
    }

    std::size_t most;
    std::unordered_map<std::string, std::int64_t, TextHash, std::equal_to<>> counts;
    std::int64_t all = 0;
    /// The largest count that has been dropped.
    std::int64_t dropped = 0;
};

} // namespace Publisher
