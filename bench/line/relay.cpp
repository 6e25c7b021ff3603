#include "bench/line/relay.h"

#include <algorithm>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>
#include <unistd.h>

namespace PlayersLine {

namespace {

constexpr std::size_t inputIndex = 0;
constexpr std::size_t listenerIndex = 1;
constexpr std::size_t firstConnectionIndex = 2;

sockaddr_in loopback(std::uint16_t port)
{
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(port);
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    return address;
}

/// Small parcels go at once: delays are the line's.
void sendAtOnce(int socket)
{
    const int on = 1;
    setsockopt(socket, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
}

} // namespace

Relay::Relay(Ports wanted, const LineSettings& settings)
    : ports(wanted)
    , line(settings)
    , listener(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0))
{
}

Relay::~Relay()
{
    close(listener);
}

bool Relay::listen()
{
    const int on = 1;
    setsockopt(listener, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
    const sockaddr_in address = loopback(ports.player);
    return bind(listener, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0
        && ::listen(listener, SOMAXCONN) == 0;
}

std::vector<pollfd> Relay::awaited(Clock::time_point now) const
{
    std::vector<pollfd> all{ { STDIN_FILENO, POLLIN, 0 }, { listener, POLLIN, 0 } };
    for (const auto& connection : connections) {
        all.push_back({ connection->playersSocket(), connection->awaitedAtPlayer(now), 0 });
        all.push_back({ connection->serversSocket(), connection->awaitedAtServer(now), 0 });
    }
    return all;
}

Clock::time_point Relay::nextArrival(Clock::time_point now) const
{
    Clock::time_point next = Clock::time_point::max();
    for (const auto& connection : connections)
        next = std::min(next, connection->nextArrival(now));
    return next;
}

void Relay::accept()
{
    const int player = accept4(listener, nullptr, nullptr, SOCK_CLOEXEC);
    if (player < 0)
        return;
    const int server = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    const sockaddr_in address = loopback(ports.server);
    if (connect(server, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
        close(server);
        close(player);
        return;
    }
    sendAtOnce(server);
    sendAtOnce(player);
    if (total.connections++ == 0)
        total.began = Clock::now();
    connections.push_back(std::make_unique<Connection>(player, server, line));
}

void Relay::dropWhatIsOver()
{
    std::erase_if(connections, [this](const std::unique_ptr<Connection>& connection) {
        if (!connection->isOver())
            return false;
        count(*connection);
        return true;
    });
}

void Relay::count(const Connection& connection)
{
    total.bytes += connection.bytesToPlayer();
    total.ended = std::max(total.ended, connection.lastDelivery());
}

void Relay::runUntilInputEnds()
{
    for (;;) {
        const Clock::time_point now = Clock::now();
        std::vector<pollfd> events = awaited(now);
        const Clock::time_point next = nextArrival(now);
        const auto left = std::chrono::duration_cast<std::chrono::nanoseconds>(next - now).count();
        const timespec limit{ left / 1'000'000'000, left % 1'000'000'000 };
        const bool isEndless = next == Clock::time_point::max();
        if (ppoll(events.data(), events.size(), isEndless ? nullptr : &limit, nullptr) < 0)
            continue;
        if (events[inputIndex].revents != 0)
            break;
        for (std::size_t i = 0; i < connections.size(); ++i) {
            const std::size_t at = firstConnectionIndex + 2 * i;
            connections[i]->handle(events[at].revents, events[at + 1].revents);
        }
        dropWhatIsOver();
        if (events[listenerIndex].revents != 0)
            accept();
    }
    // The last ones of a player who has just gone.
    for (const auto& connection : connections)
        count(*connection);
}

} // namespace PlayersLine
