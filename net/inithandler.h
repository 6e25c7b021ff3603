#pragma once

#include "update/patchdownloaditem.h"

#include <QList>
#include <QObject>

class SignalBoolHelperClass;

/// Checks at start-up that the TLS libraries lie beside the launcher and keeps
/// a queue of the missing ones. Has no parent and deletes itself when there is
/// nothing left to fetch.
class InitHandler : public QObject {
    Q_OBJECT

public:
    /// `progressReceiver` is handed to every download.
    explicit InitHandler(QObject* progressReceiver);

    /// Emits clientInitComplete() before it returns, libraries missing or not.
    /// Missing ones stay queued until someone calls getLibs().
    void start();
    /// Queues every missing library; true when none is missing.
    bool checkLibs();
    /// Starts the download of the first library in the queue.
    void downloadNextLib();

signals:
    /// The check is over; a second time when the queue has been worked off.
    void clientInitComplete();

public slots:
    /// Works off the queue, one library per call; runs again by itself when
    /// that library's download has ended.
    void getLibs();

private:
    QList<PatchDownloadItem> pendingLibs;
    /// Never freed: a download may still hold it when the handler is gone.
    SignalBoolHelperClass* libsFlag;
    QObject* progressReceiver;
};
