#include "net/filedownloader.h"

#include "app/constants.h"
#include "net/referencetime.h"

#include <QCoreApplication>
#include <QDebug>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QNetworkReply>
#include <QNetworkRequest>
#include <QSharedPointer>
#include <QSslConfiguration>

#include <cstdio>
#include <utility>

using namespace Qt::StringLiterals;

namespace {

// A server that goes silent would hold the whole update run; after this long
// without a byte the request fails like any other.
constexpr int inactivityLimitInMilliseconds = 60'000;

// A body of announced length is received into one block, up to this. Otherwise
// the network library holds it in small pieces, thousands of which pile up while
// the window is busy, and builds the whole beside them. It does without the block
// where memory is short.
constexpr qint64 largestBlock = 4LL << 30;

// Smaller bodies are worth a copy that outlives the reply.
constexpr qint64 smallestBodyWithoutCopy = 1LL << 20;

QString temporaryName(const QString& fileName)
{
    return fileName + "-new"_L1;
}

QString targetName(const QString& fileName, const QUrl& url)
{
    return fileName.isEmpty() ? url.fileName(QUrl::FullyDecoded) : fileName;
}

/// Without a folder the application folder stands as it is, without a separator:
/// the file name is then joined directly to it, on purpose.
QString targetFolder(const QString& folder)
{
    return folder.isEmpty() ? QCoreApplication::applicationDirPath() : folder + QDir::separator();
}

QNetworkRequest
makeRequest(const QUrl& url, bool useTls, bool sendIfModifiedSince, const QDateTime& timestamp)
{
    QNetworkRequest request(url);
    request.setHeader(QNetworkRequest::UserAgentHeader, applicationDisplayName);
    request.setTransferTimeout(inactivityLimitInMilliseconds);
    request.setAttribute(QNetworkRequest::MaximumDownloadBufferSizeAttribute, largestBlock);
    if (sendIfModifiedSince)
        request.setHeader(QNetworkRequest::IfModifiedSinceHeader, timestamp);
    if (useTls) {
        QSslConfiguration tls = QSslConfiguration::defaultConfiguration();
        tls.setProtocol(QSsl::TlsV1_2);
        request.setSslConfiguration(tls);
    }
    return request;
}

/// Reads the whole body into the log, so that nothing is left of it to write.
void logFailure(QNetworkReply* reply)
{
    qWarning() << "ErrorNo: " << reply->error() << "for url: " << reply->url().toString();
    qDebug() << "Request failed, " << reply->errorString();
    qDebug() << "Headers:" << reply->rawHeaderList() << "content:" << reply->readAll();
}

/// What is left to read of a finished reply. A large body is not copied: it lies
/// in the reply's memory and lives as long as the reply.
QByteArray bodyOf(QNetworkReply* reply)
{
    const auto block
        = reply->attribute(QNetworkRequest::DownloadBufferAttribute).value<QSharedPointer<char>>();
    const qint64 size = reply->bytesAvailable();
    // A reply that was given up is closed, however much it has received.
    if (!block || !reply->isOpen() || size < smallestBodyWithoutCopy)
        return reply->readAll();
    return QByteArray::fromRawData(block.data(), size);
}

} // namespace

FileDownloader::FileDownloader(
    bool useTls, bool sendIfModifiedSince, QObject* progressReceiver, QUrl source,
    QDateTime timestamp, QString folder, QString name, QObject* parent)
    : QObject(parent)
{
    connectStages(progressReceiver);
    url = std::move(source);
    fileName = std::move(name);
    path = std::move(folder);
    const QNetworkRequest request = makeRequest(url, useTls, sendIfModifiedSince, timestamp);
    connect(
        this,
        SIGNAL(downloadStarted(QString)), progressReceiver,
               SLOT(setDownloadLabelAndProgressBar(QString)));
    connect(&manager, SIGNAL(finished(QNetworkReply*)), this, SLOT(fileDownloaded(QNetworkReply*)));
    emit downloadStarted(fileName);
    reply = manager.get(request);
}

bool FileDownloader::download(
    bool useTls, QObject* progressReceiver, QObject* doneFlag, QUrl url, QDateTime timestamp,
    QString path, QString fileName)
{
    qDebug() << useTls << url << path << fileName;
    auto* downloader = new FileDownloader(
        useTls, true, progressReceiver, url, timestamp, targetFolder(path),
        targetName(fileName, url), nullptr);
    downloader->reportEndTo(progressReceiver, doneFlag);
    return downloader->written;
}

