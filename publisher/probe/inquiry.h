#pragma once

#include "publisher/probe/connectaddress.h"
#include "publisher/probe/probeanswer.h"
#include "publisher/probe/seencertificate.h"

#include <QDateTime>
#include <QHash>
#include <QObject>
#include <QQueue>
#include <QUrl>

#include <functional>
#include <optional>

QT_BEGIN_NAMESPACE
class QNetworkAccessManager;
class QNetworkReply;
class QNetworkRequest;
QT_END_NAMESPACE

namespace Publisher {

/// Asks web servers in the form in which launchers ask, four questions at a time at
/// most, and takes in the answers. It judges none of them.
class Inquiry : public QObject {
    Q_OBJECT

public:
    /// How much of a body is wanted.
    enum class Body {
        /// Cuts the connection behind it.
        Beginning,
        Whole,
        /// Reads everything and keeps the hash and the beginning.
        Hash,
    };

    enum class Tls {
        /// The only version that launchers speak.
        Version12,
        /// Every version that the libraries of this machine know, however old.
        AnyVersion,
    };

    using Handler = std::function<void(const ProbeAnswer&)>;

    struct Question {
        QUrl url;
        /// No such header when it is invalid.
        QDateTime ifModifiedSince;
        Body body = Body::Beginning;
        /// Gets the answer behind all redirects, or the failure.
        Handler handler;
        Tls tls = Tls::Version12;
        /// Length of the beginning, in bytes.
        qint64 beginning = 1024;
        /// The answer's SHA-256 is wanted besides its MD5.
        bool sha256 = false;
        /// How many have been followed.
        int redirects = 0;
    };

    /// Gives up on a server that says nothing for so long.
    explicit Inquiry(int secondsOfSilence);

    /// From now on questions for this host go to one of the servers behind its name.
    /// They name the host all the same, and its certificate is expected.
    void connectTo(const QString& host, const ConnectAddress& address);

    /// Questions are sent in the order in which they are asked. A handler may ask.
    void ask(Question question);
    /// Forgets the questions that have not been sent yet.
    void forgetTheRest();
    /// Whether an answer is awaited.
    bool isUnderWay() const;

    /// Days until the first certificate of all chains so far ends, nothing without
    /// one.
    std::optional<qint64> certificateDays() const;

    /// How the last connection that was made is secured.
    struct Session {
        /// SHA-256 of the server's own certificate, in hexadecimal digits.
        QString fingerprint;
        /// Version and cipher, "TLSv1.3 TLS_AES_256_GCM_SHA384".
        QString tls;
    };
    std::optional<Session> session() const;
    /// What a host has sent of certificates, its own first; none before it is asked.
    QList<SeenCertificate> certificates(const QString& host) const;

signals:
    /// So much of a body that is read for its hash.
    void received(qint64 bytes);
    /// All questions are answered, and no handler has asked another one.
    void finished();

private:
    struct Exchange;

    void askOn();
    void send(const Question& question);
    QNetworkRequest request(const Question& question) const;
    void read(QNetworkReply& reply, Exchange& exchange);
    void readOn(QNetworkReply& reply, Exchange& exchange);
    void conclude(QNetworkReply& reply, Exchange& exchange);
    void handOver(Exchange& exchange);
    void takeCertificates(const QString& host, const QNetworkReply& reply);

    int silence;
    QNetworkAccessManager* manager;
    QQueue<Question> waiting;
    int underWay = 0;
    std::optional<qint64> days;
    std::optional<Session> lastSession;
    QHash<QString, QList<SeenCertificate>> chains;
    QString routedHost;
    ConnectAddress route;
};

} // namespace Publisher
