#pragma once

#include "publisher/common/exitcode.h"
#include "publisher/common/finding.h"

#include <QList>
#include <QString>

namespace Publisher {

class Clock;

struct LauncherRequest {
    /// The two programs, under whatever names.
    QString launcher;
    QString updater;
    /// What the web server serves.
    QString server;
    bool dryRun = false;
    /// Dates both anew even if they have not changed.
    bool renew = false;
    /// Waits for the disk before a file takes the place of the older one.
    bool flush = true;
};

struct LauncherReport {
    struct Item {
        /// As launchers ask for it.
        QString name;
        qint64 size = 0;
        /// "added", "changed", "renewed" or "unchanged".
        QString change;
    };

    QList<Finding> refusals;
    /// What failed, as a sentence.
    QString error;
    QList<Item> items;
};

/// Publishes the launcher's own files under the names that launchers ask for.
/// Each takes the place of the older one atomically, the updater first, since
/// launchers fetch it first and a new launcher may need it. A file that has not
/// changed keeps its date, or every player would fetch it again.
ExitCode releaseLauncher(const LauncherRequest& request, Clock& clock, LauncherReport& report);

} // namespace Publisher
