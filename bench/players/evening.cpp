#include "bench/players/evening.h"

#include <algorithm>
#include <limits>
#include <poll.h>
#include <unistd.h>

namespace Players {

namespace {

constexpr qint64 secondsOfAClockAhead = 3600;
constexpr int hundred = 100;

bool isInputClosed()
{
    pollfd input{ .fd = STDIN_FILENO, .events = POLLIN, .revents = 0 };
    if (poll(&input, 1, 0) <= 0)
        return false;
    char byte = 0;
    return read(STDIN_FILENO, &byte, 1) <= 0;
}

} // namespace

Evening::Evening(World& livedIn, const Habits& theirHabits)
    : world(livedIn)
    , habits(theirHabits)
    , startsLeft(static_cast<std::size_t>(habits.players), 0)
{
    for (int n = 0; n < habits.players; ++n) {
        const int place = n * hundred / habits.players;
        const int fromTheMiddle = (place + hundred / 2) % hundred;
        players.push_back(std::make_unique<Player>(
            world, n,
            Player::Ways{ .isTester = place < habits.testers,
                          .secondsAhead
                          = hundred - 1 - place < habits.clocksAhead ? secondsOfAClockAhead : 0,
                          .isStuck = fromTheMiddle < habits.stuck,
                          .breaksOff = hundred - 1 - fromTheMiddle < habits.breakingOff }));
        if (habits.settled)
            players.back()->settle();
    }
}

const std::vector<std::unique_ptr<Player>>& Evening::everybody() const
{
    return players;
}

void Evening::play(int starts)
{
    for (std::size_t n = 0; n < players.size(); ++n) {
        // Whoever has got nowhere tries again.
        const bool takesPart = world.chance(hundred) < habits.online || players[n]->isStuck();
        startsLeft[n] = takesPart ? starts : 0;
        if (startsLeft[n] > 0)
            appoint(n, world.chance(habits.spread));
    }
    while (playing > 0 || !appointments.empty())
        playOn();
}

void Evening::playUntilToldToEnd()
{
    for (std::size_t n = 0; n < players.size(); ++n) {
        startsLeft[n] = std::numeric_limits<int>::max();
        appoint(n, world.chance(habits.spread));
    }
    while (!isInputClosed())
        playOn();
    appointments = {};
    std::fill(startsLeft.begin(), startsLeft.end(), 0);
    while (playing > 0)
        playOn();
}

void Evening::playOn()
{
    using std::chrono::milliseconds;
    constexpr milliseconds longest{ 200 };
    startThoseDue();
    milliseconds limit = longest;
    if (!appointments.empty() && !isFull())
        limit = std::clamp(
            std::chrono::ceil<milliseconds>(appointments.top().time - Clock::now()),
            milliseconds(0), longest);
    world.transport.turn(limit);
}

bool Evening::isFull() const
{
    return habits.atOnce > 0 && playing >= habits.atOnce;
}

void Evening::startThoseDue()
{
    while (!isFull() && !appointments.empty() && appointments.top().time <= Clock::now()) {
        const std::size_t player = appointments.top().player;
        appointments.pop();
        begin(player);
    }
}

void Evening::appoint(std::size_t player, double seconds)
{
    const std::chrono::duration<double> wait(seconds);
    appointments.push({ Clock::now() + std::chrono::duration_cast<Clock::duration>(wait), player });
}

void Evening::begin(std::size_t player)
{
    --startsLeft[player];
    ++playing;
    players[player]->start([this, player] {
        --playing;
        if (startsLeft[player] > 0)
            appoint(player, world.chance(habits.pause));
    });
}

} // namespace Players
