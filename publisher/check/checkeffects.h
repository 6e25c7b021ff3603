#pragma once

#include "publisher/check/checkedmanifest.h"
#include "publisher/check/rehearsal.h"

namespace Publisher {

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

} // namespace Publisher
