#pragma once

#include "update/patchmanifest.h"

#include <QLatin1StringView>

namespace Publisher {

// How `build` writes removals so that they do the same for every player.
//
// While the launcher installs into the client of realm r, a removal takes its
// folder from its own entry but the name from entry r. While it compares its
// cache, removal n reaches the client of realm n, under its own name, or a path
// from the root when there is no such realm. So:
//
// - Entries 1 to N (as many realms as a player may have) are placeholders: they
//   bear the name that is to go and do nothing else. Each is a file entry with
//   an empty hash in a folder that exists nowhere: such a file counts as up to
//   date, is never asked for, and has neither source nor target when it comes
//   to installing.
// - The removals follow, each with the folder it is about. Their own name is
//   one that exists nowhere, so that comparing the cache deletes nothing in
//   realm n's client, which may be of the other kind, nor below the root.

/// What `build` takes care of `check` can rehearse.
inline constexpr int mostRealms = 100;

/// Stands in reserved places of a manifest; nobody has a file or folder of it.
inline constexpr QLatin1StringView vacantName("halden-vacant");

/// An entry that only lends its name to the removals. The launcher never asks
/// for it and never writes or deletes anything for it.
inline bool isPlaceholder(const PatchManifestEntry& entry)
{
    return entry.action() == PatchAction::FileDownload && entry.pathOffset == vacantName
        && entry.hash.isEmpty();
}

/// A removal whose own name exists nowhere: comparing the cache deletes nothing
/// for it, whatever realm bears its number.
inline bool removesOnlyByPlaceholders(const PatchManifestEntry& entry)
{
    return !entry.save && entry.name == vacantName;
}

} // namespace Publisher
