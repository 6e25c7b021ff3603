#pragma once

#include "publisher/common/finding.h"

#include <QList>
#include <QString>
#include <QStringList>

class QDateTime;

namespace Publisher {

class Clock;

/// What launchers ask for by date must not be dated ahead: every start would fetch
/// it, and a launcher of such a date fetches itself and hands over to the updater
/// for ever.
namespace Dates {

/// What speaks against going on from a file that is dated ahead of the clock.
QList<Finding> ahead(const QString& path, const Clock& clock);
/// The same as a sentence, for a file that is not about to be replaced.
QStringList noteOn(const QString& path, const Clock& clock);

/// As messages show a date.
QString shown(const QDateTime& date);

} // namespace Dates

} // namespace Publisher
