#include "net/inithandler.h"

#include "app/constants.h"
#include "core/signalboolhelperclass.h"
#include "net/filedownloader.h"
#include "net/referencetime.h"

#include <QCoreApplication>
#include <QDebug>
#include <QDir>
#include <QFileInfo>

using namespace Qt::StringLiterals;

InitHandler::InitHandler(QObject* receiver)
    : QObject(nullptr)
    , libsFlag(new SignalBoolHelperClass)
    , progressReceiver(receiver)
{
    connect(libsFlag, SIGNAL(changedToTrue()), this, SLOT(getLibs()));
}

void InitHandler::start()
{
    qDebug() << "initer called";
    if (checkLibs()) {
        deleteLater();
        emit clientInitComplete();
        return;
    }
    // The queue is left alone on purpose: start-up goes on without the libraries.
    qDebug() << "we need some libs";
    emit clientInitComplete();
}

bool InitHandler::checkLibs()
{
    const QString folder = QCoreApplication::applicationDirPath() + QDir::separator();
    const QString firstName = u"ssleay32.dll"_s;
    bool complete = true;
    for (const QString& name : { firstName, u"libssl32.dll"_s, u"libeay32.dll"_s }) {
        if (QFileInfo(folder + name).isFile())
            continue;
        qDebug() << QString(" lib: "_L1 + name + "is missing"_L1);
        const QUrl url(unencryptedDownloadBaseUrl + name, QUrl::TolerantMode);
        const PatchDownloadItem item(url, fixedReferenceTime(), QString(), name);
        pendingLibs.append(item);
        if (name == firstName) {
            qDebug() << pendingLibs.constFirst().getUrl() << " versus " << item.getUrl()
                     << " versus " << url;
        }
        complete = false;
    }
    return complete;
}

void InitHandler::downloadNextLib()
{
    libsFlag->setFalse();
    const PatchDownloadItem item = pendingLibs.takeFirst();
    qDebug() << "Download File: " << item.getFileName()
             << " under url: " << item.getUrl().toString()
             << "with timestamp: " << item.getReferenceTime();
    // The empty folder joins the name directly to the application folder's path.
    FileDownloader::downloadPlain(
        progressReceiver, libsFlag, item.getUrl(), item.getTargetFolder(), item.getFileName());
}

void InitHandler::getLibs()
{
    libsFlag->setFalse();
    if (!pendingLibs.isEmpty()) {
        downloadNextLib();
        return;
    }
    qDebug() << "we have the libs";
    deleteLater();
    emit clientInitComplete();
}
