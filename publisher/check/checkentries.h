#pragma once

#include "publisher/check/checkedmanifest.h"

/// What the manifest's numbering, names, paths and hashes do, entry by entry.
namespace Publisher::CheckEntries {

QList<Finding> findings(const CheckedManifest& manifest, const CheckedPlayers& players);

} // namespace Publisher::CheckEntries
