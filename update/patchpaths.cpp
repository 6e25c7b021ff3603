#include "update/patchpaths.h"

#include "core/settingshandler.h"

#include <QDir>

using namespace Qt::StringLiterals;

namespace PatchPaths {

QString manifest(const QString& manifestName)
{
    return SettingsHandler::getSettingsPath() + QDir::separator() + manifestName;
}

QString cacheKindFolder(const QString& kind)
{
    return SettingsHandler::getClientDataStoragePath() + u'/' + kind;
}

QString cachedFileFolder(const QString& kind, const PatchManifestEntry& entry)
{
    return cacheKindFolder(kind) + u'/' + entry.pathOffset;
}

QString cachedFolder(const QString& kind, const PatchManifestEntry& entry)
{
    return inClient(
        SettingsHandler::getClientDataStoragePath() + QDir::separator() + kind, entry.pathOffset,
        entry.name);
}

QUrl patchFile(const QString& baseUrl, const QString& kind, const PatchManifestEntry& entry)
{
    return QUrl(
        baseUrl + "wow-client-patch/"_L1 + kind + u'/' + entry.urlOffset + u'/' + entry.name,
        QUrl::TolerantMode);
}

QString installFolder(const QString& clientPath, const PatchManifestEntry& entry)
{
    return clientPath + u'/' + entry.pathOffset;
}

QString inClient(const QString& clientPath, const QString& pathOffset, const QString& name)
{
    return clientPath + QDir::separator() + pathOffset + QDir::separator() + name;
}

} // namespace PatchPaths
