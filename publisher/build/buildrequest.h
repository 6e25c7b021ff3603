#pragma once

#include "publisher/build/removals.h"
#include "publisher/common/serverlayout.h"

#include <QChar>
#include <QString>

namespace Publisher {

struct BuildRequest {
    /// Laid out as the client folder.
    QString source;
    /// What the web server serves.
    QString server;
    Kind kind = Kind::Live;
    /// For the share of live players that the server gives it to: the live manifest
    /// stays as it is.
    bool next = false;
    /// Of the players' system.
    QChar separator = u'\\';
    RemovalRequest removals;
    /// As many files as may be dropped from what is live, where that is many.
    qsizetype confirmedDrops = 0;
    /// Dates the manifest anew even if it has not changed.
    bool renew = false;
    bool dryRun = false;
    bool prune = false;
    /// As many of the latest publications keep their files, the new one included.
    int keep = 3;
    /// For the history.
    QString message = {};
    /// Reads every file, whatever size and date promise.
    bool rehash = false;
    /// Waits for the disk before the manifest goes live.
    bool flush = true;
    /// With 1 everything happens in the caller's thread.
    int threads = 1;
};

} // namespace Publisher
