#include "publisher/report/ratetally.h"

#include <algorithm>
#include <cmath>

namespace Publisher {

namespace {

constexpr double step = 1.05;

} // namespace

void RateTally::add(double rate)
{
    const double place = std::log(std::max(rate, 1.0)) / std::log(step);
    ++counts[std::min(static_cast<std::size_t>(place), steps - 1)];
    ++all;
}

std::int64_t RateTally::total() const
{
    return all;
}

double RateTally::slowest(double share) const
{
    const auto wanted = static_cast<std::int64_t>(std::ceil(static_cast<double>(all) * share));
    std::int64_t sum = 0;
    for (std::size_t i = 0; i < steps && wanted > 0; ++i) {
        sum += counts[i];
        if (sum >= wanted)
            return std::pow(step, static_cast<double>(i + 1));
    }
    return 0;
}

} // namespace Publisher
