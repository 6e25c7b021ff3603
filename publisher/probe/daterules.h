#pragma once

#include "publisher/common/finding.h"
#include "publisher/probe/probeanswer.h"

#include <QDateTime>
#include <QString>

#include <optional>

namespace Publisher {

struct PatchFile;

/// What the dates and the caching of answers do to launchers, which ask for anything
/// newer than the copy they have.
namespace DateRules {

/// What a launcher without a copy of its own sends.
const QDateTime& withoutCopy();
/// What a launcher with the file of this answer sends: its copy bears the date of the
/// download, so it is later than the server's, and ahead of the server's clock where
/// the player's is.
QDateTime ofLaterCopy(const ProbeAnswer& answer, const QDateTime& serverTime);
/// Of a copy that was made by a clock years ahead.
const QDateTime& farAhead();

/// A file from the future is newer than every copy. `here` is the time on this
/// machine.
std::optional<Finding> ahead(const QString& name, const ProbeAnswer& answer, const QDateTime& here);
/// Caches may hand out an old copy.
std::optional<Finding> caching(const QString& name, const ProbeAnswer& answer);

/// From the answer to a launcher that has a manifest of this date, which must not
/// matter.
std::optional<Finding>
copiedManifest(const QString& name, const QDateTime& dateOfCopy, const ProbeAnswer& answer);
/// From the answer to `ofLaterCopy()`, for the launcher's own files.
std::optional<Finding> laterCopy(const QString& name, const ProbeAnswer& answer);
/// From the answer to the very date of the file, for the launcher's own files.
std::optional<Finding> exactCopy(const QString& name, const ProbeAnswer& answer);
/// From the answer to a later date, which launchers send for patch files that do not
/// have the manifest's hash.
std::optional<Finding>
damagedCopy(const PatchFile& file, const QUrl& address, const ProbeAnswer& answer);

} // namespace DateRules

} // namespace Publisher
