#pragma once

#include <array>
#include <cstdint>

namespace Publisher {

/// Who fetched one content of one file, and how much of it arrived. How long it is may
/// come out later than that somebody got less.
class FileTally {
public:
    /// Some servers count headers, whose length varies.
    static constexpr std::int64_t slack = 1024;

    /// A player's number, and how many downloads of his have turned out to be broken off.
    template <typename Broken>
    void add(std::uint32_t player, std::int64_t bytes, const Broken& isBroken)
    {
        ++downloads;
        if (bytes + slack < largest) {
            isBroken(player);
            return;
        }
        if (bytes > largest + slack) {
            for (std::uint32_t i = 0; i < whole && i < takers.size(); ++i)
                isBroken(takers[i]);
            whole = 0;
        }
        if (whole < takers.size())
            takers[whole] = player;
        ++whole;
        largest = bytes > largest ? bytes : largest;
    }

    /// When it is known from elsewhere.
    void setSize(std::int64_t bytes)
    {
        largest = bytes;
    }

    /// As far as it is known.
    std::int64_t size() const
    {
        return largest;
    }

    bool isWhole(std::int64_t bytes) const
    {
        return bytes + slack >= largest;
    }

    std::int64_t brokenOff() const
    {
        return std::int64_t{ downloads } - whole;
    }

    std::int64_t requests() const
    {
        return downloads;
    }

private:
    std::int64_t largest = 0;
    std::uint32_t downloads = 0;
    std::uint32_t whole = 0;
    /// The first of those who got all that is known of.
    std::array<std::uint32_t, 8> takers{};
};

} // namespace Publisher
