#include "tests/support/certificateauthority.h"

#include "app/constants.h"

#include <QUrl>

namespace TestSupport {

namespace {

Validity validBetween(qint64 firstDay, qint64 lastDay)
{
    const QDateTime now = QDateTime::currentDateTimeUtc();
    return { now.addDays(firstDay), now.addDays(lastDay) };
}

} // namespace

Validity Validity::current()
{
    return validBetween(-1, 30);
}

Validity Validity::expired()
{
    return validBetween(-30, -1);
}

Validity Validity::notYet()
{
    return validBetween(1, 30);
}

Validity Validity::longStanding()
{
    const QDateTime now = QDateTime::currentDateTimeUtc();
    return { now.addYears(-10), now.addYears(10) };
}

QString CertificateAuthority::certificateFile() const
{
    return file("authority.pem");
}

QString CertificateAuthority::file(const QString& name) const
{
    return folder.filePath(name);
}

const CertificateAuthority& trustedAuthority()
{
    static const CertificateAuthority authority;
    static const bool installed = (authority.installInTrustStore(), true);
    Q_UNUSED(installed)
    return authority;
}

const ServerCertificate& trustedCertificate()
{
    static const ServerCertificate certificate = trustedAuthority().issue(communityHosts());
    return certificate;
}

QStringList communityHosts()
{
    QStringList hosts;
    for (const QString& url : { launcherInfoUrl, downloadBaseUrl, unencryptedDownloadBaseUrl })
        hosts.append(QUrl(url).host());
    return hosts;
}

} // namespace TestSupport
