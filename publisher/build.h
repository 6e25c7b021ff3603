#pragma once

#include "publisher/exitcode.h"
#include "publisher/refusal.h"
#include "publisher/removals.h"

#include <QChar>
#include <QList>
#include <QString>

class Clock;

struct BuildRequest {
    /// Laid out as the client folder.
    QString source;
    /// What the web server serves.
    QString server;
    /// "live" or "test".
    QString kind;
    /// Of the players' system.
    QChar separator = u'\\';
    RemovalRequest removals;
    bool dryRun = false;
    bool prune = false;
    /// Reads every file, whatever size and date promise.
    bool rehash = false;
    /// Waits for the disk before the manifest goes live.
    bool flush = true;
    /// With 1 everything happens in the caller's thread.
    int threads = 1;
};

struct BuildReport {
    struct Item {
        QString path;
        qint64 size = 0;
    };

    QList<Refusal> refusals;
    /// What failed, as a sentence.
    QString error;

    /// Against the manifest that was live before; paths in the client folder.
    QList<Item> added;
    QList<Item> changed;
    /// No longer listed. Players keep what they have.
    QList<Item> removed;
    /// Listed before and now, but wrong on the server.
    QList<Item> repaired;
    qint64 unchanged = 0;
    /// What a player fetches who has everything of the manifest before.
    qint64 bytesToUpdate = 0;
    /// What a new player fetches.
    qint64 bytesInAll = 0;
    bool manifestChanged = false;
    /// Paths below the server folder.
    QList<Item> pruned;
};

/// Publishes a source folder. Files go into folders named after their content,
/// so nothing that is published is ever overwritten: until the new manifest
/// takes the place of the old one, in one blow, the old publication is whole.
/// A dry run only tells the difference and leaves the server folder alone.
ExitCode build(const BuildRequest& request, Clock& clock, BuildReport& report);
