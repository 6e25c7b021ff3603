#pragma once

#include "publisher/check/checkedmanifest.h"

/// The manifest against the files that are published with it.
namespace Publisher {
class HashCache;
}

namespace Publisher::CheckPublished {

/// `tree` is the folder that holds "wow-client-patch". Files whose hash is `known` are
/// not read; it may be null.
QList<Finding>
findings(const CheckedManifest& manifest, const QString& tree, const HashCache* known);

} // namespace Publisher::CheckPublished
