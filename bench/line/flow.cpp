#include "bench/line/flow.h"

#include <algorithm>
#include <cerrno>
#include <sys/socket.h>
#include <utility>

namespace PlayersLine {

namespace {

// Enough for 250 Mbit/s at 80 ms, so that the line is the limit and not the window.
constexpr std::size_t window = 4 << 20;
// Small against what a slow line carries in a round trip.
constexpr std::size_t parcelSize = 4096;

bool isPassing(int error)
{
    return error == EAGAIN || error == EINTR;
}

} // namespace

Flow::Flow(int source, int target, Arrival whenItArrives)
    : from(source)
    , to(target)
    , arrivalOf(std::move(whenItArrives))
{
}

bool Flow::takes() const
{
    return !ended && bytesUnderWay < window;
}

bool Flow::isDue(Clock::time_point now) const
{
    return nextArrival() <= now;
}

Clock::time_point Flow::nextArrival() const
{
    return underWay.empty() ? Clock::time_point::max() : underWay.front().arrival;
}

bool Flow::take(Clock::time_point now)
{
    std::vector<char> bytes(parcelSize);
    const ssize_t count = recv(from, bytes.data(), bytes.size(), MSG_DONTWAIT);
    if (count < 0)
        return isPassing(errno);
    bytes.resize(static_cast<std::size_t>(count));
    ended = bytes.empty();
    send(now, std::move(bytes));
    return true;
}

void Flow::send(Clock::time_point now, std::vector<char> bytes)
{
    Clock::time_point arrival = arrivalOf(now, bytes.size());
    // A stream keeps its order: what comes after something late waits for it.
    if (!underWay.empty())
        arrival = std::max(arrival, underWay.back().arrival);
    bytesUnderWay += bytes.size();
    underWay.push_back({ arrival, std::move(bytes) });
}

bool Flow::deliver(Clock::time_point now)
{
    while (isDue(now)) {
        std::vector<char>& bytes = underWay.front().bytes;
        if (bytes.empty()) {
            over = true;
            underWay.pop_front();
            return shutdown(to, SHUT_WR) == 0 || errno == ENOTCONN;
        }
        const ssize_t count = ::send(to, bytes.data(), bytes.size(), MSG_NOSIGNAL | MSG_DONTWAIT);
        if (count < 0)
            return isPassing(errno);
        delivered += static_cast<std::uint64_t>(count);
        deliveredAt = now;
        bytesUnderWay -= static_cast<std::size_t>(count);
        bytes.erase(bytes.begin(), bytes.begin() + count);
        if (bytes.empty())
            underWay.pop_front();
    }
    return true;
}

} // namespace PlayersLine
