#pragma once

#include "publisher/common/refusal.h"

#include <QList>
#include <QString>

#include <functional>

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
QList<Refusal>
changedKinds(const SourceTree& source, const Publication& live, const History& history);

/// Whether more is dropped than an admin does by mistake, unless `confirmed` is
/// the very number.
QList<Refusal> manyRemoved(qsizetype removed, qsizetype live, qsizetype confirmed);

/// Whether the server folder can be written and has room for what a publication
/// has to copy, as a sentence with the way out; empty when it has. What lies there
/// already takes no room: only where that decides, `needed` is asked for the exact
/// number of bytes.
QString
withoutRoom(const QString& server, const SourceTree& source, const std::function<qint64()>& needed);

} // namespace Precheck

} // namespace Publisher
