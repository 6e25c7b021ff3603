#pragma once

#include "bench/players/manifests.h"
#include "bench/players/transport.h"

#include <QByteArray>
#include <QFile>
#include <QList>
#include <QMap>

#include <optional>
#include <random>

namespace Players {

/// What all players together have met.
struct Tally {
    qint64 starts = 0;
    qint64 requests = 0;
    qint64 bytes = 0;
    /// Answers by their status; 0 for none.
    QMap<long, qint64> statuses;
    /// Bodies that broke off, and requests that came to nothing, by the reason.
    QMap<QByteArray, qint64> failures;
    /// Patch files that a manifest names and a server has not.
    qint64 missing = 0;
    /// Patch files whose content is not what their address says.
    qint64 wrong = 0;
    /// A launcher that a player already had was sent once more.
    qint64 launchersTwice = 0;
};

/// What the players share: servers, chance, and the book in which everything goes.
class World {
public:
    /// `servers` are "HOST:PORT", one of which each request goes to by chance;
    /// empty for those of the addresses.
    World(const QByteArray& authority, QList<QByteArray> servers, unsigned seed);

    /// Writes each request down: "PLAYER RUN STATUS PATH END SINCE BYTES WHOLE MD5", with
    /// times in seconds since 1970. False when it cannot.
    bool keepLog(const QString& path);

    /// Where this player is: seconds since 1970, moved by `clockShift` and by so many
    /// seconds for each player before this one as lie between two.
    qint64 now(int player) const;

    /// By how many seconds this world is away from that of the machine.
    qint64 clockShift = 0;
    /// How many seconds later each player lives than the one before.
    qint64 secondsApart = 0;
    /// Whether each player asks from a loopback address of his own.
    bool hasOwnAddresses = false;

    /// Of this player's run; 0 is what comes before the two.
    void ask(int player, int run, Transport::Question question, Transport::Handler handler);

    /// Seconds from 0 to the limit, all as likely.
    double chance(double limit);

    Transport transport;
    Manifests manifests;
    Tally tally;

private:
    void
    note(int player, int run, const Transport::Question& question, const Transport::Answer& answer);

    QList<QByteArray> servers;
    std::mt19937 random;
    QFile log;
};

} // namespace Players
