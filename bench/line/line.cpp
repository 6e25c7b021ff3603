#include "bench/line/line.h"

#include <algorithm>

namespace PlayersLine {

Line::Line(const LineSettings& wanted)
    : settings(wanted)
{
}

Clock::time_point Line::arrivalAtPlayer(Clock::time_point now, std::size_t bytes)
{
    const std::chrono::duration<double> onTheLine(static_cast<double>(bytes) / settings.rate);
    freeFrom = std::max(now, freeFrom) + std::chrono::duration_cast<Clock::duration>(onTheLine);
    const bool isLate = std::bernoulli_distribution(settings.lateShare)(chance);
    return freeFrom + settings.roundTrip / 2 + (isLate ? settings.roundTrip : Clock::duration{});
}

Clock::time_point Line::arrivalAtServer(Clock::time_point now) const
{
    return now + settings.roundTrip / 2;
}

} // namespace PlayersLine
