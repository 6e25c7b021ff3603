#pragma once

#include "tests/support/certificateauthority.h"

#include <QHash>
#include <QList>
#include <QObject>
#include <QPair>
#include <QSsl>
#include <QSslServer>
#include <QTcpServer>

#include <functional>

namespace TestSupport {

using HttpHeaders = QList<QPair<QByteArray, QByteArray>>;

/// A request as it came over the wire.
struct HttpRequest {
    QByteArray method;
    /// Path and query, still percent-encoded.
    QByteArray path;
    /// In the order of the request, names as they were spelt.
    HttpHeaders headers;
    /// UnknownProtocol for a request that came without TLS.
    QSsl::SslProtocol tls = QSsl::UnknownProtocol;

    /// Value of a header, whatever its case; null when it was not sent.
    QByteArray header(const QByteArray& name) const;
};

/// What a connection does, step by step. A connection whose steps are used up
/// stays open and takes the next request; so an answer without any step hangs.
///
/// Headers are written as given: nothing is added but the Content-Length of
/// `status()`, and nothing is checked, so that an answer can lie.
class HttpAnswer {
public:
    /// Hangs.
    HttpAnswer() = default;

    /// A complete and honest answer.
    static HttpAnswer
    status(int code, const QByteArray& body = QByteArray(), const HttpHeaders& headers = {});
    static HttpAnswer ok(const QByteArray& body, const HttpHeaders& headers = {});
    static HttpAnswer notModified();
    static HttpAnswer redirect(const QByteArray& location, int code = 302);
    /// Status line and headers alone, up to and including the empty line.
    static HttpAnswer head(int code, const HttpHeaders& headers = {});
    /// Headers that announce `length` bytes; what follows may be something else.
    static HttpAnswer announcing(qint64 length);
    /// The body in the chunked encoding, one chunk per element.
    static HttpAnswer chunked(const QList<QByteArray>& chunks);
    /// The same answer, but not before the server's next `release()`.
    static HttpAnswer held(const HttpAnswer& answer);

    HttpAnswer& send(const QByteArray& bytes);
    /// Sends `bytes` in pieces of `size`, the next one after `milliseconds`.
    HttpAnswer& drip(const QByteArray& bytes, qsizetype size, int milliseconds);
    /// Sends the piece again and again, as fast as the client takes it.
    HttpAnswer& repeat(const QByteArray& piece);
    HttpAnswer& pause(int milliseconds);
    /// Goes on when the client has sent something; for greetings.
    HttpAnswer& awaitBytes();
    /// Goes on with the server's next `release()`.
    HttpAnswer& awaitRelease();
    /// Orderly end of the connection after everything is sent.
    HttpAnswer& close();
    /// Cuts the connection with a TCP reset.
    HttpAnswer& reset();

private:
    friend class HttpConnection;
    enum class Kind { Send, Repeat, Pause, AwaitBytes, AwaitRelease, Close, Reset };
    struct Step {
        Kind kind;
        QByteArray bytes = {};
        int milliseconds = 0;
    };

    HttpAnswer& add(Step step);

    QList<Step> steps;
};

enum class TlsVersion { Any, Only10, Only11, Only12, Only13 };

/// A web server for tests, in the event loop of the test. Speaks HTTP/1.1 with
/// and without TLS, on any port, and records what it is asked.
///
/// A path without an answer gets 404. An answer stays until it is replaced.
/// The server ends the process when it cannot listen.
class HttpsServer : public QObject {
    Q_OBJECT

public:
    using Handler = std::function<HttpAnswer(const HttpRequest&)>;

    explicit HttpsServer(
        const ServerCertificate& certificate = trustedCertificate(),
        TlsVersion version = TlsVersion::Any);
    ~HttpsServer() override;

    /// With TLS. Port 0 takes any free port, see `port()`.
    void listen(quint16 port = 443);
    /// Without TLS.
    void listenPlain(quint16 port = 80);
    quint16 port() const;
    quint16 plainPort() const;
    /// Takes no new connections; those at hand go on.
    void stopListening();
    /// Stops listening and cuts every connection.
    void shutDown();
    /// Lets the answers that wait for it go on.
    void release();

    void answer(const QByteArray& path, const HttpAnswer& answer);
    void answer(const QByteArray& path, const Handler& handler);
    /// Serves a file: 304 when the request's If-Modified-Since is not before
    /// `lastModified`, else the body with its Last-Modified.
    void serve(const QByteArray& path, const QByteArray& body, const QDateTime& lastModified);
    /// What `serve()` answers with.
    static Handler servingFile(const QByteArray& body, const QDateTime& lastModified);
    /// For every path that has no answer of its own.
    void answerAnythingElse(const Handler& handler);
    /// Played on every new connection before anything is read from it; on a
    /// plain port this comes where a TLS handshake would.
    void greet(const HttpAnswer& greeting);
    /// What new connections are told about the protocols spoken behind TLS,
    /// the preferred one first. It need not be true.
    void offerProtocols(const QList<QByteArray>& names);

    QList<HttpRequest> requests() const;
    /// Paths of all requests, in order.
    QStringList requestedPaths() const;
    int requestCount(const QByteArray& path) const;
    void forgetRequests();

    /// Connections that are open now, after their handshake.
    int openConnections() const;
    /// Handshakes that failed so far.
    int failedHandshakes() const;

signals:
    void requested(const QByteArray& path);
    void released();

private:
    friend class HttpConnection;
    void take(QTcpServer* server);
    HttpAnswer answerTo(const HttpRequest& request);

    QSslServer encryptedServer;
    QTcpServer plainServer;
    QHash<QByteArray, Handler> handlers;
    Handler fallback;
    HttpAnswer greeting;
    QList<HttpRequest> recorded;
    int open = 0;
    int failed = 0;
};

/// The text of a time in an HTTP header.
QByteArray httpDate(const QDateTime& time);
/// Invalid where the text is no such time.
QDateTime fromHttpDate(const QByteArray& text);

} // namespace TestSupport
