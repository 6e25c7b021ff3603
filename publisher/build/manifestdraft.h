#pragma once

#include "update/patchmanifest.h"

#include <QChar>
#include <QList>
#include <QString>

namespace Publisher {

/// A manifest that is about to be written.
struct ManifestDraft {
    QList<PatchManifestEntry> entries;

    /// `path` relative to the client folder, with "/". The separator of the
    /// players' system goes between the folders of the path offset.
    static PatchManifestEntry folder(const QString& path, QChar separator);
    static PatchManifestEntry
    file(const QString& path, const QString& urlOffset, const QString& hash, QChar separator);

    /// Reads a written manifest as the launcher does and tells in a sentence
    /// what is different; empty when nothing is.
    QString differenceTo(const QString& manifestPath) const;
};

/// The entries' path offset for a folder of the client; empty for the client
/// folder itself.
QString pathOffsetOf(const QString& folder, QChar separator);

} // namespace Publisher
