#include "update/patchlayout.h"

#include "update/launcherfiles.h"

#include <utility>

using namespace Qt::StringLiterals;

PatchLayout::PatchLayout(QString settings, QString cache, QChar nativeSeparator)
    : settingsFolder(std::move(settings))
    , cacheFolder(std::move(cache))
    , separator(nativeSeparator)
{
}

QString PatchLayout::manifest(const QString& manifestName) const
{
    return settingsFolder + separator + manifestName;
}

QString PatchLayout::cacheKindFolder(const QString& kind) const
{
    return cacheFolder + u'/' + kind;
}

QString PatchLayout::cachedFileFolder(const QString& kind, const PatchManifestEntry& entry) const
{
    return cacheKindFolder(kind) + u'/' + entry.pathOffset;
}

QString PatchLayout::cachedFolder(const QString& kind, const PatchManifestEntry& entry) const
{
    return inClient(cacheFolder + separator + kind, entry.pathOffset, entry.name);
}

QString PatchLayout::inClient(
    const QString& clientPath, const QString& pathOffset, const QString& name) const
{
    return clientPath + separator + pathOffset + separator + name;
}

QString PatchLayout::reconciledFolder(
    const QString& clientPath, const QString& kind, const PatchManifestEntry& entry) const
{
    return inClient(clientPath + separator + kind, entry.pathOffset, entry.name);
}

QString PatchLayout::installFolder(const QString& clientPath, const PatchManifestEntry& entry)
{
    return clientPath + u'/' + entry.pathOffset;
}

QUrl PatchLayout::patchFile(
    const QString& baseUrl, const QString& kind, const PatchManifestEntry& entry)
{
    return QUrl(
        baseUrl + patchFolderName + u'/' + kind + u'/' + entry.urlOffset + u'/' + entry.name,
        QUrl::TolerantMode);
}
