// By the openssl program.

#include "tests/support/applicationfolder.h"
#include "tests/support/certificateauthority.h"

#include <QFile>
#include <QFileInfo>
#include <QProcess>
#include <QUuid>

namespace TestSupport {

namespace {

// Days can only be counted from now with the simpler subcommands; "ca" takes
// both ends of the validity.
constexpr const char* configuration = R"([ca]
default_ca = authority

[authority]
database = index.txt
new_certs_dir = .
certificate = authority.pem
private_key = authority.key
default_md = sha256
policy = any
rand_serial = yes
unique_subject = no
copy_extensions = copy

[any]
commonName = supplied

[req]
distinguished_name = name

[name]

[authority_extensions]
basicConstraints = critical,CA:TRUE
keyUsage = critical,keyCertSign,cRLSign
subjectKeyIdentifier = hash
)";

const QStringList newKey{ "-newkey", "ec", "-pkeyopt", "ec_paramgen_curve:prime256v1", "-nodes" };

QString opensslTime(const QDateTime& time)
{
    return time.toUTC().toString("yyyyMMddHHmmss'Z'");
}

QString alternativeNames(const QStringList& dnsNames)
{
    return "subjectAltName=DNS:" + dnsNames.join(",DNS:");
}

QStringList between(const Validity& validity)
{
    return { "-startdate", opensslTime(validity.notBefore), "-enddate",
             opensslTime(validity.notAfter) };
}

/// Failure ends the process.
void runOpenssl(const QString& folder, const QStringList& arguments)
{
    QProcess openssl;
    openssl.setWorkingDirectory(folder);
    openssl.setProcessChannelMode(QProcess::MergedChannels);
    openssl.start("openssl", arguments);
    if (openssl.waitForFinished() && openssl.exitCode() == 0)
        return;
    qFatal(
        "openssl %s failed: %s %s", qPrintable(arguments.join(' ')),
        qPrintable(openssl.errorString()), openssl.readAll().constData());
}

/// Arguments that make a key and ask for a certificate with it.
QStringList requestFor(const QStringList& dnsNames, const QString& key)
{
    return QStringList{ "req", "-new" } + newKey
        + QStringList{ "-config", "openssl.cnf",
                       "-subj",   "/CN=" + dnsNames.constFirst(),
                       "-addext", alternativeNames(dnsNames),
                       "-keyout", key };
}

} // namespace

CertificateAuthority::CertificateAuthority()
{
    // A name of its own, since the trust store finds authorities by name.
    const QString id = QUuid::createUuid().toString(QUuid::Id128);
    writeFile(file("openssl.cnf"), configuration);
    writeFile(file("index.txt"), QByteArray());
    runOpenssl(
        folder.path(),
        QStringList{ "req", "-new" } + newKey
            + QStringList{ "-config", "openssl.cnf", "-subj", "/CN=Throw-away authority " + id,
                           "-keyout", "authority.key", "-out", "authority.csr" });
    runOpenssl(
        folder.path(),
        QStringList{ "ca", "-batch", "-notext", "-config", "openssl.cnf", "-selfsign",
                     "-extensions", "authority_extensions" }
            + between(Validity::longStanding())
            + QStringList{ "-in", "authority.csr", "-out", "authority.pem" });
}

ServerCertificate
CertificateAuthority::issue(const QStringList& dnsNames, const Validity& validity) const
{
    const QString id = QUuid::createUuid().toString(QUuid::Id128);
    const QString request = file(id + ".csr");
    const QString certificate = file(id + ".pem");
    const QString key = file(id + ".key");
    runOpenssl(folder.path(), requestFor(dnsNames, key) + QStringList{ "-out", request });
    runOpenssl(
        folder.path(),
        QStringList{ "ca", "-batch", "-notext", "-config", "openssl.cnf" } + between(validity)
            + QStringList{ "-in", request, "-out", certificate });
    return { QSslCertificate(readFile(certificate)), QSslKey(readFile(key), QSsl::Ec), certificate,
             key };
}

ServerCertificate CertificateAuthority::selfSigned(const QStringList& dnsNames) const
{
    const QString id = QUuid::createUuid().toString(QUuid::Id128);
    const QString certificate = file(id + ".pem");
    const QString key = file(id + ".key");
    runOpenssl(
        folder.path(), requestFor(dnsNames, key) + QStringList{ "-x509", "-out", certificate });
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
    runOpenssl(folder.path(), { "rehash", store });
}

} // namespace TestSupport
