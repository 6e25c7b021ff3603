#include "publisher/probe/connectaddress.h"

#include <QHostAddress>

using namespace Qt::StringLiterals;

namespace Publisher {

namespace {

/// What stands before the port, with IPv6 in brackets.
std::optional<QHostAddress> readHost(const QString& text)
{
    const bool isBracketed = text.startsWith(u'[') && text.endsWith(u']');
    const QHostAddress address(isBracketed ? text.sliced(1, text.size() - 2) : text);
    const auto expected
        = isBracketed ? QAbstractSocket::IPv6Protocol : QAbstractSocket::IPv4Protocol;
    if (address.protocol() != expected)
        return std::nullopt;
    return address;
}

} // namespace

std::optional<ConnectAddress> ConnectAddress::read(const QString& text)
{
    const qsizetype colon = text.lastIndexOf(u':');
    if (colon < 0)
        return std::nullopt;
    const auto host = readHost(text.first(colon));
    bool isNumber = false;
    const quint16 port = text.sliced(colon + 1).toUShort(&isNumber);
    if (!host || !isNumber || port == 0)
        return std::nullopt;
    return ConnectAddress{ host->toString(), port };
}

QString ConnectAddress::text() const
{
    const QString shown = host.contains(u':') ? u'[' + host + u']' : host;
    return shown + u':' + QString::number(port);
}

} // namespace Publisher
