#pragma once

#include "publisher/finding.h"

#include <QList>
#include <QString>

class Output;

/// What launchers fetch from a server tree besides patch files.
namespace CheckServed {

/// Manifests and launcher files that are dated ahead, and a text for the window
/// that locks it. Says where something cannot be looked at.
QList<Finding> findings(const QString& tree, Output& output);

} // namespace CheckServed
