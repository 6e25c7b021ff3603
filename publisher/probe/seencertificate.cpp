#include "publisher/probe/seencertificate.h"

#include <QSslCertificate>
#include <QSslCertificateExtension>
#include <QSslConfiguration>
#include <QVariantMap>

using namespace Qt::StringLiterals;

namespace Publisher {

namespace {

constexpr QLatin1StringView subjectKeyOid("2.5.29.14");
constexpr QLatin1StringView authorityKeyOid("2.5.29.35");

using ValuesOf = QStringList (QSslCertificate::*)(const QByteArray&) const;

QString
joined(const QSslCertificate& certificate, const QList<QByteArray>& attributes, ValuesOf valuesOf)
{
    QStringList parts;
    for (const QByteArray& attribute : attributes)
        parts.append(
            QString::fromLatin1(attribute) + u'=' + (certificate.*valuesOf)(attribute).join(u'+'));
    parts.sort();
    return parts.join(u',');
}

/// The toolkit writes the one with colons and the other without.
QByteArray keyIdIn(const QVariant& value)
{
    return value.toByteArray().toLower().replace(':', QByteArray());
}

} // namespace

SeenCertificate SeenCertificate::of(const QSslCertificate& certificate)
{
    SeenCertificate seen{
        .subject = joined(
            certificate, certificate.subjectInfoAttributes(),
            static_cast<ValuesOf>(&QSslCertificate::subjectInfo)),
        .issuer = joined(
            certificate, certificate.issuerInfoAttributes(),
            static_cast<ValuesOf>(&QSslCertificate::issuerInfo)),
        .name = certificate.subjectDisplayName(),
        .keyId = {},
        .issuerKeyId = {},
        .notBefore = certificate.effectiveDate(),
        .notAfter = certificate.expiryDate(),
    };
    const QList<QSslCertificateExtension> extensions = certificate.extensions();
    for (const QSslCertificateExtension& extension : extensions) {
        if (extension.oid() == subjectKeyOid)
            seen.keyId = keyIdIn(extension.value());
        else if (extension.oid() == authorityKeyOid)
            seen.issuerKeyId = keyIdIn(extension.value().toMap().value(u"keyid"_s));
    }
    return seen;
}

bool SeenCertificate::isSelfIssued() const
{
    return subject == issuer;
}

bool SeenCertificate::isIssuedBy(const SeenCertificate& other) const
{
    return issuer == other.subject
        && (issuerKeyId.isEmpty() || other.keyId.isEmpty() || issuerKeyId == other.keyId);
}

QList<SeenCertificate> trustedCertificates()
{
    QList<SeenCertificate> trusted;
    const QList<QSslCertificate> all = QSslConfiguration::systemCaCertificates();
    for (const QSslCertificate& certificate : all)
        trusted.append(SeenCertificate::of(certificate));
    return trusted;
}

} // namespace Publisher
