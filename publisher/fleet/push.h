#pragma once

#include "publisher/check/checkedmanifest.h"
#include "publisher/common/exitcode.h"
#include "publisher/common/finding.h"
#include "publisher/fleet/fleetfile.h"

#include <QList>
#include <QString>
#include <QStringList>
#include <QUrl>

#include <optional>

namespace Publisher {

class Clock;

struct PushRequest {
    QString tree;
    /// Without those that are left out.
    QList<FleetServer> servers;
    CheckedPlayers players;
    /// Identifiers of findings that do not count.
    QStringList accepted;
    bool dryRun = false;
    /// Removes what no manifest has named for so many days.
    std::optional<int> pruneAfterDays;
    /// For how many seconds no server hands out a launcher that is being replaced.
    int pause = 60;
    int secondsOfSilence = 60;
    int daysOfCertificate = 14;
    /// The text in the launcher's window; empty when it is not asked for.
    QUrl infoUrl;
};

struct PushReport {
    struct Row {
        QString server;
        qint64 files = 0;
        qint64 bytes = 0;
        qint64 milliseconds = 0;
        QString verdict;
        /// What it would get, or has got, that stays under its name.
        QStringList exchanged;
        qint64 pruned = 0;
    };
    QList<Row> rows;
    /// Of `check`, then of `probe`; the subject of the latter begins with the server.
    QList<Finding> findings;
    /// As sentences, one for each server that has failed.
    QStringList errors;
    /// How far all servers have come.
    enum class Stage {
        /// Players get what they got before.
        Before,
        /// Some servers may have the new manifests.
        Switching,
        /// All have.
        Switched,
    };
    Stage stage = Stage::Before;
};

/// Takes what has been published into a local tree to all servers, as one transaction:
/// no manifest anywhere names a file that its server does not have, and all change at
/// once. Whatever it dies of, the same push goes on from there.
ExitCode push(const PushRequest& request, Clock& clock, PushReport& report);

} // namespace Publisher
