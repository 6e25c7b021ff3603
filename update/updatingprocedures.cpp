#include "update/updatingprocedures.h"

#include "core/settingshandler.h"
#include "core/signalboolhelperclass.h"
#include "ui/mainwindow.h" // the one look upwards: the window as a plain receiver

UpdatingProcedures::UpdatingProcedures(MainWindow* window)
    : QObject(nullptr)
    , launcherDownloadedFlag(new SignalBoolHelperClass)
    , updaterDownloadedFlag(new SignalBoolHelperClass)
    , launcherUpdateDoneFlag(new SignalBoolHelperClass)
    , patchIniDownloadedFlag(new SignalBoolHelperClass)
    , patchTestIniDownloadedFlag(new SignalBoolHelperClass)
    , clientFileDownloadedFlag(new SignalBoolHelperClass)
    , mainWindow(window)
{
    connect(launcherDownloadedFlag, SIGNAL(changedState()), this, SLOT(replaceLauncher()));
    connect(updaterDownloadedFlag, SIGNAL(changedState()), this, SLOT(replaceLauncher()));
    connect(launcherUpdateDoneFlag, SIGNAL(changedState()), this, SLOT(replaceLauncher()));
    connect(this, SIGNAL(launcherUpdateComplete()), this, SLOT(updatePatchIni()));
    connect(patchTestIniDownloadedFlag, SIGNAL(changedState()), this, SLOT(updatePatchIni()));
    connect(patchIniDownloadedFlag, SIGNAL(changedState()), this, SLOT(updatePatchIni()));
    // Only true: the slot sets this flag false itself and must not run again for it.
    connect(clientFileDownloadedFlag, SIGNAL(changedToTrue()), this, SLOT(downloadNextFile()));
    connect(this, SIGNAL(clientDownloadComplete()), this, SLOT(copyPatchedFilesIntoClient()));
}

UpdatingProcedures::~UpdatingProcedures()
{
    delete launcherDownloadedFlag;
    delete updaterDownloadedFlag;
    delete launcherUpdateDoneFlag;
    delete patchIniDownloadedFlag;
    delete patchTestIniDownloadedFlag;
    delete clientFileDownloadedFlag;
}

PatchLayout UpdatingProcedures::ownLayout()
{
    return { SettingsHandler::getSettingsPath(), SettingsHandler::getClientDataStoragePath() };
}

QObject* UpdatingProcedures::progressReceiver() const
{
    return mainWindow;
}
