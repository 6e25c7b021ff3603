#pragma once

#include "bench/line/connection.h"
#include "bench/line/line.h"

#include <cstdint>
#include <memory>
#include <poll.h>
#include <vector>

namespace PlayersLine {

/// On the loopback.
struct Ports {
    std::uint16_t player = 0;
    std::uint16_t server = 0;
};

/// What has gone over the line, from the first connection to the last byte.
struct Tally {
    int connections = 0;
    /// To the player, with everything that belongs to TLS.
    std::uint64_t bytes = 0;
    Clock::time_point began;
    Clock::time_point ended;
};

/// Takes players' connections at one port and gives them to a server at another, each
/// with what the line does to it.
class Relay {
public:
    Relay(Ports wanted, const LineSettings& settings);
    ~Relay();
    Relay(const Relay&) = delete;
    Relay& operator=(const Relay&) = delete;

    /// False where the port is taken.
    bool listen();
    void runUntilInputEnds();
    const Tally& tally() const
    {
        return total;
    }

private:
    Ports ports;
    Line line;
    int listener;
    std::vector<std::unique_ptr<Connection>> connections;
    Tally total;

    std::vector<pollfd> awaited(Clock::time_point now) const;
    Clock::time_point nextArrival(Clock::time_point now) const;
    void accept();
    void dropWhatIsOver();
    void count(const Connection& connection);
};

} // namespace PlayersLine
