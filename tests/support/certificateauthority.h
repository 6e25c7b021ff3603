#pragma once

#include <QDateTime>
#include <QSslCertificate>
#include <QSslKey>
#include <QStringList>
#include <QTemporaryDir>

namespace TestSupport {

/// A server's certificate with its private key, as objects for a server of our
/// own and as PEM files for a foreign one. The files live as long as the
/// authority that issued them.
struct ServerCertificate {
    QSslCertificate certificate;
    QSslKey key;
    QString certificateFile;
    QString keyFile;
    /// What a server of our own sends behind its certificate.
    QList<QSslCertificate> others = {};
};

/// From when until when a certificate is valid.
struct Validity {
    QDateTime notBefore;
    QDateTime notAfter;

    static Validity current();
    static Validity expired();
    static Validity notYet();
    /// As authorities have it, since ten years.
    static Validity longStanding();
};

/// A throw-away certificate authority with a key and a name of its own. Every
/// failure ends the process.
class CertificateAuthority {
public:
    CertificateAuthority();

    /// A certificate for these DNS names. The first one is the common name.
    ServerCertificate
    issue(const QStringList& dnsNames, const Validity& validity = Validity::current()) const;

    /// A certificate that vouches for itself.
    ServerCertificate selfSigned(const QStringList& dnsNames) const;

    /// Makes this authority trusted in the sandbox, for this process and its
    /// children. The toolkit looks at the store once per process, so call it
    /// before the first use of TLS.
    void installInTrustStore() const;

    QString certificateFile() const;

private:
    QString file(const QString& name) const;

    QTemporaryDir folder;
};

/// Certificate for every host of the community, current and issued by an
/// authority that this process trusts from the first call on.
const ServerCertificate& trustedCertificate();
/// The authority behind `trustedCertificate()`.
const CertificateAuthority& trustedAuthority();
/// The community's host names as configured, without ports.
QStringList communityHosts();

} // namespace TestSupport
