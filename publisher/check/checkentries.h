#pragma once

#include "publisher/check/checkedmanifest.h"

namespace Publisher {

/// What the manifest's numbering, names, paths and hashes do, entry by entry.
namespace CheckEntries {

QList<Finding> findings(const CheckedManifest& manifest, const CheckedPlayers& players);

} // namespace CheckEntries

} // namespace Publisher