bool FileDownloader::downloadPlain(
    QObject* progressReceiver, QObject* doneFlag, QUrl url, QString path, QString fileName)
{
    qDebug() << url << path << fileName;
    auto* downloader = new FileDownloader(
        false, false, progressReceiver, url, fixedReferenceTime(), targetFolder(path),
        targetName(fileName, url), nullptr);
    downloader->reportEndTo(progressReceiver, doneFlag);
    return downloader->written;
}

void FileDownloader::connectStages(QObject* progressReceiver)
{
    connect(
        this,
        SIGNAL(filePreWriteFinished(QString,QString)), this, SLOT(renameFile(QString,QString)));
    connect(this, SIGNAL(fileWriteFinished()), this, SLOT(setStateToTrue()));
    connect(this, SIGNAL(notModiefied()), this, SLOT(setStateToFalse()));
    connect(
        this,
        SIGNAL(fileWriteFinished()), progressReceiver, SLOT(hideDownloadLabelAndProgressBar()));
    connect(
        this, SIGNAL(notModiefied()), progressReceiver, SLOT(hideDownloadLabelAndProgressBar()));
    // The blank in the slot's signature is meant; the toolkit takes it out.
    connect(
        this,
        SIGNAL(downloaded(QByteArray,QString,QString)), this,
            SLOT(writeFile(QByteArray,QString, QString))); // clazy:exclude=connect-not-normalized
}

void FileDownloader::reportEndTo(QObject* progressReceiver, QObject* doneFlag)
{
    connect(this, SIGNAL(fileWriteFinished()), doneFlag, SLOT(setTrue()));
    connect(this, SIGNAL(notModiefied()), doneFlag, SLOT(setTrue()));
    connect(
        reply,
        SIGNAL(downloadProgress(qint64,qint64)), progressReceiver,
               SLOT(updateProgressBar(qint64,qint64)));
}

void FileDownloader::fileDownloaded(QNetworkReply* pReply)
{
    releaseConnection();
    // No early return: the body is spent in the log, and the empty rest below
    // ends as not modified. That is how every failure ends.
    if (pReply->error() != QNetworkReply::NoError)
        logFailure(pReply);

    constexpr int notModified = 304;
    if (pReply->attribute(QNetworkRequest::HttpStatusCodeAttribute).toInt() == notModified) {
        emit notModiefied();
        return;
    }
    qDebug() << "got an answer";
    const QByteArray body = bodyOf(pReply);
    pReply->deleteLater();
    emit downloaded(body, path, fileName);
}

void FileDownloader::writeFile(QByteArray data, QString folder, QString filename)
{
    if (data.isEmpty()) {
        emit notModiefied();
        return;
    }
    const QString temporary = temporaryName(filename);
    if (QFile::exists(folder + temporary))
        QFile::remove(folder + temporary);

    QFile file(folder + temporary);
    const bool opened = file.open(QIODevice::WriteOnly);
    if (!opened) {
        std::fprintf(
            stderr, "Could not open %s for writing: %s\n", qPrintable(temporary),
            qPrintable(file.errorString()));
    }
    // Also into a file that did not open: the toolkit's warning in the log tells
    // that the body had come.
    const bool complete = file.write(data) == data.size() && file.flush();
    file.close();
    // A full disk leaves a torso, which must not take the target's place.
    if (opened && !complete)
        file.remove();
    emit filePreWriteFinished(folder, filename);
}

void FileDownloader::renameFile(QString folder, QString filename)
{
    const QString target = folder + filename;
    const QString temporary = folder + temporaryName(filename);
    // A folder of that name is none of ours and must not take the target's place.
    if (QFileInfo(temporary).isFile()) {
        if (QFile::exists(target))
            QFile::remove(target);
        QFile::rename(temporary, target);
    }
    emit fileWriteFinished();
}

void FileDownloader::setStateToTrue()
{
    written = true;
}

void FileDownloader::setStateToFalse()
{
    written = false;
}

/// An idle manager holds a thread and an open connection, and a run of a
/// thousand files would run out of descriptors. Deferred, because the reply's
/// signal is still being delivered.
void FileDownloader::releaseConnection()
{
    QMetaObject::invokeMethod(
        &manager, [this] { manager.clearConnectionCache(); }, Qt::QueuedConnection);
}
