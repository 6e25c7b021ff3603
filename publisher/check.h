#pragma once

#include "publisher/checkedmanifest.h"

/// Inspects manifests before they go live.
namespace Check {

/// Reads a manifest for these players.
CheckedManifest read(
    const QString& path, const QString& subject, const QString& kind,
    const CheckedPlayers& players);

/// All findings about one manifest, in the order of its entries. `run` is its
/// rehearsal, `tree` the published files or empty.
QList<Finding> findings(
    const CheckedManifest& manifest, const CheckedPlayers& players, const RehearsedRun& run,
    const QString& tree);

} // namespace Check
