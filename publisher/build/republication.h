#pragma once

#include "publisher/build/traffic.h"
#include "publisher/common/exitcode.h"
#include "publisher/common/finding.h"
#include "publisher/common/serverlayout.h"

#include <QList>
#include <QString>
#include <QStringList>

namespace Publisher {

class Clock;

/// A manifest that has been published before, to be published once more: by this
/// kind, to roll back, or by the other one, to be promoted.
struct RepublicationRequest {
    /// What the web server serves.
    QString server;
    Kind kind = Kind::Live;
    /// Where the files lie now; the kind itself, or the other one.
    Kind fromKind = Kind::Live;
    QString manifestPath;
    /// For the history.
    QString command;
    QString message = {};
    /// As many files as may be dropped from what is live, where that is many.
    qsizetype confirmedDrops = 0;
    bool dryRun = false;
    /// Reads every file, whatever size and date promise.
    bool rehash = false;
    /// Waits for the disk before the manifest goes live.
    bool flush = true;
    int threads = 1;
};

struct RepublicationReport {
    QList<Finding> refusals;
    /// What failed, as a sentence.
    QString error;
    /// Against the manifest that was live before; paths in the client folder.
    QStringList added;
    QStringList changed;
    QStringList removed;
    qint64 unchanged = 0;
    /// Of the files that have been found.
    Traffic traffic;
    bool manifestChanged = false;
};

/// Publishes a manifest byte by byte, with a newer date. Every file that it names
/// must be on the server with its hash; none is copied, and those of another kind
/// become links where the file system can do that.
ExitCode republish(const RepublicationRequest& request, Clock& clock, RepublicationReport& report);

} // namespace Publisher
