// By the openssl program.

#include "tests/support/applicationfolder.h"
#include "tests/support/openssl.h"

#include <QFile>
#include <QFileInfo>
#include <QUuid>

namespace TestSupport {

namespace {

QStringList newKey(const QString& file)
{
    return {
        "-newkey", "ec", "-pkeyopt", "ec_paramgen_curve:prime256v1", "-nodes", "-keyout", file
    };
}

/// With a key of its own.
QStringList withNames(const QStringList& dnsNames, const QString& key)
{
    return newKey(key) + QStringList{ "-addext", "subjectAltName=DNS:" + dnsNames.join(",DNS:") };
}

} // namespace

CertificateAuthority::CertificateAuthority()
{
    // A name of its own, since the trust store finds authorities by name.
    const QString id = QUuid::createUuid().toString(QUuid::Id128);
    const Openssl openssl(folder.path());
    openssl.request("Throw-away authority " + id, "authority.csr", newKey("authority.key"));
    openssl.certify(
        { "authority.csr", "authority.pem", Validity::longStanding(), "authority" },
        { "-selfsign", "-keyfile", "authority.key" });
}

ServerCertificate
CertificateAuthority::issue(const QStringList& dnsNames, const Validity& validity) const
{
    const QString id = QUuid::createUuid().toString(QUuid::Id128);
    const QString certificate = file(id + ".pem");
    const QString key = file(id + ".key");
    const Openssl openssl(folder.path());
    openssl.request(dnsNames.constFirst(), id + ".csr", withNames(dnsNames, key));
    openssl.certify(
        { id + ".csr", certificate, validity, "server" },
        { "-cert", "authority.pem", "-keyfile", "authority.key" });
    return { QSslCertificate(readFile(certificate)), QSslKey(readFile(key), QSsl::Ec), certificate,
             key };
}

ServerCertificate CertificateAuthority::selfSigned(const QStringList& dnsNames) const
{
    const QString id = QUuid::createUuid().toString(QUuid::Id128);
    const QString certificate = file(id + ".pem");
    const QString key = file(id + ".key");
    Openssl(folder.path())
        .request(
            dnsNames.constFirst(), certificate, withNames(dnsNames, key) + QStringList("-x509"));
    return { QSslCertificate(readFile(certificate)), QSslKey(readFile(key), QSsl::Ec), certificate,
             key };
}

void CertificateAuthority::installInTrustStore() const
{
    const QString store = "/etc/ssl/certs";
    const QString installed = store + '/' + QFileInfo(folder.path()).fileName() + ".pem";
    if (!QFile::copy(certificateFile(), installed))
        qFatal("cannot install a certificate authority as %s", qPrintable(installed));
    // The toolkit finds authorities by links that are named after a hash.
    Openssl(folder.path()).run({ "rehash", store });
}

} // namespace TestSupport
