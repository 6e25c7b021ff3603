#pragma once

#include "bench/line/flow.h"
#include "bench/line/line.h"

namespace PlayersLine {

/// Of a player with the server, through the line; owns both sockets.
class Connection {
public:
    Connection(int playersSocket, int serversSocket, Line& line);
    ~Connection();
    Connection(const Connection&) = delete;
    Connection& operator=(const Connection&) = delete;

    /// What to wait for at each socket, as poll() has it.
    short awaitedAtPlayer(Clock::time_point now) const;
    short awaitedAtServer(Clock::time_point now) const;
    /// When there is something to deliver without any event at a socket.
    Clock::time_point nextArrival(Clock::time_point now) const;

    /// After poll(), with what it has reported.
    void handle(short atPlayer, short atServer);

    bool isOver() const;
    std::uint64_t bytesToPlayer() const
    {
        return down.bytes();
    }
    Clock::time_point lastDelivery() const
    {
        return down.lastDelivery();
    }
    int playersSocket() const
    {
        return player;
    }
    int serversSocket() const
    {
        return server;
    }

private:
    int player;
    int server;
    Clock::time_point established;
    Flow up;
    Flow down;
    bool broken = false;
};

} // namespace PlayersLine
