#pragma once

#include "update/patchmanifest.h"

#include <QString>
#include <QUrl>

/// Where a manifest's entries lie for this launcher, in the folders beside its
/// own program: PatchLayout with those folders and the native separator.
namespace PatchPaths {

QString manifest(const QString& manifestName);

/// Cache folder of one manifest kind ("live" or "test").
QString cacheKindFolder(const QString& kind);
/// Cache folder into which an entry's file is downloaded.
QString cachedFileFolder(const QString& kind, const PatchManifestEntry& entry);
/// Cache folder that a folder entry creates.
QString cachedFolder(const QString& kind, const PatchManifestEntry& entry);

/// Address of an entry's file. An empty url offset leaves a double slash.
QUrl patchFile(const QString& baseUrl, const QString& kind, const PatchManifestEntry& entry);

/// Client folder into which an entry's file is installed.
QString installFolder(const QString& clientPath, const PatchManifestEntry& entry);
/// A file or folder `name` below the client folder and a path offset.
QString inClient(const QString& clientPath, const QString& pathOffset, const QString& name);
/// What a folder removal deletes while the cache is compared.
QString
reconciledFolder(const QString& clientPath, const QString& kind, const PatchManifestEntry& entry);

} // namespace PatchPaths
