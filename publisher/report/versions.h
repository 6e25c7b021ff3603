#pragma once

#include "publisher/report/player.h"

#include <QString>

#include <cstdint>
#include <map>
#include <optional>
#include <tuple>
#include <vector>

namespace Publisher {

class PublishedTree;
struct LogLine;

/// A publication, or a release of the launcher, as far as logs and tree tell one from
/// the other.
struct Version {
    Track track = Track::Live;
    /// When it was dated; where nothing tells, none, and `size` tells it from others.
    std::optional<std::int64_t> date = {};
    std::int64_t size = 0;
    /// In the tree's history; 0 where it has none.
    int number = 0;
    bool isNext = false;
    QString message = {};
    /// When anybody got it, or was told that he has it.
    TimeSpan seen = {};

    /// Whether fewer bytes of it mean that they broke off. Without a date they may be
    /// another version; and of two runs that fetch the launcher, the one that has it
    /// breaks the other's off.
    bool isHeldToSize() const
    {
        return date.has_value() && track != Track::Launcher;
    }
};

/// Tells by an answer which publication it has brought.
class Versions {
public:
    /// Lengths this close to each other are of one content where nothing else tells: some
    /// servers count what goes over the line, which varies. Manifests without an entry
    /// more or less have one length anyway.
    static constexpr std::int64_t leastDifference = 64;

    /// `tree` may be null.
    explicit Versions(const PublishedTree* tree);

    /// None where the answer does not tell: that there is nothing newer, without a date.
    std::optional<std::uint32_t> of(Track track, const LogLine& line);
    Version& at(std::uint32_t version);
    const std::vector<Version>& all() const;

private:
    using Key = std::tuple<Track, int, std::int64_t, std::int64_t>;

    std::optional<std::uint32_t> ofLength(Track track, std::int64_t bytes);
    std::optional<std::uint32_t> known(const Key& key, const Version& version);
    std::optional<Version> fromTree(Track track, const LogLine& line) const;

    const PublishedTree* tree;
    std::map<Key, std::uint32_t> numbers;
    std::vector<Version> versions;
};

} // namespace Publisher
