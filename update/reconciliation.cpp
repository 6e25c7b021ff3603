// Third phase of an update run: the patch cache against the manifests.

#include "app/constants.h"
#include "core/settingshandler.h"
#include "core/signalboolhelperclass.h"
#include "net/referencetime.h"
#include "update/launcherfiles.h"
#include "update/patchlayout.h"
#include "update/patchmanifest.h"
#include "update/updatingprocedures.h"

#include <QCryptographicHash>
#include <QDebug>
#include <QDir>
#include <QFile>
#include <QFileInfo>

using namespace Qt::StringLiterals;

namespace {

void createIfMissing(const QString& folder)
{
    if (!QDir(folder).exists())
        QDir().mkdir(folder);
}

/// Lower-case hexadecimal MD5 of a file, empty when it cannot be read. Only
/// regular files are opened: a pipe in the cache would block for ever.
QString md5Of(const QString& filePath)
{
    QFile file(filePath);
    QCryptographicHash hash(QCryptographicHash::Md5);
    if (QFileInfo(filePath).isFile() && file.open(QIODevice::ReadOnly) && hash.addData(&file))
        return QString::fromLatin1(hash.result().toHex());
    return {};
}

void queueIfChanged(
    QList<PatchDownloadItem>& queue, const QString& baseUrl, const PatchLayout& layout,
    const QString& kind, const PatchManifestEntry& entry)
{
    const QString folder = layout.cachedFileFolder(kind, entry);
    const QString cached = folder + u'/' + entry.name;
    const QDateTime referenceTime = referenceTimeOf(QFileInfo(QDir(folder), entry.name));

    qDebug() << "check if hashEquals";
    if (entry.hash == md5Of(cached)) {
        qDebug() << "file: " << cached << " with hash: " << entry.hash << " is already up-to-date";
    } else {
        qDebug() << "file: " << cached << " with hash: " << entry.hash
                 << " --> missed hash-check, added to download Queue.";
        queue.append(PatchDownloadItem(
            PatchLayout::patchFile(baseUrl, kind, entry), referenceTime, folder, entry.name));
    }
    qDebug() << "Client UpdateQueue size: " << queue.size();
}

void createCacheFolder(
    const PatchLayout& layout, const QString& kind, const PatchManifestEntry& entry)
{
    const QString folder = layout.cachedFolder(kind, entry);
    qDebug() << folder;
    QDir().mkpath(folder);
}

// The removals reach the client of the realm entry that bears the manifest
// entry's own number, and only the folder's path holds the manifest kind. Both
// are intended: the publisher addresses removals this way.

QString clientOfSameNumber(qint64 n)
{
    return SettingsHandler::getClientPath(static_cast<int>(n));
}

void removeClientFile(const PatchLayout& layout, qint64 n, const PatchManifestEntry& entry)
{
    QFile::remove(layout.inClient(clientOfSameNumber(n), entry.pathOffset, entry.name));
}

void removeClientFolder(
    const PatchLayout& layout, qint64 n, const QString& kind, const PatchManifestEntry& entry)
{
    QDir(layout.reconciledFolder(clientOfSameNumber(n), kind, entry)).removeRecursively();
}

} // namespace

void UpdatingProcedures::clientUpdate()
{
    qDebug() << "clientUpdateIsCalled";
    reconcilePatchIni(livePatchBaseUrl, liveManifestFileName, liveDownloadQueue, u"live"_s);
    if (SettingsHandler::getDev()) {
        qDebug() << "this is a dev-launcher";
        qDebug() << "now handling TestPatchIni";
        reconcilePatchIni(testPatchBaseUrl, testManifestFileName, testDownloadQueue, u"test"_s);
    }
    clientFileDownloadedFlag->setTrue();
}

void UpdatingProcedures::reconcilePatchIni(
    QString baseUrl, QString manifestName, QList<PatchDownloadItem>& queue, QString kind)
{
    qDebug() << baseUrl << manifestName;
    const PatchLayout layout = ownLayout();
    const QString manifestPath = layout.manifest(manifestName);
    createIfMissing(SettingsHandler::getClientDataStoragePath());
    createIfMissing(layout.cacheKindFolder(kind));
    if (!QFile::exists(manifestPath)) {
        qDebug() << "patchfile does not exist at: " << manifestPath;
        return;
    }
    qDebug() << manifestPath;

    const PatchManifest manifest(manifestPath);
    for (qint64 n = 1; n <= manifest.entryCount(); ++n) {
        const PatchManifestEntry entry = manifest.entry(n);
        switch (entry.action()) {
        case PatchAction::FileDownload:
            qDebug() << "Case4: File Download";
            queueIfChanged(queue, baseUrl, layout, kind, entry);
            break;
        case PatchAction::FolderCreate:
            qDebug() << "Case2: Folder create";
            createCacheFolder(layout, kind, entry);
            break;
        case PatchAction::FileRemove:
            qDebug() << "Case3: File remove";
            removeClientFile(layout, n, entry);
            break;
        case PatchAction::FolderRemove:
            qDebug() << "Case1: Folder remove";
            removeClientFolder(layout, n, kind, entry);
            break;
        }
    }
}
