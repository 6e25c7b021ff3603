#include "bench/players/world.h"

#include <QDateTime>

#include <iterator>
#include <utility>

namespace Players {

namespace {

QByteArray addressOf(int player)
{
    constexpr int most = 250;
    return "127.1." + QByteArray::number(player / most) + '.'
        + QByteArray::number(player % most + 1);
}

} // namespace

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

qint64 World::now(int player) const
{
    return QDateTime::currentSecsSinceEpoch() + clockShift + player * secondsApart;
}

void World::ask(int player, int run, Transport::Question question, Transport::Handler handler)
{
    if (!servers.isEmpty())
        question.server
            = servers.at(std::uniform_int_distribution<qsizetype>(0, servers.size() - 1)(random));
    if (hasOwnAddresses)
        question.from = addressOf(player);
    transport.ask(
        question,
        [this, player, run, question, next = std::move(handler)](const Transport::Answer& answer) {
            note(player, run, question, answer);
            next(answer);
        },
        player);
}

void World::note(
    int player, int run, const Transport::Question& question, const Transport::Answer& answer)
{
    ++tally.requests;
    tally.bytes += answer.length;
    ++tally.statuses[answer.status];
    if (!answer.error.isEmpty())
        ++tally.failures[answer.error];
    if (!log.isOpen())
        return;
    const QByteArrayList words{ QByteArray::number(player),
                                QByteArray::number(run),
                                QByteArray::number(static_cast<qint64>(answer.status)),
                                question.url.path(QUrl::FullyEncoded).toLatin1(),
                                QByteArray::number(now(player)),
                                QByteArray::number(question.ifModifiedSince),
                                QByteArray::number(answer.length),
                                answer.isWhole ? "1" : "0",
                                answer.md5 };
    log.write(words.join(' ') + '\n');
}

} // namespace Players
