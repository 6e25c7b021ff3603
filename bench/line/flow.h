#pragma once

#include "bench/line/line.h"

#include <cstdint>
#include <deque>
#include <functional>
#include <vector>

namespace PlayersLine {

/// One direction of a connection: takes from one socket what the other gets when it has
/// come down the line. The sockets belong to the caller.
class Flow {
public:
    /// When so many bytes that are sent now arrive.
    using Arrival = std::function<Clock::time_point(Clock::time_point now, std::size_t bytes)>;

    Flow(int source, int target, Arrival whenItArrives);

    /// Not while more is under way than the window of a sender allows.
    bool takes() const;
    /// Has something that is due, as far as the target lets it through.
    bool isDue(Clock::time_point now) const;
    /// Of what comes next; the end of time if nothing does.
    Clock::time_point nextArrival() const;
    /// The end of the source has reached the target.
    bool isOver() const
    {
        return over;
    }
    std::uint64_t bytes() const
    {
        return delivered;
    }
    Clock::time_point lastDelivery() const
    {
        return deliveredAt;
    }

    /// False if the source is broken.
    bool take(Clock::time_point now);
    /// False if the target is broken.
    bool deliver(Clock::time_point now);

private:
    struct Parcel {
        Clock::time_point arrival;
        // Without any it is the end.
        std::vector<char> bytes;
    };

    int from;
    int to;
    Arrival arrivalOf;
    std::deque<Parcel> underWay;
    std::size_t bytesUnderWay = 0;
    std::uint64_t delivered = 0;
    Clock::time_point deliveredAt;
    bool ended = false;
    bool over = false;

    void send(Clock::time_point now, std::vector<char> bytes);
};

} // namespace PlayersLine
