#include "bench/line/connection.h"

#include <algorithm>
#include <poll.h>
#include <unistd.h>

namespace PlayersLine {

namespace {

constexpr short readable = POLLIN | POLLHUP | POLLERR;

short awaited(const Flow& in, const Flow& out, Clock::time_point now)
{
    short events = 0;
    if (in.takes())
        events |= POLLIN;
    if (out.isDue(now))
        events |= POLLOUT;
    return events;
}

} // namespace

// The loopback has accepted the connection at once; over a line that takes a round trip,
// and only then does the player send.
Connection::Connection(int playersSocket, int serversSocket, Line& line)
    : player(playersSocket)
    , server(serversSocket)
    , established(Clock::now() + line.roundTrip())
    , up(player, server,
         [this, &line](Clock::time_point now, std::size_t) {
             return line.arrivalAtServer(std::max(now, established));
         })
    , down(server, player, [&line](Clock::time_point now, std::size_t bytes) {
        return line.arrivalAtPlayer(now, bytes);
    })
{
}

Connection::~Connection()
{
    close(player);
    close(server);
}

short Connection::awaitedAtPlayer(Clock::time_point now) const
{
    return awaited(up, down, now);
}

short Connection::awaitedAtServer(Clock::time_point now) const
{
    return awaited(down, up, now);
}

Clock::time_point Connection::nextArrival(Clock::time_point now) const
{
    Clock::time_point next = Clock::time_point::max();
    for (const Flow* flow : { &up, &down }) {
        // What is due already waits for its socket.
        if (!flow->isDue(now))
            next = std::min(next, flow->nextArrival());
    }
    return next;
}

void Connection::handle(short atPlayer, short atServer)
{
    const Clock::time_point now = Clock::now();
    bool isSound = true;
    if ((atPlayer & readable) != 0 && up.takes())
        isSound = up.take(now);
    if ((atServer & readable) != 0 && down.takes())
        isSound = down.take(now) && isSound;
    broken = !(up.deliver(now) && down.deliver(now) && isSound);
}

// A player who has closed gets nothing more: what the server still sends has no reader.
bool Connection::isOver() const
{
    return broken || up.isOver();
}

} // namespace PlayersLine
