#include "tests/support/openssl.h"

#include "tests/support/applicationfolder.h"

#include <QProcess>

namespace TestSupport {

namespace {

// Days can only be counted from now with the simpler subcommands; "ca" takes
// both ends of the validity.
constexpr const char* settings = R"([ca]
default_ca = own

[own]
database = index.txt
new_certs_dir = .
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

[authority]
basicConstraints = critical,CA:TRUE
keyUsage = critical,keyCertSign,cRLSign
subjectKeyIdentifier = hash
authorityKeyIdentifier = keyid

[server]
authorityKeyIdentifier = keyid
)";

QString opensslTime(const QDateTime& time)
{
    return time.toUTC().toString("yyyyMMddHHmmss'Z'");
}

} // namespace

Openssl::Openssl(const QString& itsFolder)
    : folder(itsFolder)
{
    writeFile(folder + "/openssl.cnf", settings);
    writeFile(folder + "/index.txt", QByteArray());
}

void Openssl::run(const QStringList& arguments) const
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

void Openssl::request(const QString& name, const QString& requestFile, const QStringList& key) const
{
    run(QStringList{ "req", "-new", "-config", "openssl.cnf", "-subj", "/CN=" + name, "-out",
                     requestFile }
        + key);
}

void Openssl::certify(const Certificate& wanted, const QStringList& signer) const
{
    run(QStringList{ "ca", "-batch", "-notext", "-config", "openssl.cnf", "-extensions",
                     wanted.section, "-startdate", opensslTime(wanted.validity.notBefore),
                     "-enddate", opensslTime(wanted.validity.notAfter), "-in", wanted.requestFile,
                     "-out", wanted.file }
        + signer);
}

} // namespace TestSupport
