#pragma once

#include "update/patchmanifest.h"

#include <QChar>
#include <QHash>
#include <QList>
#include <QString>

namespace Publisher {

/// A manifest as the launcher reads it, taken out of its file once.
struct ManifestContent {
    /// So many numbers with nothing behind them are taken in; from the next one on
    /// nothing is rehearsed, or a broken number would take all memory.
    static constexpr qint64 mostVacantNumbers = 200'000;

    /// What stands at "entry 1" is the first one.
    QList<PatchManifestEntry> entries;
    /// Names of numbers beyond the last entry; removals look at them too.
    QHash<qint64, QString> furtherNames;

    qint64 count() const;
    const PatchManifestEntry& entry(qint64 n) const;
    QString name(qint64 n) const;

    /// `separator` is the players'; names are read up to `realms` at least.
    static ManifestContent read(const QString& path, QChar separator, int realms);
};

} // namespace Publisher
