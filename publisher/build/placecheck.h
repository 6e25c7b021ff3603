#pragma once

#include "publisher/common/problem.h"
#include "publisher/common/serverlayout.h"

#include <QList>
#include <QString>

#include <functional>

namespace Publisher {

struct SourceTree;

/// Whether a publication can be written, seen before anything is copied.
namespace PlaceCheck {

struct MissingFile {
    /// Relative to the server folder.
    QString serverPath;
    qint64 size = 0;
};

/// Which right or how much room is missing, as a sentence with the remedy. What lies on the server
/// already takes none: only where that decides, `missing` is asked for what has to be copied. The
/// folder of the kind is there.
[[nodiscard]] Problem fault(
    const QString& server, Kind kind, const SourceTree& source,
    const std::function<QList<MissingFile>()>& missing);

} // namespace PlaceCheck

} // namespace Publisher
