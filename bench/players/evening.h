#pragma once

#include "bench/players/player.h"
#include "bench/players/world.h"

#include <queue>

#include <chrono>
#include <memory>
#include <vector>

namespace Players {

/// Many players who start their launchers at random moments.
class Evening {
public:
    struct Habits {
        int players = 1;
        /// The first starts are spread over so many seconds.
        double spread = 0;
        /// So many seconds at most pass between the end of a start and the next one.
        double pause = 0;
        /// So many play at a time at most, and who is due waits; 0 for all.
        std::size_t atOnce = 0;
        /// How many of a hundred have the developer switch set, and clocks that are
        /// an hour ahead.
        int testers = 0;
        int clocksAhead = 0;
        /// How many, in the middle of the rest, have an updater that does nothing, and
        /// hang up in the middle of large files.
        int stuck = 0;
        int breakingOff = 0;
        /// How many take part in a start.
        int online = 100;
        /// They have a launcher of today; else they have none and begin with it.
        bool settled = false;
    };

    Evening(World& world, const Habits& habits);

    /// Lets everybody start so many times.
    void play(int starts);
    /// Lets everybody start again and again until standard input is closed, and the
    /// starts that are under way come to their end.
    void playUntilToldToEnd();

    const std::vector<std::unique_ptr<Player>>& everybody() const;

private:
    using Clock = std::chrono::steady_clock;

    struct Appointment {
        Clock::time_point time;
        std::size_t player = 0;

        bool operator<(const Appointment& other) const
        {
            return time > other.time;
        }
    };

    void appoint(std::size_t player, double seconds);
    bool isFull() const;
    void startThoseDue();
    void begin(std::size_t player);
    void playOn();

    World& world;
    Habits habits;
    std::vector<std::unique_ptr<Player>> players;
    std::vector<int> startsLeft;
    std::priority_queue<Appointment> appointments;
    std::size_t playing = 0;
};

} // namespace Players
