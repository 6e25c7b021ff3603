#pragma once

#include "publisher/common/finding.h"
#include "publisher/common/serverlayout.h"
#include "publisher/probe/answerheaders.h"

#include <QDateTime>
#include <QList>
#include <QNetworkAccessManager>
#include <QObject>
#include <QQueue>
#include <QSet>
#include <QSsl>
#include <QSslCertificate>
#include <QString>
#include <QUrl>

#include <functional>
#include <optional>

QT_BEGIN_NAMESPACE
class QNetworkReply;
QT_END_NAMESPACE

namespace Publisher {

/// What is asked of a live server.
struct ProbeRequest {
    /// Ends in "/".
    QUrl baseUrl;
    /// The test manifest and its files as well.
    bool test = false;
    /// Downloads every file and compares its hash.
    bool deep = false;
    /// Folder that holds what should be served; empty when there is none here.
    QString tree;
    /// The text in the launcher's window; empty when it is not asked for.
    QUrl infoUrl;
    /// A certificate that ends sooner is a finding.
    int daysOfCertificate = 14;
    /// Gives up on a server that says nothing for so long.
    int secondsOfSilence = 60;
};

/// One answer of the server, with its headers.
struct ProbeAnswer : AnswerHeaders {
    /// What was asked for, without redirects.
    QUrl url;
    int status = 0;
    /// Why the request failed, empty when it did not.
    QString error;
    /// The failure is that nobody has said anything.
    bool isSilent = false;
    /// The failure tells nothing about protocols: nobody was there to speak one.
    bool isNobodyThere = false;
    QString certificateError;
    bool redirectsToPlain = false;
    qint64 received = 0;
    /// The body was read to its end, not only its beginning.
    bool toTheEnd = false;
    QByteArray md5;
    /// The whole body or its beginning, as it was asked for.
    QByteArray body;
};

/// Asks a server what launchers will ask it, a few requests at a time, and
/// gathers what would go wrong. Serves one inquiry.
class Probe : public QObject {
    Q_OBJECT

public:
    explicit Probe(ProbeRequest request);

    void start();

    QList<Finding> findings() const;
    /// Days until the certificate ends, nothing without one.
    std::optional<qint64> certificateDays() const;
    /// Patch files and launcher files that have been asked for.
    qint64 filesAsked() const;
    /// Whether the server has answered at all.
    bool isReached() const;
    /// What went wrong on this machine, as a sentence: then the findings are not
    /// complete. Empty when all went well.
    QString error() const;

signals:
    void finished();
    /// A body has been read so far, or to its end.
    void received(qint64 bytes);
    void fileDone();

private:
    using Handler = std::function<void(const ProbeAnswer&)>;

    /// How much of the body is wanted.
    enum class Body { Beginning, Whole, Hash };

    /// A question that waits for its turn.
    struct Question {
        QUrl url;
        QDateTime ifModifiedSince;
        Body body;
        Handler handler;
        QSsl::SslProtocol tls = QSsl::TlsV1_2;
        int redirects = 0;
        /// As much is read for Body::Beginning, and kept for Body::Hash.
        qint64 beginning = 1024;
    };

    /// A file that one entry of a manifest names.
    struct PatchFile {
        QString manifest;
        qint64 entry;
        QUrl url;
        QString hash;
        QString serverPath;
    };

    void ask(Question question);
    void askOn();
    void send(const Question& question);
    void end(QNetworkReply* reply, const Question& question, ProbeAnswer answer);

    void add(FindingId id, const QString& subject, const QString& text, qint64 entry = 0);
    QUrl address(const QString& name) const;

    void takeFirstAnswer(const ProbeAnswer& answer);
    void explainFailure(const ProbeAnswer& answer);
    void askForOldVersions(const QString& error);
    void askWithoutTls(const QString& error);
    void takeCertificates(const QList<QSslCertificate>& chain);
    void askManifest(Kind kind);
    void takeManifest(Kind kind, const ProbeAnswer& answer);
    void askFilesOf(Kind kind, const QByteArray& manifest);
    void askInfo();
    void takeInfo(const ProbeAnswer& answer);
    void checkDate(const QString& name, const ProbeAnswer& answer);
    void checkCaching(const QString& name, const ProbeAnswer& answer);
    void compareManifest(const QString& name, const ProbeAnswer& answer);
    void askLauncherFile(const QString& name);
    void takeLauncherFile(const QString& name, const ProbeAnswer& answer);
    void askForMissing(const QString& name);
    void askDates(const QString& name, const ProbeAnswer& answer);
    void askPatchFile(const PatchFile& file, const QDateTime& ifModifiedSince);
    void takePatchFile(const PatchFile& file, const ProbeAnswer& answer);
    bool
    isUsable(const QString& subject, qint64 entry, FindingId missing, const ProbeAnswer& answer);
    void compareWithTree(const PatchFile& file, const ProbeAnswer& answer);
    void compareHash(const PatchFile& file, const ProbeAnswer& answer);

    ProbeRequest asked;
    QNetworkAccessManager manager;
    QQueue<Question> waiting;
    int underWay = 0;
    bool isServerReached = false;
    QString trouble;
    QDateTime serverTime;
    /// Manifests that the tree has none of.
    QSet<QString> notInTree;
    qint64 files = 0;
    QList<Finding> found;
    std::optional<qint64> days;
};

} // namespace Publisher
