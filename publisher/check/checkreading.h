#pragma once

#include "publisher/common/finding.h"

#include <QByteArray>
#include <QList>
#include <QString>

/// Compares what stands in a manifest's text with what the launcher's settings
/// layer reads from it.
namespace Publisher::CheckReading {

/// `subject` is what the findings call the manifest.
QList<Finding> findings(const QString& manifestPath, const QString& subject);

/// Whether a value's text in the file can only mean the value that is read:
/// literally so, in quotes, or escaped the way the settings layer writes it.
bool saysWhatIsRead(const QString& text, const QString& value);

} // namespace Publisher::CheckReading
