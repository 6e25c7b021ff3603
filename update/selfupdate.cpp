// First phase of an update run: the updater program, the launcher itself and
// the hand-over from one to the other.

#include "app/constants.h"
#include "core/signalboolhelperclass.h"
#include "net/filedownloader.h"
#include "net/referencetime.h"
#include "update/launcherfiles.h"
#include "update/updatingprocedures.h"

#include <QCoreApplication>
#include <QDir>
#include <QFileInfo>
#include <QProcess>

using namespace Qt::StringLiterals;

namespace {

constexpr QLatin1StringView waitingName("Halden-Launcher.tmp");

/// Brings the application folder's copy of `serverName` up to date. An empty
/// `targetName` keeps the server's name.
void fetchLauncherFile(
    QObject* progressReceiver, SignalBoolHelperClass* doneFlag, QLatin1StringView serverName,
    const QString& targetName)
{
    const QDir folder(QCoreApplication::applicationDirPath() + QDir::separator());
    FileDownloader::download(
        true, progressReceiver, doneFlag, QUrl(downloadBaseUrl + serverName, QUrl::TolerantMode),
        referenceTimeOf(QFileInfo(folder, serverName)), QCoreApplication::applicationDirPath(),
        targetName);
}

/// Only existence counts: a waiting launcher of an earlier run is handed over too.
bool handOverIsDue()
{
    const QDir folder(QCoreApplication::applicationDirPath());
    return folder.exists(waitingName) && folder.exists(updaterFileName);
}

} // namespace

void UpdatingProcedures::downloadUpdater()
{
    fetchLauncherFile(progressReceiver(), updaterDownloadedFlag, updaterFileName, QString());
}

void UpdatingProcedures::replaceLauncher()
{
    const bool launcherDownloaded = launcherDownloadedFlag->state();
    const bool updaterDownloaded = updaterDownloadedFlag->state();
    const bool done = launcherUpdateDoneFlag->state();

    if (updaterDownloaded && !done) {
        if (!launcherDownloaded) {
            // A running program cannot be overwritten: the newer one waits beside it.
            fetchLauncherFile(
                progressReceiver(), launcherDownloadedFlag, launcherFileName, waitingName);
            return;
        }
        if (handOverIsDue()) {
            handOverToUpdater();
            return;
        }
    }
    if (done)
        emit launcherUpdateComplete();
    else
        launcherUpdateDoneFlag->setTrue();
}

void UpdatingProcedures::handOverToUpdater()
{
    QProcess updater;
    updater.setProgram(
        QCoreApplication::applicationDirPath() + QDir::separator() + updaterFileName);
    updater.setArguments({ QString::number(QCoreApplication::applicationPid()) });
    // Re-enters replaceLauncher(), which completes the step: the manifest's
    // download is on its way before the updater starts. The order is intended.
    launcherUpdateDoneFlag->setTrue();
    updater.startDetached();
    QCoreApplication::quit();
}
