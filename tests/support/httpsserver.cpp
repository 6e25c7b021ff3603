#include "tests/support/httpsserver.h"

#include "tests/support/rawsockets.h"
#include "tests/support/timezone.h"

#include <QDeadlineTimer>
#include <QLocale>
#include <QPointer>
#include <QSslConfiguration>
#include <QSslSocket>
#include <QThread>
#include <QTimer>

namespace TestSupport {

namespace {

// The toolkit's own limit of five seconds is short for a server that shares its
// event loop with a launcher at work: a client in the middle of its handshake
// would be cut off on a busy machine.
constexpr int handshakePatienceInMilliseconds = 600'000;

const QByteArray lineEnd = "\r\n";
const QByteArray headEnd = "\r\n\r\n";

QByteArray reasonPhrase(int code)
{
    static const QHash<int, QByteArray> phrases{ { 200, "OK" },
                                                 { 301, "Moved Permanently" },
                                                 { 302, "Found" },
                                                 { 304, "Not Modified" },
                                                 { 403, "Forbidden" },
                                                 { 404, "Not Found" },
                                                 { 500, "Internal Server Error" },
                                                 { 503, "Service Unavailable" } };
    return phrases.value(code, "Unnamed");
}

/// Whether a client that holds a copy of that time needs no newer one.
bool isCurrent(const QByteArray& ifModifiedSince, const QDateTime& lastModified)
{
    const QDateTime copy = fromHttpDate(ifModifiedSince);
    return copy.isValid() && copy.toSecsSinceEpoch() >= lastModified.toSecsSinceEpoch();
}

HttpRequest parseRequest(const QByteArray& head)
{
    QList<QByteArray> lines = head.split('\n');
    const QList<QByteArray> first = lines.takeFirst().trimmed().split(' ');
    HttpRequest request;
    request.method = first.value(0);
    request.path = first.value(1);
    for (const QByteArray& line : std::as_const(lines)) {
        const qsizetype colon = line.indexOf(':');
        request.headers.append({ line.left(colon).trimmed(), line.mid(colon + 1).trimmed() });
    }
    return request;
}

QByteArray protocolName(TlsVersion version)
{
    switch (version) {
    case TlsVersion::Only10:
        return "TLSv1";
    case TlsVersion::Only11:
        return "TLSv1.1";
    case TlsVersion::Only12:
        return "TLSv1.2";
    case TlsVersion::Only13:
        return "TLSv1.3";
    case TlsVersion::Any:
        break;
    }
    return QByteArray();
}

QSslConfiguration serverConfiguration(const ServerCertificate& certificate, TlsVersion version)
{
    QSslConfiguration tls = QSslConfiguration::defaultConfiguration();
    tls.setLocalCertificateChain(QList{ certificate.certificate } + certificate.others);
    tls.setPrivateKey(certificate.key);
    // Or the TLS library would look for intermediates to be sent in the machine's store.
    tls.setCaCertificates({});
    if (version != TlsVersion::Any) {
        // Or the toolkit would keep the old versions out on its own.
        tls.setProtocol(QSsl::AnyProtocol);
        tls.setBackendConfigurationOption("MinProtocol", protocolName(version));
        tls.setBackendConfigurationOption("MaxProtocol", protocolName(version));
    }
    // The old protocols sign with SHA-1, which the default level refuses.
    if (version == TlsVersion::Only10 || version == TlsVersion::Only11)
        tls.setBackendConfigurationOption("CipherString", QByteArray("ALL:@SECLEVEL=0"));
    return tls;
}

} // namespace

QByteArray httpDate(const QDateTime& time)
{
    return QLocale::c().toString(time.toUTC(), u"ddd, dd MMM yyyy hh:mm:ss 'GMT'").toLatin1();
}

QDateTime fromHttpDate(const QByteArray& text)
{
    const QDateTime time = QLocale::c().toDateTime(text, "ddd, dd MMM yyyy hh:mm:ss 'GMT'");
    return utc(time.date(), time.time());
}

QByteArray HttpRequest::header(const QByteArray& name) const
{
    for (const auto& [key, value] : headers) {
        if (key.compare(name, Qt::CaseInsensitive) == 0)
            return value;
    }
    return QByteArray();
}

HttpAnswer HttpAnswer::head(int code, const HttpHeaders& headers)
{
    QByteArray text = "HTTP/1.1 " + QByteArray::number(code) + ' ' + reasonPhrase(code);
    for (const auto& [name, value] : headers)
        text += lineEnd + name + ": " + value;
    return HttpAnswer().send(text + headEnd);
}

HttpAnswer HttpAnswer::status(int code, const QByteArray& body, const HttpHeaders& headers)
{
    const HttpHeaders length{ { "Content-Length", QByteArray::number(body.size()) } };
    return head(code, length + headers).send(body);
}

HttpAnswer HttpAnswer::ok(const QByteArray& body, const HttpHeaders& headers)
{
    return status(200, body, headers);
}

HttpAnswer HttpAnswer::notModified()
{
    return head(304);
}

HttpAnswer HttpAnswer::redirect(const QByteArray& location, int code)
{
    return status(code, "moved", { { "Location", location } });
}

HttpAnswer HttpAnswer::announcing(qint64 length)
{
    return head(200, { { "Content-Length", QByteArray::number(length) } });
}

HttpAnswer HttpAnswer::chunked(const QList<QByteArray>& chunks)
{
    HttpAnswer answer = head(200, { { "Transfer-Encoding", "chunked" } });
    for (const QByteArray& chunk : chunks)
        answer.send(QByteArray::number(chunk.size(), 16) + lineEnd + chunk + lineEnd);
    return answer.send("0" + headEnd);
}

HttpAnswer HttpAnswer::held(const HttpAnswer& answer)
{
    HttpAnswer later;
    later.awaitRelease();
    later.steps += answer.steps;
    return later;
}

HttpAnswer& HttpAnswer::send(const QByteArray& bytes)
{
    return add({ Kind::Send, bytes });
}

HttpAnswer& HttpAnswer::drip(const QByteArray& bytes, qsizetype size, int milliseconds)
{
    for (qsizetype at = 0; at < bytes.size(); at += size)
        send(bytes.mid(at, size)).pause(milliseconds);
    return *this;
}

HttpAnswer& HttpAnswer::repeat(const QByteArray& piece)
{
    return add({ Kind::Repeat, piece });
}

HttpAnswer& HttpAnswer::pause(int milliseconds)
{
    return add({ Kind::Pause, {}, milliseconds });
}

HttpAnswer& HttpAnswer::awaitBytes()
{
    return add({ Kind::AwaitBytes });
}

HttpAnswer& HttpAnswer::awaitRelease()
{
    return add({ Kind::AwaitRelease });
}

HttpAnswer& HttpAnswer::close()
{
    return add({ Kind::Close });
}

HttpAnswer& HttpAnswer::reset()
{
    return add({ Kind::Reset });
}

HttpAnswer& HttpAnswer::add(Step step)
{
    steps.append(std::move(step));
    return *this;
}

/// One accepted connection: reads requests and plays their answers. Owned by
/// its socket.
class HttpConnection : public QObject {
    Q_OBJECT

public:
    HttpConnection(QTcpSocket* connected, HttpsServer* owner)
        : QObject(connected)
        , socket(connected)
        , server(owner)
    {
        ++server->open;
        // A small write that waits for the acknowledgement of the one before
        // costs a test more than everything else.
        socket->setSocketOption(QAbstractSocket::LowDelayOption, 1);
        connect(socket, &QTcpSocket::readyRead, this, &HttpConnection::bytesArrived);
        // Queued, or an endless answer to a fast client would never return.
        connect(
            socket, &QTcpSocket::bytesWritten, this, &HttpConnection::bytesLeft,
            Qt::QueuedConnection);
        connect(socket, &QTcpSocket::disconnected, this, &HttpConnection::end);
        connect(server, &HttpsServer::released, this, &HttpConnection::goOn);
    }

