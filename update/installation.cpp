// Last phase of an update run: the cached files into every client folder.

#include "core/realmwalk.h"
#include "core/settingshandler.h"
#include "update/launcherfiles.h"
#include "update/patchlayout.h"
#include "update/patchmanifest.h"
#include "update/updatingprocedures.h"

#include <QDebug>
#include <QDir>
#include <QFile>
#include <QFileInfo>

using namespace Qt::StringLiterals;

namespace {

/// A realm entry as the installation sees it.
struct Client {
    int number;
    QString path;
    QString kind;
    const PatchLayout& layout;
};

void deleteOldFile(const QString& target, const QString& name, const QString& folder)
{
    if (!QFile::exists(target))
        return;
    qDebug() << "found " << name << " in " << folder;
    const bool deleted = QFile::remove(target);
    qDebug() << "combined path+filename: " << target;
    qDebug() << "result of deletion: " << deleted;
}

/// Whoever opens a pipe waits until somebody writes into it, maybe for ever.
bool copyRegularFile(const QString& source, const QString& target)
{
    return QFileInfo(source).isFile() && QFile::copy(source, target);
}

void installFile(const Client& client, qint64 n, const PatchManifestEntry& entry)
{
    const QString source
        = client.layout.cachedFileFolder(client.kind, entry) + QDir::separator() + entry.name;
    const QString folder = PatchLayout::installFolder(client.path, entry);
    const QString target = folder + QDir::separator() + entry.name;
    deleteOldFile(target, entry.name, folder);
    // The two texts are swapped on purpose; whoever reads these logs knows them so.
    if (copyRegularFile(source, target))
        qDebug() << "could not write file " << entry.name << " into " << folder;
    else
        qDebug() << "copy of file  " << entry.name << " into " << folder << "succeded";
    qDebug() << n << " " << entry.save << " " << false << " " << entry.pathOffset;
}

void createFolder(const Client& client, const PatchManifestEntry& entry)
{
    qDebug() << "Case2: Folder create";
    qDebug() << "realm: " << client.number << client.path << QDir::separator()
             << QString(entry.pathOffset + QDir::separator()) << entry.name;
    QDir().mkpath(client.layout.inClient(client.path, entry.pathOffset, entry.name));
}

void applyEntry(const Client& client, const PatchManifest& manifest, qint64 n)
{
    const PatchManifestEntry entry = manifest.entry(n);
    // Removals take the name of the entry numbered like the realm, with the
    // offset of this entry and without the manifest kind. That is intended.
    const auto removed = [&] {
        return client.layout.inClient(client.path, entry.pathOffset, manifest.name(client.number));
    };
    switch (entry.action()) {
    case PatchAction::FileDownload:
        installFile(client, n, entry);
        break;
    case PatchAction::FolderCreate:
        createFolder(client, entry);
        break;
    case PatchAction::FileRemove:
        qDebug() << "Case3: File remove";
        QFile::remove(removed());
        break;
    case PatchAction::FolderRemove:
        qDebug() << "Case1: Folder remove";
        QDir(removed()).removeRecursively();
        break;
    }
}

} // namespace

void UpdatingProcedures::copyPatchedFilesIntoClient()
{
    qDebug() << "now copy Data into Client";
    const PatchLayout layout = ownLayout();
    const RealmWalk walk;
    for (int r = 1; r <= walk.last(); ++r) {
        const bool testRealm = SettingsHandler::getTestRealm(r);
        const PatchManifest manifest(
            layout.manifest(testRealm ? testManifestFileName : liveManifestFileName));
        const Client client{ r, SettingsHandler::getClientPath(r),
                             testRealm ? u"test"_s : u"live"_s, layout };
        for (qint64 n = 1; n <= manifest.entryCount(); ++n)
            applyEntry(client, manifest, n);
    }
    emit clientUpdateComplete();
}
