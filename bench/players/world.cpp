#include "bench/players/world.h"

#include <utility>

namespace Players {

World::World(const QByteArray& authority, QList<QByteArray> askedServers, unsigned seed)
    : transport(authority)
    , servers(std::move(askedServers))
    , random(seed)
{
}

bool World::keepLog(const QString& path)
{
    log.setFileName(path);
    return log.open(QIODevice::WriteOnly);
}

double World::chance(double limit)
{
    return std::uniform_real_distribution<double>(0, limit)(random);
}

void World::ask(
    int player, int run, const QUrl& url, qint64 ifModifiedSince, bool wantsBody,
    Transport::Handler handler)
{
    QByteArray server;
    if (!servers.isEmpty())
        server
            = servers.at(std::uniform_int_distribution<qsizetype>(0, servers.size() - 1)(random));
    transport.ask(
        { url, server, ifModifiedSince, wantsBody },
        [this, player, run, url, next = std::move(handler)](const Transport::Answer& answer) {
            note(player, run, url, answer);
            next(answer);
        },
        player);
}

void World::note(int player, int run, const QUrl& url, const Transport::Answer& answer)
{
    ++tally.requests;
    tally.bytes += answer.length;
    ++tally.statuses[answer.status];
    if (!answer.error.isEmpty())
        ++tally.failures[answer.error];
    if (log.isOpen())
        log.write(
            QByteArray::number(player) + ' ' + QByteArray::number(run) + ' '
            + QByteArray::number(static_cast<qint64>(answer.status)) + ' '
            + url.path(QUrl::FullyEncoded).toLatin1() + '\n');
}

} // namespace Players
