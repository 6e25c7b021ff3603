#pragma once

#include "update/patchmanifest.h"

#include <QChar>
#include <QDir>
#include <QString>
#include <QUrl>

/// Where a manifest's entries lie, for any launcher folder and either kind of
/// separator. Native separators and literal slashes are mixed in fixed places;
/// nothing is normalised.
class PatchLayout {
public:
    /// Both folders without trailing separator.
    PatchLayout(QString settingsFolder, QString cacheFolder, QChar separator = QDir::separator());

    QString manifest(const QString& manifestName) const;

    /// Cache folder of one manifest kind ("live" or "test").
    QString cacheKindFolder(const QString& kind) const;
    /// Cache folder into which an entry's file is downloaded.
    QString cachedFileFolder(const QString& kind, const PatchManifestEntry& entry) const;
    /// Cache folder that a folder entry creates.
    QString cachedFolder(const QString& kind, const PatchManifestEntry& entry) const;

    /// A file or folder `name` below the client folder and a path offset.
    QString
    inClient(const QString& clientPath, const QString& pathOffset, const QString& name) const;
    /// What a folder removal deletes while the cache is compared: unlike a file
    /// removal it looks below a folder named like the manifest kind.
    QString reconciledFolder(
        const QString& clientPath, const QString& kind, const PatchManifestEntry& entry) const;

    /// Client folder into which an entry's file is installed.
    static QString installFolder(const QString& clientPath, const PatchManifestEntry& entry);
    /// Address of an entry's file. An empty url offset leaves a double slash.
    static QUrl
    patchFile(const QString& baseUrl, const QString& kind, const PatchManifestEntry& entry);

private:
    QString settingsFolder;
    QString cacheFolder;
    QChar separator;
};
