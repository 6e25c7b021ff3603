#pragma once

#include <QByteArray>
#include <QDateTime>
#include <QList>
#include <QString>

QT_BEGIN_NAMESPACE
class QSslCertificate;
QT_END_NAMESPACE

namespace Publisher {

/// What a certificate says of itself, as far as the probe goes by it.
struct SeenCertificate {
    /// All parts of the names, to be compared.
    QString subject;
    QString issuer;
    /// The holder, for people.
    QString name;
    /// Of the holder's key and of the issuer's; empty where it does not say.
    QByteArray keyId;
    QByteArray issuerKeyId;
    QDateTime notBefore;
    QDateTime notAfter;

    static SeenCertificate of(const QSslCertificate& certificate);

    /// A root, if it is trusted.
    bool isSelfIssued() const;
    /// By names and keys; the signature is the TLS library's to verify.
    bool isIssuedBy(const SeenCertificate& other) const;

    friend bool operator==(const SeenCertificate&, const SeenCertificate&) = default;
};

/// What this machine trusts: roots, and intermediates that have been put among them.
QList<SeenCertificate> trustedCertificates();

} // namespace Publisher
