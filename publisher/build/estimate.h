#pragma once

#include "publisher/common/problem.h"
#include "publisher/common/serverlayout.h"

#include <QString>

#include <optional>

namespace Publisher {

/// Who is going to fetch a publication, from what.
struct EstimateRequest {
    /// What the web server serves.
    QString server;
    Kind kind = Kind::Live;
    /// Number of the publication that players have; without one, the one before the
    /// live one.
    std::optional<int> since = std::nullopt;
    qint64 players = 1;
    /// Mbit/s of each server's line.
    double line = 1;
    qint64 servers = 1;
    /// New TLS connections per second that a server takes on.
    qint64 connections = 1;
    /// Mbit/s of a player's own line.
    double playersLine = 1;
    /// From a player to the server and back, in milliseconds.
    qint64 roundTrip = 0;
};

/// What a player's start costs, with everything that goes over the line. Every file is
/// fetched by both update runs, each time over a connection of its own.
struct PlayersShare {
    /// Of the manifest, that the player lacks.
    qint64 files = 0;
    /// Theirs, once.
    qint64 fileBytes = 0;
    /// Of a start, each a new connection.
    qint64 requests = 0;
    /// From the server to the player, in all.
    qint64 bytes = 0;
};

struct Estimate {
    /// Number of the publication that players are taken to have; 0 for none.
    int since = 0;
    PlayersShare updating;
    /// Of a player who has nothing.
    PlayersShare anew;
};

/// Reads the live manifest, the history, and the sizes of the files.
[[nodiscard]] Problem estimate(const EstimateRequest& request, Estimate& result);

/// Until all players have been served: by the servers' lines, or by their processors,
/// whichever takes longer.
struct ServingTime {
    double lineSeconds = 0;
    double connectionSeconds = 0;

    static ServingTime of(const EstimateRequest& request, const PlayersShare& share);
    double seconds() const;
    /// How many servers do it in so many seconds.
    qint64 serversFor(double seconds, qint64 servers) const;
};

/// For which a player looks at the progress bar, in seconds, if the server has time for
/// him alone: round trips one after the other, and everything over his own line.
double waitingTime(const EstimateRequest& request, const PlayersShare& share);

} // namespace Publisher
