#pragma once

#include <QDateTime>
#include <QFileInfo>

/// Stands in for a file that does not exist: 1 January 2000, 10:15:00.000 local
/// time. The toolkit sends that moment as GMT, so the header varies with the zone.
QDateTime fixedReferenceTime();

/// The file's modification time in UTC, or the fixed time when it is missing.
/// Sent as If-Modified-Since, so a server keeps back what is not newer.
QDateTime referenceTimeOf(const QFileInfo& file);
