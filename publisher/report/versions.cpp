#include "publisher/report/versions.h"

#include "publisher/report/logline.h"
#include "publisher/report/publishedtree.h"

namespace Publisher {

namespace {

// Broken answers have all sorts of lengths.
constexpr std::size_t mostVersions = 10'000;
constexpr int notModified = 304;

} // namespace

Versions::Versions(const PublishedTree* publishedTree)
    : tree(publishedTree)
{
}

std::optional<std::uint32_t> Versions::of(Track track, const LogLine& line)
{
    if (const auto version = fromTree(track, line))
        return known({ track, version->number, *version->date, 0 }, *version);
    if (line.lastModified)
        return known(
            { track, 0, *line.lastModified, 0 }, { .track = track, .date = line.lastModified });
    if (line.status == notModified)
        return std::nullopt;
    return ofLength(track, line.bytes);
}

std::optional<std::uint32_t> Versions::ofLength(Track track, std::int64_t bytes)
{
    const auto near = numbers.lower_bound({ track, 0, 0, bytes - leastDifference + 1 });
    const Key end{ track, 0, 0, bytes + leastDifference };
    if (near != numbers.end() && near->first < end)
        return near->second;
    return known({ track, 0, 0, bytes }, { .track = track, .size = bytes });
}

std::optional<Version> Versions::fromTree(Track track, const LogLine& line) const
{
    if (tree == nullptr)
        return std::nullopt;
    const std::int64_t date = line.lastModified.value_or(line.time);
    const PublishedTree::Release* next = tree->nextDated(date);
    if (track == Track::Live && next != nullptr)
        return Version{ .track = track, .date = next->time, .size = next->size, .isNext = true };
    const PublishedTree::Release* const live = tree->liveAt(track, date);
    // Of launchers the tree has the last one only.
    if (live == nullptr || (live->number == 0 && line.lastModified && live->time != date))
        return std::nullopt;
    return Version{ .track = track,
                    .date = live->time,
                    .size = live->size,
                    .number = live->number,
                    .message = live->message };
}

Version& Versions::at(std::uint32_t version)
{
    return versions[version];
}

const std::vector<Version>& Versions::all() const
{
    return versions;
}

std::optional<std::uint32_t> Versions::known(const Key& key, const Version& version)
{
    const auto found = numbers.find(key);
    if (found != numbers.end())
        return found->second;
    if (versions.size() >= mostVersions)
        return std::nullopt;
    const auto number = static_cast<std::uint32_t>(versions.size());
    versions.push_back(version);
    numbers.emplace(key, number);
    return number;
}

} // namespace Publisher
