#pragma once

#include <cstdint>
#include <functional>
#include <vector>

namespace Publisher {

/// Counts how often each player fetched each patch file: exactly for as many pairs as
/// it holds. Beyond that it forgets pairs that came seldom, so that others may come out
/// low.
class PairTally {
public:
    explicit PairTally(std::size_t mostPairs = std::size_t{ 2 } << 20);

    void add(std::uint32_t player, std::uint32_t file);
    void forEach(
        const std::function<void(std::uint32_t player, std::uint32_t file, std::uint32_t count)>&
            take) const;
    bool isExact() const;

private:
    struct Slot {
        std::uint32_t player = 0;
        std::uint32_t file = 0;
        /// 0 where nothing is.
        std::uint32_t count = 0;
    };

    Slot& slotOf(std::uint32_t player, std::uint32_t file);
    /// Without what has been counted no more often than `lowest`.
    void rebuild(std::size_t size, std::uint32_t lowest);
    void makeRoom();

    std::size_t most;
    std::vector<Slot> pairs;
    std::size_t used = 0;
    std::uint32_t dropped = 0;
};

} // namespace Publisher
