#pragma once

#include <QByteArray>
#include <QDateTime>
#include <QNetworkAccessManager>
#include <QObject>
#include <QString>
#include <QUrl>

QT_BEGIN_NAMESPACE
class QNetworkReply;
QT_END_NAMESPACE

/// Fetches one file by GET and puts it in place of the target without ever
/// leaving a half-written target: the body goes to a sibling with the suffix
/// "-new" first.
///
/// A download always ends by setting the caller's flag true, whether the file
/// was written, was not modified or failed; a failure leaves the target as it
/// was. Downloaders have no parent and live until the process ends; the thread
/// and the connection behind one are given back as soon as its reply is done.
class FileDownloader : public QObject {
    Q_OBJECT

public:
    /// Issues the request at once. `path` is joined to `fileName` as it stands.
    /// `timestamp` is sent as If-Modified-Since only when asked for; `useTls`
    /// demands TLS 1.2. The receiver must offer the slots
    /// setDownloadLabelAndProgressBar(QString) and
    /// hideDownloadLabelAndProgressBar().
    FileDownloader(
        bool useTls, bool sendIfModifiedSince, QObject* progressReceiver, QUrl url,
        QDateTime timestamp, QString path, QString fileName, QObject* parent);

    /// Starts a download that the server may answer with 304. An empty
    /// `fileName` takes the URL's last segment; an empty `path` is the
    /// application folder's path string without a separator behind it.
    /// `progressReceiver` also needs updateProgressBar(qint64,qint64),
    /// `doneFlag` needs setTrue(). Returns false: nothing is written yet.
    static bool download(
        bool useTls, QObject* progressReceiver, QObject* doneFlag, QUrl url, QDateTime timestamp,
        QString path, QString fileName);

    /// The same without TLS settings of our own and without If-Modified-Since.
    static bool downloadPlain(
        QObject* progressReceiver, QObject* doneFlag, QUrl url, QString path, QString fileName);

signals:
    /// Body, path, file name. The body is empty after a failed request. A large
    /// one is the reply's own memory: whoever keeps it makes a deep copy.
    void downloaded(QByteArray, QString, QString);
    /// The target has been replaced, as far as the file system allowed.
    void fileWriteFinished();
    /// Path, file name. The "-new" file is written and closed.
    void filePreWriteFinished(QString, QString);
    /// 304, an empty body, or a failure. The connections of the whole system
    /// name this signal as it is spelt here.
    void notModiefied();
    /// File name.
    void downloadStarted(QString);

private slots:
    void fileDownloaded(QNetworkReply* pReply);
    void writeFile(QByteArray data, QString path, QString filename);
    void renameFile(QString path, QString filename);
    void setStateToTrue();
    void setStateToFalse();

private:
    void connectStages(QObject* progressReceiver);
    void reportEndTo(QObject* progressReceiver, QObject* doneFlag);
    void releaseConnection();

    QNetworkAccessManager manager;
    /// Not owned; gone once a body has been delivered.
    QNetworkReply* reply = nullptr;
    /// Stays empty: bodies travel through the signals.
    QByteArray buffer;
    QUrl url;
    QString path;
    QString fileName;
    bool written = false;
};
