// Second phase of an update run: the two manifests, the test manifest first.

#include "app/constants.h"
#include "core/settingshandler.h"
#include "core/signalboolhelperclass.h"
#include "net/filedownloader.h"
#include "net/referencetime.h"
#include "update/launcherfiles.h"
#include "update/updatingprocedures.h"

#include <QDebug>
#include <QDir>
#include <QFileInfo>

using namespace Qt::StringLiterals;

void UpdatingProcedures::updatePatchIni()
{
    const bool liveDownloaded = patchIniDownloadedFlag->state();
    const bool testDownloaded = patchTestIniDownloadedFlag->state();
    const QString folder = SettingsHandler::getSettingsPath();
    if (!QDir(folder).exists())
        QDir().mkdir(folder);

    if (!testDownloaded) {
        if (SettingsHandler::getDev()) {
            qDebug() << "call download for patchTestIni";
            fetchManifest(testManifestFileName, patchTestIniDownloadedFlag);
        } else {
            // Runs this slot again, nested, for the live manifest.
            patchTestIniDownloadedFlag->setTrue();
        }
    } else if (!liveDownloaded) {
        fetchManifest(liveManifestFileName, patchIniDownloadedFlag);
    } else {
        clientUpdate();
    }
}

void UpdatingProcedures::fetchManifest(const QString& manifestName, SignalBoolHelperClass* doneFlag)
{
    const QFileInfo local(ownLayout().manifest(manifestName));
    FileDownloader::download(
        true, progressReceiver(), doneFlag,
        QUrl(downloadBaseUrl + local.fileName(), QUrl::TolerantMode), referenceTimeOf(local),
        SettingsHandler::getSettingsPath(), QString());
}
