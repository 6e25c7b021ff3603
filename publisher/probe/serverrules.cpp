#include "publisher/probe/serverrules.h"

using namespace Qt::StringLiterals;

namespace Publisher {

namespace {

Finding unreachable(const QString& host, const QString& error)
{
    return { FindingId::ServerUnreachable, host, 0,
             "The server cannot be asked: "_L1 + error + '.'_L1 };
}

} // namespace

namespace ServerRules {

std::optional<Finding> address(const QUrl& baseUrl)
{
    if (baseUrl.scheme() == "https"_L1)
        return std::nullopt;
    return Finding{ FindingId::ServerWithoutTls, baseUrl.toString(), 0,
                    u"The address is not https: launchers do not ask there."_s };
}

std::optional<Finding> certificateDays(const QString& host, qint64 days, int wanted)
{
    if (days >= wanted)
        return std::nullopt;
    return Finding{ FindingId::CertificateExpiring, host, 0,
                    "The certificate is valid for "_L1 + QString::number(days)
                        + " more days; after that no launcher gets anything."_L1 };
}

std::optional<Finding> trust(const QString& host, const ProbeAnswer& answer)
{
    if (answer.certificateError.isEmpty())
        return std::nullopt;
    return Finding{ FindingId::CertificateUntrusted, host, 0,
                    "Launchers do not trust the certificate: "_L1 + answer.certificateError
                        + '.'_L1 };
}

std::optional<Finding>
presence(const QString& host, const ProbeAnswer& failure, int secondsOfSilence)
{
    if (failure.isSilent)
        return Finding{ FindingId::ServerUnreachable, host, 0,
                        u"The server has said nothing for %1 seconds."_s.arg(secondsOfSilence) };
    if (failure.isNobodyThere)
        return unreachable(host, failure.error);
    return std::nullopt;
}

std::optional<Finding> tlsVersion(const QString& host, const ProbeAnswer& answer)
{
    if (answer.status == 0)
        return std::nullopt;
    return Finding{ FindingId::TlsVersionMissing, host, 0,
                    u"The server does not speak TLS 1.2, and launchers speak nothing else."_s };
}

Finding plainHttp(const QUrl& url, const ProbeAnswer& answer, const QString& error)
{
    if (answer.status == 0)
        return unreachable(url.host(), error);
    return { FindingId::ServerWithoutTls, url.host(), 0,
             u"The server answers plain http on port %1 and speaks no TLS there."_s.arg(
                 url.port()) };
}

} // namespace ServerRules

} // namespace Publisher
