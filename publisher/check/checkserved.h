#pragma once

#include "publisher/common/finding.h"

#include <QList>
#include <QString>
#include <QStringList>

#include <optional>

/// What launchers fetch from a server tree besides patch files.
namespace Publisher::CheckServed {

struct Result {
    QList<Finding> findings;
    /// Whether the text for the window has been laid out; nothing where there is no
    /// text.
    std::optional<bool> isInfoLaidOut = {};
    /// What could not be looked at, as sentences.
    QStringList notes = {};
};

/// Manifests and launcher files that are dated ahead, and a text for the window
/// that locks it.
Result inspect(const QString& tree);

} // namespace Publisher::CheckServed
