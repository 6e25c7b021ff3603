#pragma once

#include <chrono>
#include <cstddef>
#include <random>

namespace PlayersLine {

using Clock = std::chrono::steady_clock;

struct LineSettings {
    /// From the player to the server and back.
    Clock::duration roundTrip{};
    /// Towards the player, in bytes per second.
    double rate = 0;
    /// Of what goes towards the player, the share that has to be sent a second time.
    double lateShare = 0;
};

/// The line between a player and the server, which all of the player's connections
/// share. Towards the server it has a length, but no width: requests are small.
class Line {
public:
    explicit Line(const LineSettings& settings);

    Clock::duration roundTrip() const
    {
        return settings.roundTrip;
    }
    /// When bytes that the server sends now reach the player. Whatever has been sent
    /// before goes first; what is late arrives a round trip after its turn.
    Clock::time_point arrivalAtPlayer(Clock::time_point now, std::size_t bytes);
    Clock::time_point arrivalAtServer(Clock::time_point now) const;

private:
    LineSettings settings;
    Clock::time_point freeFrom;
    // NOLINTNEXTLINE(cert-msc51-cpp): the same bytes are late in every run
    std::minstd_rand chance{ 1 };
};

} // namespace PlayersLine
