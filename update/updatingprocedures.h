#pragma once

#include "update/patchdownloaditem.h"
#include "update/patchlayout.h"

#include <QList>
#include <QObject>
#include <QString>

class MainWindow;
class SignalBoolHelperClass;

/// One whole update run: the launcher's own files, the manifests, the patch
/// cache, the clients. Every step is a slot that runs when a flag is written or
/// a signal of this object is emitted; nothing waits. Serves one run, has no
/// parent and deletes itself when both download queues are exhausted.
class UpdatingProcedures : public QObject {
    Q_OBJECT

public:
    /// `mainWindow` shows the progress of every download; not owned.
    explicit UpdatingProcedures(MainWindow* mainWindow);
    /// Frees the six flags.
    ~UpdatingProcedures() override;

    /// Starts the run with the download of the updater program.
    void downloadUpdater();
    /// Reconciles the cache with the manifests and starts the download queue.
    void clientUpdate();
    /// Applies one manifest to the cache and appends to `queue` what must be
    /// downloaded. `kind` is "live" or "test".
    void reconcilePatchIni(
        QString baseUrl, QString manifestName, QList<PatchDownloadItem>& queue, QString kind);

signals:
    /// The self-update step is over; may come more than once.
    void launcherUpdateComplete();
    /// Both queues are exhausted; installs before it returns.
    void clientDownloadComplete();
    /// Every client has been handled.
    void clientUpdateComplete();

public slots:
    /// Advances the self-update; runs with every write to one of its flags.
    void replaceLauncher();
    /// Fetches one manifest per call, then goes on to clientUpdate().
    void updatePatchIni();
    /// Starts the next queued download or ends the download phase.
    void downloadNextFile();
    /// Applies the manifests to every client folder.
    void copyPatchedFilesIntoClient();

private:
    /// The folders beside the launcher's own program, with the native separator.
    static PatchLayout ownLayout();
    QObject* progressReceiver() const;
    void fetchManifest(const QString& manifestName, SignalBoolHelperClass* doneFlag);
    void startDownload(const PatchDownloadItem& item);
    void handOverToUpdater();

    SignalBoolHelperClass* launcherDownloadedFlag;
    SignalBoolHelperClass* updaterDownloadedFlag;
    SignalBoolHelperClass* launcherUpdateDoneFlag;
    SignalBoolHelperClass* patchIniDownloadedFlag;
    SignalBoolHelperClass* patchTestIniDownloadedFlag;
    SignalBoolHelperClass* clientFileDownloadedFlag;
    MainWindow* mainWindow;
    QList<PatchDownloadItem> liveDownloadQueue;
    QList<PatchDownloadItem> testDownloadQueue;
};
