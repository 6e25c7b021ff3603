#pragma once

#include "publisher/common/finding.h"

#include <QList>
#include <QString>

namespace Publisher {

class History;
struct Publication;
struct SourceTree;

/// What keeps files from being published over what is live, seen before any of them
/// is read.
namespace Precheck {

/// Paths that were files for players and are folders now, or the other way round.
/// A player's cache keeps what it has once held, from the live manifest or one of
/// those before it: no publication takes it away.
QList<Finding>
changedKinds(const SourceTree& source, const Publication& live, const History& history);

/// Whether more is dropped than an admin does by mistake, unless `confirmed` is
/// the very number.
QList<Finding> manyRemoved(qsizetype removed, qsizetype live, qsizetype confirmed);

} // namespace Precheck

} // namespace Publisher