    void play(const HttpAnswer& answer)
    {
        steps = answer.steps;
        playOn();
    }

private:
    using Kind = HttpAnswer::Kind;

    void bytesArrived()
    {
        if (awaiting) {
            awaiting = false;
            playOn();
        } else if (steps.isEmpty() && !isWaiting()) {
            readRequest();
        }
    }

    void readRequest()
    {
        received += socket->readAll();
        const qsizetype end = received.indexOf(headEnd);
        if (end < 0)
            return;
        HttpRequest request = parseRequest(received.left(end));
        received.remove(0, end + headEnd.size());
        if (const auto* encrypted = qobject_cast<QSslSocket*>(socket))
            request.tls = encrypted->sessionProtocol();
        play(server->answerTo(request));
    }

    bool isWaiting() const
    {
        return awaiting || held || paused || !repeated.isEmpty();
    }

    void goOn()
    {
        if (!held)
            return;
        held = false;
        playOn();
    }

    /// Plays until a step has to wait for something.
    void playOn()
    {
        while (!steps.isEmpty() && !isWaiting())
            playStep(steps.takeFirst());
        if (!isWaiting() && socket->bytesAvailable() > 0)
            readRequest();
    }

    void playStep(const HttpAnswer::Step& step)
    {
        switch (step.kind) {
        case Kind::Send:
            socket->write(step.bytes);
            break;
        case Kind::Repeat:
            repeated = step.bytes;
            socket->write(repeated);
            break;
        case Kind::Pause:
            pause(step.milliseconds);
            break;
        case Kind::AwaitBytes:
            awaiting = socket->bytesAvailable() == 0;
            break;
        case Kind::AwaitRelease:
            held = true;
            break;
        case Kind::Close:
            socket->disconnectFromHost();
            break;
        case Kind::Reset:
            reset();
            break;
        }
    }

    void pause(int milliseconds)
    {
        paused = true;
        QTimer::singleShot(milliseconds, this, [this] {
            paused = false;
            playOn();
        });
    }

    void bytesLeft()
    {
        if (!repeated.isEmpty() && socket->bytesToWrite() == 0)
            socket->write(repeated);
    }

