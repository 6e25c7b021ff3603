#pragma once

#include "publisher/finding.h"
#include "publisher/rehearsal.h"

#include <QList>
#include <QString>

/// A manifest under inspection.
struct CheckedManifest {
    /// What the findings call it, "patch.ini" as a rule.
    QString subject;
    QString path;
    /// "live" or "test".
    QString kind;
    ManifestContent content;

    Finding finding(FindingId id, qint64 entry, const QString& text) const;
};

/// For whom the manifests are inspected.
struct CheckedPlayers {
    /// Players may have this many realm entries at most.
    int realms = 16;
    QChar separator = u'\\';
};

/// One rehearsed run of a player with the largest number of realms. What a manifest
/// does alike in the clients of several realm entries is rehearsed for the first of
/// them only.
struct RehearsedRun {
    QList<Effect> effects;
    /// The realm entry whose effects each one shares; the first one's comes first.
    QList<int> likeRealm;

    /// Every realm entry that has the effects of this one, ascending; the cache (0)
    /// and entries beyond the player's have none but their own.
    QList<int> realmsLike(int realm) const;
};

/// What the manifest's numbering, names, paths and hashes do, entry by entry.
namespace CheckEntries {

QList<Finding> findings(const CheckedManifest& manifest, const CheckedPlayers& players);

} // namespace CheckEntries

/// What a manifest's removals and folders do when an update run is rehearsed.
namespace CheckEffects {

/// One rehearsed run of a player who has nothing in the cache, the largest
/// number of realms, and folders that hold nothing but "Data".
RehearsedRun firstRun(const CheckedManifest& manifest, const CheckedPlayers& players);

QList<Finding>
findings(const CheckedManifest& manifest, const CheckedPlayers& players, const RehearsedRun& run);

/// The path without the folder of the rehearsed client or cache before it.
QString shownPath(const QString& path, QChar separator);

} // namespace CheckEffects

/// The manifest against the files that are published with it.
namespace CheckPublished {

/// `tree` is the folder that holds "wow-client-patch".
QList<Finding> findings(const CheckedManifest& manifest, const QString& tree);

/// Path of an entry's file below the server's root, decoded; empty when the
/// address would not arrive there.
QString serverPath(const QString& kind, const PatchManifestEntry& entry);

} // namespace CheckPublished
