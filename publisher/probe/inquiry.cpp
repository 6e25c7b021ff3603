#include "publisher/probe/inquiry.h"

#include "app/constants.h"

#include <QCryptographicHash>
#include <QNetworkAccessManager>
#include <QNetworkReply>
#include <QNetworkRequest>
#include <QSslCertificate>
#include <QSslCipher>
#include <QSslConfiguration>
#include <QSslError>

#include <algorithm>
#include <memory>
#include <utility>

using namespace Qt::StringLiterals;

namespace Publisher {

/// A request under way, and what has come of it.
struct Inquiry::Exchange {
    Question question;
    ProbeAnswer answer;
    QCryptographicHash hash{ QCryptographicHash::Md5 };
    QCryptographicHash sha256{ QCryptographicHash::Sha256 };
};

namespace {

constexpr qint64 secondsOfADay = 86'400;
constexpr int mostAtOnce = 4;
constexpr int mostRedirects = 5;

/// The toolkit's numbers below tell of connections, from here on of answers.
constexpr int firstErrorOfAnswers = 200;

bool isRedirect(int status)
{
    return status == 301 || status == 302 || status == 303 || status == 307 || status == 308;
}

QSslConfiguration tlsConfiguration(Inquiry::Tls tls)
{
    QSslConfiguration configuration = QSslConfiguration::defaultConfiguration();
    if (tls == Inquiry::Tls::Version12) {
        configuration.setProtocol(QSsl::TlsV1_2);
        return configuration;
    }
    configuration.setProtocol(QSsl::AnyProtocol);
    // Or the toolkit would keep the old versions out on its own.
    configuration.setBackendConfigurationOption("MinProtocol", QByteArray("TLSv1"));
    configuration.setBackendConfigurationOption("CipherString", QByteArray("ALL:@SECLEVEL=0"));
    return configuration;
}

QNetworkRequest makeRequest(const Inquiry::Question& question, int secondsOfSilence)
{
    QNetworkRequest request(question.url);
    request.setHeader(QNetworkRequest::UserAgentHeader, applicationDisplayName);
    if (question.ifModifiedSince.isValid())
        request.setHeader(QNetworkRequest::IfModifiedSinceHeader, question.ifModifiedSince);
    request.setTransferTimeout(1000 * secondsOfSilence);
    // The same offer that the launcher's network layer makes; made by hand, the
    // bytes arrive as they were sent.
    request.setRawHeader("Accept-Encoding", "gzip, deflate");
    request.setAttribute(
        QNetworkRequest::RedirectPolicyAttribute, QNetworkRequest::ManualRedirectPolicy);
    request.setSslConfiguration(tlsConfiguration(question.tls));
    return request;
}

/// Lets a request for a host go to one of the servers behind its name.
void redirectTo(const ConnectAddress& address, QNetworkRequest& request)
{
    QUrl url = request.url();
    const QString port = url.port() < 0 ? QString() : u':' + QString::number(url.port());
    request.setRawHeader("Host", (url.host(QUrl::FullyEncoded) + port).toLatin1());
    request.setPeerVerifyName(url.host());
    // Its later versions tell the server the host of the address instead.
    request.setAttribute(QNetworkRequest::Http2AllowedAttribute, false);
    url.setHost(address.host);
    url.setPort(address.port);
    request.setUrl(url);
}

void takeHeaders(const QNetworkReply& reply, ProbeAnswer& answer)
{
    answer.status = reply.attribute(QNetworkRequest::HttpStatusCodeAttribute).toInt();
    static_cast<AnswerHeaders&>(answer) = AnswerHeaders::read(reply.rawHeaderPairs());
}

/// An answer with the status of an error is no failure.
void takeError(const QNetworkReply& reply, ProbeAnswer& answer)
{
    const QNetworkReply::NetworkError error = reply.error();
    const bool isAnswered = answer.status != 0 && error >= firstErrorOfAnswers;
    if (error == QNetworkReply::NoError || isAnswered)
        return;
    answer.error = reply.errorString();
    answer.isSilent
        = error == QNetworkReply::OperationCanceledError || error == QNetworkReply::TimeoutError;
    answer.isNobodyThere = error == QNetworkReply::ConnectionRefusedError
        || error == QNetworkReply::HostNotFoundError;
}

} // namespace

Inquiry::Inquiry(int secondsOfSilence)
    : silence(secondsOfSilence)
    , manager(new QNetworkAccessManager(this))
{
}

void Inquiry::ask(Question question)
{
    waiting.append(std::move(question));
    askOn();
}

void Inquiry::forgetTheRest()
{
    waiting.clear();
}

bool Inquiry::isUnderWay() const
{
    return underWay > 0;
}

void Inquiry::connectTo(const QString& host, const ConnectAddress& address)
{
    routedHost = host;
    route = address;
}

std::optional<qint64> Inquiry::certificateDays() const
{
    return days;
}

std::optional<Inquiry::Session> Inquiry::session() const
{
    return lastSession;
}

QList<SeenCertificate> Inquiry::certificates(const QString& host) const
{
    return chains.value(host);
}

void Inquiry::askOn()
{
    while (underWay < mostAtOnce && !waiting.isEmpty()) {
        ++underWay;
        send(waiting.dequeue());
    }
    if (underWay == 0)
        emit finished();
}

QNetworkRequest Inquiry::request(const Question& question) const
{
    QNetworkRequest made = makeRequest(question, silence);
    if (!routedHost.isEmpty() && question.url.host() == routedHost)
        redirectTo(route, made);
    return made;
}

void Inquiry::send(const Question& question)
{
    // The manager would go on with the old settings for the same host.
    if (question.tls == Tls::AnyVersion)
        manager->clearConnectionCache();
    QNetworkReply* reply = manager->get(request(question));
    const auto exchange = std::make_shared<Exchange>();
    exchange->question = question;
    exchange->answer.url = question.url;
    connect(reply, &QNetworkReply::readyRead, this, [this, reply, exchange] {
        readOn(*reply, *exchange);
    });
    connect(reply, &QNetworkReply::encrypted, this, [this, reply, exchange] {
        takeCertificates(exchange->question.url.host(), *reply);
    });
    connect(reply, &QNetworkReply::sslErrors, this, [exchange](const QList<QSslError>& errors) {
        exchange->answer.certificateError = errors.value(0).errorString();
    });
    connect(reply, &QNetworkReply::finished, this, [this, reply, exchange] {
        conclude(*reply, *exchange);
    });
}

void Inquiry::read(QNetworkReply& reply, Exchange& exchange)
{
    const Question& question = exchange.question;
    ProbeAnswer& answer = exchange.answer;
    // The toolkit closes what it has given up, and warns of whoever reads on.
    if (!reply.isOpen())
        return;
    const QByteArray bytes = reply.readAll();
    answer.received += bytes.size();
    exchange.hash.addData(bytes);
    if (question.sha256)
        exchange.sha256.addData(bytes);
    if (question.body != Body::Hash || answer.body.size() < question.beginning)
        answer.body += bytes;
    if (question.body == Body::Hash)
        emit received(bytes.size());
}

void Inquiry::readOn(QNetworkReply& reply, Exchange& exchange)
{
    read(reply, exchange);
    const Question& question = exchange.question;
    if (question.body != Body::Beginning || exchange.answer.received < question.beginning
        || reply.isFinished())
        return;
    takeHeaders(reply, exchange.answer);
    reply.abort();
}

void Inquiry::conclude(QNetworkReply& reply, Exchange& exchange)
{
    ProbeAnswer& answer = exchange.answer;
    const bool cutByUs = answer.status != 0;
    if (!cutByUs) {
        read(reply, exchange);
        takeHeaders(reply, answer);
        takeError(reply, answer);
    }
    answer.toTheEnd = !cutByUs;
    answer.md5 = exchange.hash.result().toHex();
    if (exchange.question.sha256)
        answer.sha256 = exchange.sha256.result().toHex();
    reply.deleteLater();
    --underWay;
    handOver(exchange);
}

/// To the next address or to the handler.
void Inquiry::handOver(Exchange& exchange)
{
    const Question& question = exchange.question;
    ProbeAnswer& answer = exchange.answer;
    const QUrl target = question.url.resolved(answer.redirect);
    if (isRedirect(answer.status) && target.scheme() != "https"_L1) {
        answer.redirectsElsewhere = true;
    } else if (isRedirect(answer.status) && question.redirects < mostRedirects) {
        Question onward = question;
        onward.url = target;
        ++onward.redirects;
        ask(std::move(onward));
        return;
    }
    question.handler(answer);
    askOn();
}

void Inquiry::takeCertificates(const QString& host, const QNetworkReply& reply)
{
    const QDateTime now = QDateTime::currentDateTimeUtc();
    const QSslConfiguration tls = reply.sslConfiguration();
    const QByteArray digest = tls.peerCertificate().digest(QCryptographicHash::Sha256);
    const QSslCipher cipher = tls.sessionCipher();
    lastSession
        = { QString::fromLatin1(digest.toHex()), cipher.protocolString() + u' ' + cipher.name() };
    const QList<QSslCertificate> chain = tls.peerCertificateChain();
    QList<SeenCertificate> seen;
    for (const QSslCertificate& certificate : chain) {
        seen.append(SeenCertificate::of(certificate));
        // Whole days: the toolkit's own count goes by midnights.
        const qint64 left = now.secsTo(certificate.expiryDate()) / secondsOfADay;
        days = std::min(days.value_or(left), left);
    }
    chains.insert(host, seen);
}

} // namespace Publisher
