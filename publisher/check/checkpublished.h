#pragma once

#include "publisher/check/checkedmanifest.h"

/// The manifest against the files that are published with it.
namespace Publisher::CheckPublished {

/// `tree` is the folder that holds "wow-client-patch".
QList<Finding> findings(const CheckedManifest& manifest, const QString& tree);

} // namespace Publisher::CheckPublished
