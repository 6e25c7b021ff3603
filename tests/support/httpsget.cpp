#include "tests/support/httpsget.h"

#include "tests/support/httpsserver.h"
#include "tests/support/patience.h"

#include <QHostAddress>
#include <QSslConfiguration>
#include <QSslSocket>
#include <QUrl>

namespace TestSupport {

namespace {

QByteArray request(const QUrl& url, const QDateTime& copy)
{
    QByteArray text = "GET "
        + url.toEncoded(QUrl::RemoveScheme | QUrl::RemoveAuthority | QUrl::FullyEncoded)
        + " HTTP/1.1\r\nHost: " + url.authority().toLatin1() + "\r\nConnection: close\r\n";
    if (copy.isValid())
        text += "If-Modified-Since: " + httpDate(copy) + "\r\n";
    return text + "\r\n";
}

QByteArray headerOf(const QByteArray& head, const QByteArray& name)
{
    const QList<QByteArray> lines = head.split('\n');
    for (const QByteArray& line : lines) {
        const qsizetype colon = line.indexOf(':');
        if (colon > 0 && line.first(colon).compare(name, Qt::CaseInsensitive) == 0)
            return line.sliced(colon + 1).trimmed();
    }
    return {};
}

} // namespace

HttpsAnswer httpsGet(const QString& from, const QByteArray& address, const QDateTime& copy)
{
    constexpr quint16 httpsPort = 443;
    const QUrl url = QUrl::fromEncoded(address);
    QSslSocket socket;
    QSslConfiguration tls = QSslConfiguration::defaultConfiguration();
    tls.setProtocol(QSsl::TlsV1_2);
    socket.setSslConfiguration(tls);
    if (!socket.bind(QHostAddress(from)))
        qFatal("%s is no address of this machine", qPrintable(from));
    socket.connectToHostEncrypted(url.host(), static_cast<quint16>(url.port(httpsPort)));
    if (!socket.waitForEncrypted(patience))
        qFatal("%s: %s", address.constData(), qPrintable(socket.errorString()));
    socket.write(request(url, copy));
    while (socket.waitForReadyRead(patience)) { }
    const QByteArray all = socket.readAll();
    const qsizetype end = all.indexOf("\r\n\r\n");
    if (end < 0)
        qFatal("no answer from %s", address.constData());
    const QByteArray head = all.first(end);
    return { head.split(' ').at(1).toInt(), headerOf(head, "Location"), all.sliced(end + 4) };
}

} // namespace TestSupport