    void reset()
    {
        // What was sent before the reset must be on the wire before it.
        socket->flush();
        resetConnection(socket);
    }

    void end()
    {
        steps.clear();
        repeated.clear();
        --server->open;
        socket->deleteLater();
    }

    QTcpSocket* socket;
    HttpsServer* server;
    QByteArray received;
    QList<HttpAnswer::Step> steps;
    QByteArray repeated;
    bool awaiting = false;
    bool held = false;
    bool paused = false;
};

namespace {

/// A program that is being started holds copies of all this process's sockets
/// until it is itself, or until that has failed; the port is taken as long.
void listenOrFail(QTcpServer& server, quint16 port)
{
    const QDeadlineTimer deadline(10'000);
    while (!server.listen(QHostAddress::LocalHost, port)) {
        if (deadline.hasExpired())
            qFatal("cannot listen on port %d: %s", port, qPrintable(server.errorString()));
        QThread::yieldCurrentThread();
    }
}

} // namespace

HttpsServer::HttpsServer(const ServerCertificate& certificate, TlsVersion version)
    : fallback([](const HttpRequest&) { return HttpAnswer::status(404, "no such file"); })
{
    encryptedServer.setSslConfiguration(serverConfiguration(certificate, version));
    encryptedServer.setHandshakeTimeout(handshakePatienceInMilliseconds);
    connect(&encryptedServer, &QSslServer::errorOccurred, this, [this](const QSslSocket* socket) {
        failed += socket->isEncrypted() ? 0 : 1;
    });
    for (QTcpServer* server : { static_cast<QTcpServer*>(&encryptedServer), &plainServer })
        connect(server, &QTcpServer::pendingConnectionAvailable, this, [this, server] {
            take(server);
        });
}

HttpsServer::~HttpsServer()
{
    shutDown();
}

void HttpsServer::listen(quint16 port)
{
    listenOrFail(encryptedServer, port);
}

void HttpsServer::listenPlain(quint16 port)
{
    listenOrFail(plainServer, port);
}

quint16 HttpsServer::port() const
{
    return encryptedServer.serverPort();
}

quint16 HttpsServer::plainPort() const
{
    return plainServer.serverPort();
}

void HttpsServer::stopListening()
{
    encryptedServer.close();
    plainServer.close();
}

void HttpsServer::shutDown()
{
    stopListening();
    for (QTcpServer* server : { static_cast<QTcpServer*>(&encryptedServer), &plainServer }) {
        const auto sockets = server->findChildren<QTcpSocket*>();
        for (QTcpSocket* socket : sockets)
            socket->abort();
    }
}

void HttpsServer::release()
{
    emit released();
}

void HttpsServer::answer(const QByteArray& path, const HttpAnswer& answer)
{
    handlers.insert(path, [answer](const HttpRequest&) { return answer; });
}

void HttpsServer::answer(const QByteArray& path, const Handler& handler)
{
    handlers.insert(path, handler);
}

void HttpsServer::serve(
    const QByteArray& path, const QByteArray& body, const QDateTime& lastModified)
{
    handlers.insert(path, servingFile(body, lastModified));
}

HttpsServer::Handler HttpsServer::servingFile(const QByteArray& body, const QDateTime& lastModified)
{
    return [body, lastModified](const HttpRequest& request) {
        return isCurrent(request.header("If-Modified-Since"), lastModified)
            ? HttpAnswer::notModified()
            : HttpAnswer::ok(body, { { "Last-Modified", httpDate(lastModified) } });
    };
}

void HttpsServer::answerAnythingElse(const Handler& handler)
{
    fallback = handler;
}

void HttpsServer::greet(const HttpAnswer& answer)
{
    greeting = answer;
}

void HttpsServer::offerProtocols(const QList<QByteArray>& names)
{
    QSslConfiguration tls = encryptedServer.sslConfiguration();
    tls.setAllowedNextProtocols(names);
    encryptedServer.setSslConfiguration(tls);
}

QList<HttpRequest> HttpsServer::requests() const
{
    return recorded;
}

QStringList HttpsServer::requestedPaths() const
{
    QStringList paths;
    for (const HttpRequest& request : recorded)
        paths.append(request.path);
    return paths;
}

int HttpsServer::requestCount(const QByteArray& path) const
{
    return static_cast<int>(requestedPaths().count(QString::fromLatin1(path)));
}

void HttpsServer::forgetRequests()
{
    recorded.clear();
}

int HttpsServer::openConnections() const
{
    return open;
}

int HttpsServer::failedHandshakes() const
{
    return failed;
}

void HttpsServer::take(QTcpServer* server)
{
    while (QTcpSocket* socket = server->nextPendingConnection()) {
        auto* connection = new HttpConnection(socket, this);
        connection->play(greeting);
    }
}

HttpAnswer HttpsServer::answerTo(const HttpRequest& request)
{
    recorded.append(request);
    emit requested(request.path);
    return handlers.value(request.path, fallback)(request);
}

} // namespace TestSupport

#include "httpsserver.moc"
