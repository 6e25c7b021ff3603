#pragma once

#include "publisher/common/finding.h"

#include <QByteArray>
#include <QList>
#include <QString>

namespace Publisher {

/// Compares what stands in a manifest's text with what the launcher's settings
/// layer reads from it.
namespace CheckReading {

/// `subject` is what the findings call the manifest.
QList<Finding> findings(const QString& manifestPath, const QString& subject);

/// Whether a value's text in the file can only mean the value that is read:
/// literally so, in quotes, or escaped the way the settings layer writes it.
bool saysWhatIsRead(const QString& text, const QString& value);

/// Number of the entry a key belongs to, 0 for a key that belongs to none.
qint64 entryOfKey(const QString& key);

} // namespace CheckReading

} // namespace Publisher
