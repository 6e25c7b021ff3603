#pragma once

#include "publisher/check/checkedmanifest.h"
#include "publisher/check/checkeffects.h"

namespace Publisher {

class HashCache;

/// What has come out of looking at one manifest.
struct Inspection {
    CheckedManifest manifest;
    RehearsedRun run;
    /// In the order of the entries.
    QList<Finding> findings;
};

/// Inspects manifests before they go live.
namespace Check {

/// Reads a manifest, rehearses an update run of these players with it, and tells
/// what would go wrong. `subject` is what the findings call it; `tree` holds the
/// published files, or is empty. Of these, files whose hash is `known` are not read.
Inspection inspect(
    const QString& path, const QString& subject, Kind kind, const CheckedPlayers& players,
    const QString& tree, const HashCache* known = nullptr);

} // namespace Check

} // namespace Publisher
