#pragma once

#include "publisher/common/finding.h"
#include "publisher/common/publication.h"
#include "update/patchmanifest.h"

#include <QChar>
#include <QList>
#include <QStringList>

namespace Publisher {

struct SourceTree;

/// What is to go from every player's client; paths relative to the client
/// folder, with "/" or "\".
struct RemovalRequest {
    QStringList files;
    QStringList folders;
    /// As many realm entries as a player may have.
    int realms = 0;
};

/// The entries that carry out a request, for the head of the manifest. The
/// launcher can remove a single name per manifest: see placeholder.h.
struct RemovalPlan {
    QList<PatchManifestEntry> entries;
    /// The same in terms of the client folder.
    QList<PublishedRemoval> removals;
    QList<Finding> refusals;

    static RemovalPlan
    make(const RemovalRequest& request, const SourceTree& source, QChar separator);
};

} // namespace Publisher
