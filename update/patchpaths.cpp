#include "update/patchpaths.h"

#include "core/settingshandler.h"
#include "update/patchlayout.h"

namespace {

PatchLayout ownLayout()
{
    return { SettingsHandler::getSettingsPath(), SettingsHandler::getClientDataStoragePath() };
}

} // namespace

namespace PatchPaths {

QString manifest(const QString& manifestName)
{
    return ownLayout().manifest(manifestName);
}

QString cacheKindFolder(const QString& kind)
{
    return ownLayout().cacheKindFolder(kind);
}

QString cachedFileFolder(const QString& kind, const PatchManifestEntry& entry)
{
    return ownLayout().cachedFileFolder(kind, entry);
}

QString cachedFolder(const QString& kind, const PatchManifestEntry& entry)
{
    return ownLayout().cachedFolder(kind, entry);
}

QUrl patchFile(const QString& baseUrl, const QString& kind, const PatchManifestEntry& entry)
{
    return PatchLayout::patchFile(baseUrl, kind, entry);
}

QString installFolder(const QString& clientPath, const PatchManifestEntry& entry)
{
    return PatchLayout::installFolder(clientPath, entry);
}

QString inClient(const QString& clientPath, const QString& pathOffset, const QString& name)
{
    return ownLayout().inClient(clientPath, pathOffset, name);
}

QString
reconciledFolder(const QString& clientPath, const QString& kind, const PatchManifestEntry& entry)
{
    return ownLayout().reconciledFolder(clientPath, kind, entry);
}

} // namespace PatchPaths
