#pragma once

#include "publisher/build/buildrequest.h"
#include "publisher/build/removals.h"
#include "publisher/build/traffic.h"
#include "publisher/common/exitcode.h"
#include "publisher/common/finding.h"
#include "publisher/common/publication.h"

#include <QList>
#include <QString>
#include <QStringList>

namespace Publisher {

class Clock;

struct BuildReport {
    struct Item {
        QString path;
        qint64 size = 0;
    };

    QList<Finding> refusals;
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
    Traffic traffic;
    bool manifestChanged = false;
    /// Paths below the server folder.
    QList<Item> pruned;
    /// Numbers of the publications that are out of reach with what is pruned.
    QList<qint64> unreachable;
};

/// Publishes a source folder. Files go into folders named after their content,
/// so nothing that is published is ever overwritten: until the new manifest
/// takes the place of the old one, atomically, the old publication is whole.
/// A dry run only tells the difference and leaves the server folder alone.
ExitCode build(const BuildRequest& request, Clock& clock, BuildReport& report);

} // namespace Publisher
