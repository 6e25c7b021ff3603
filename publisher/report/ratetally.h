#pragma once

#include <array>
#include <cstdint>

namespace Publisher {

/// How fast downloads were, in steps of 5 %.
class RateTally {
public:
    /// Bytes a second.
    void add(double rate);
    std::int64_t total() const;
    /// So much of the downloads (0 to 1) had this rate at most; 0 without any.
    double slowest(double share) const;

private:
    static constexpr std::size_t steps = 600;

    std::array<std::int64_t, steps> counts{};
    std::int64_t all = 0;
};

} // namespace Publisher
