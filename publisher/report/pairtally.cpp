#include "publisher/report/pairtally.h"

#include <algorithm>
#include <utility>

namespace Publisher {

namespace {

constexpr std::size_t slotsAtFirst = 1024;

std::size_t mixed(std::uint32_t player, std::uint32_t file)
{
    const std::uint64_t key = (std::uint64_t{ player } << 32 | file) * 0x9e3779b97f4a7c15U;
    return static_cast<std::size_t>(key ^ key >> 32);
}

} // namespace

PairTally::PairTally(std::size_t mostPairs)
    : most(mostPairs)
    , pairs(slotsAtFirst)
{
}

void PairTally::add(std::uint32_t player, std::uint32_t file)
{
    Slot& slot = slotOf(player, file);
    if (slot.count++ > 0)
        return;
    slot.player = player;
    slot.file = file;
    ++used;
    if (used >= most)
        makeRoom();
    else if (used * 2 > pairs.size())
        rebuild(pairs.size() * 2, 0);
}

void PairTally::forEach(
    const std::function<void(std::uint32_t, std::uint32_t, std::uint32_t)>& take) const
{
    for (const Slot& slot : pairs) {
        if (slot.count > 0)
            take(slot.player, slot.file, slot.count);
    }
}

bool PairTally::isExact() const
{
    return dropped == 0;
}

PairTally::Slot& PairTally::slotOf(std::uint32_t player, std::uint32_t file)
{
    const std::size_t mask = pairs.size() - 1;
    std::size_t place = mixed(player, file) & mask;
    while (pairs[place].count > 0 && (pairs[place].player != player || pairs[place].file != file))
        place = (place + 1) & mask;
    return pairs[place];
}

void PairTally::rebuild(std::size_t size, std::uint32_t lowest)
{
    const std::vector<Slot> before = std::exchange(pairs, std::vector<Slot>(size));
    used = 0;
    for (const Slot& slot : before) {
        if (slot.count <= lowest)
            continue;
        slotOf(slot.player, slot.file) = slot;
        ++used;
    }
}

void PairTally::makeRoom()
{
    // What a start fetches, by both of its runs, goes first.
    std::uint32_t lowest = 1;
    while (used * 2 > most)
        rebuild(pairs.size(), ++lowest);
    dropped = std::max(dropped, lowest);
}

} // namespace Publisher
