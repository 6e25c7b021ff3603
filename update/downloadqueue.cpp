// Fourth phase of an update run: the queued patch files, one at a time.

#include "core/signalboolhelperclass.h"
#include "net/filedownloader.h"
#include "update/updatingprocedures.h"

#include <QDebug>

void UpdatingProcedures::downloadNextFile()
{
    clientFileDownloadedFlag->setFalse();
    // The live queue's size on purpose, also while the test queue is worked off.
    qDebug() << "Client UpdateQueue size: " << liveDownloadQueue.size();
    if (!liveDownloadQueue.isEmpty()) {
        startDownload(liveDownloadQueue.takeFirst());
    } else if (!testDownloadQueue.isEmpty()) {
        startDownload(testDownloadQueue.takeFirst());
    } else {
        qDebug() << "now emit clientDownloadComplete";
        emit clientDownloadComplete();
        deleteLater();
    }
}

void UpdatingProcedures::startDownload(const PatchDownloadItem& item)
{
    FileDownloader::download(
        true, progressReceiver(), clientFileDownloadedFlag, item.getUrl(), item.getReferenceTime(),
        item.getTargetFolder(), item.getFileName());
}
