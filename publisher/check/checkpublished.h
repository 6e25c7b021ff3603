#pragma once

#include "publisher/check/checkedmanifest.h"

namespace Publisher {

/// The manifest against the files that are published with it.
namespace CheckPublished {

/// `tree` is the folder that holds "wow-client-patch".
QList<Finding> findings(const CheckedManifest& manifest, const QString& tree);

/// Path of an entry's file below the server's root, decoded; empty when the
/// address would not arrive there.
QString serverPath(const QString& kind, const PatchManifestEntry& entry);

} // namespace CheckPublished

} // namespace Publisher
