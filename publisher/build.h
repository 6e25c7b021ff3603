#pragma once

#include "publisher/exitcode.h"
#include "publisher/publication.h"
#include "publisher/refusal.h"
#include "publisher/removals.h"

#include <QChar>
#include <QList>
#include <QString>
#include <QStringList>

class Clock;

struct BuildRequest {
    /// Publications whose paths players are taken to have in their caches still.
    static constexpr qsizetype rememberedByPlayers = 10;

    /// Laid out as the client folder.
    QString source;
    /// What the web server serves.
    QString server;
    /// "live" or "test".
    QString kind;
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

struct BuildReport {
    struct Item {
        QString path;
        qint64 size = 0;
    };

    QList<Refusal> refusals;
    /// Whether the difference below has been told in spite of refusals.
    bool compared = false;
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
    /// What goes from players' clients, and what the manifest before removes and
    /// this one does not.
    QList<PublishedRemoval> removals;
    QList<PublishedRemoval> droppedRemovals;
    /// Files of the source that are not published, going by their names.
    QStringList passedOver;
    /// What else the admin should know, as sentences.
    QStringList notes;
    /// Traffic of a player's start who has everything of the manifest before. Both
    /// update runs of a start fetch every file.
    qint64 bytesToUpdate = 0;
    /// Traffic of a new player's start.
    qint64 bytesInAll = 0;
    bool manifestChanged = false;
    /// Paths below the server folder.
    QList<Item> pruned;
    /// Numbers of the publications that are out of reach with what is pruned.
    QList<qint64> unreachable;
};

/// Publishes a source folder. Files go into folders named after their content,
/// so nothing that is published is ever overwritten: until the new manifest
/// takes the place of the old one, in one blow, the old publication is whole.
/// A dry run only tells the difference and leaves the server folder alone.
ExitCode build(const BuildRequest& request, Clock& clock, BuildReport& report);
