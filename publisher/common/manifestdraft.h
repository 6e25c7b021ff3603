#pragma once

#include "update/patchmanifest.h"

#include <QByteArray>
#include <QChar>
#include <QList>
#include <QString>

#include <functional>

namespace Publisher {

/// A manifest that is about to be written.
struct ManifestDraft {
    struct Entry {
        PatchManifestEntry content;
        QString hash;
    };
    QList<Entry> entries;

    /// `path` relative to the client folder, with "/". The separator of the
    /// players' system goes between the folders of the path offset.
    static Entry folder(const QString& path, QChar separator);
    static Entry
    file(const QString& path, const QString& urlOffset, const QString& hash, QChar separator);

    /// The text of the manifest: the same entries give the same bytes.
    QByteArray toIni() const;
    /// Hands over the entries of the draft that gives these very bytes. False for
    /// any other text, which only the settings layer can tell the meaning of; it
    /// takes ten times as long and several times the memory.
    static bool readIni(QByteArrayView text, const std::function<void(const Entry&)>& take);
    /// Reads a written manifest as the launcher does and tells in a sentence
    /// what is different; empty when nothing is.
    QString differenceTo(const QString& manifestPath) const;
};

/// The entries' path offset for a folder of the client; empty for the client
/// folder itself.
QString pathOffsetOf(const QString& folder, QChar separator);

} // namespace Publisher
