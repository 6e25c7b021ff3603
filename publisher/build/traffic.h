#pragma once

#include <QString>

namespace Publisher {

/// What a start costs a player's line: both of its update runs fetch every file that
/// the player lacks.
struct Traffic {
    /// For who has everything of the manifest before.
    qint64 bytesToUpdate = 0;
    /// For a new player.
    qint64 bytesInAll = 0;

    /// A file of so many bytes, and whether the manifest before has it too.
    void add(qint64 size, bool isUnchanged);
    QString sentence() const;
};

} // namespace Publisher
