#pragma once

#include "publisher/refusal.h"

#include <QList>

struct BuildRequest;
struct Publication;
struct SourceTree;

/// What keeps a source from being published over what is live, seen before any
/// file is read.
namespace Precheck {

/// Paths that were files for players and are folders now, or the other way round.
/// A player's cache keeps what it has once held: no publication takes it away.
QList<Refusal> changedKinds(const SourceTree& source, const QList<Publication>& former);

/// Whether more is dropped than an admin does by mistake, unless `confirmed` is
/// the very number.
QList<Refusal> manyRemoved(qsizetype removed, qsizetype live, qsizetype confirmed);

} // namespace Precheck
