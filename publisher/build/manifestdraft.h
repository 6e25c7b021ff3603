#pragma once

#include "publisher/common/problem.h"
#include "update/patchmanifest.h"

#include <QByteArrayView>
#include <QChar>
#include <QString>

/// What goes into a manifest that is about to be written.
namespace Publisher::ManifestDraft {

/// `path` relative to the client folder, with "/". The separator of the players'
/// system goes between the folders of the path offset.
PatchManifestEntry folder(const QString& path, QChar separator);
PatchManifestEntry
file(const QString& path, const QString& urlOffset, const QString& hash, QChar separator);
/// The entries' path offset for a folder of the client; empty for the client
/// folder itself.
QString pathOffset(const QString& folder, QChar separator);

/// Reads a written manifest as the launcher does and tells in a sentence what is
/// different from the text that was meant, which is one of ManifestText.
[[nodiscard]] Problem misreading(QByteArrayView text, const QString& manifestPath);

} // namespace Publisher::ManifestDraft
