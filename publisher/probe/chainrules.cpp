#include "publisher/probe/chainrules.h"

#include "publisher/common/dates.h"

#include <algorithm>
#include <utility>

using namespace Qt::StringLiterals;

namespace Publisher {

namespace {

/// A machine that has not been looked after for so long has a root of that age.
constexpr int yearsOfARoot = 5;

} // namespace

ChainRules::ChainRules(QList<SeenCertificate> chain, QList<SeenCertificate> store)
    : sent(std::move(chain))
    , trusted(std::move(store))
{
}

QList<SeenCertificate>
ChainRules::rootsOf(const SeenCertificate& begin, const QList<SeenCertificate>& others) const
{
    QList<SeenCertificate> reached{ begin };
    QList<SeenCertificate> roots;
    for (qsizetype i = 0; i < reached.size(); ++i) {
        const SeenCertificate certificate = reached.at(i);
        for (const SeenCertificate& root : trusted) {
            if (root.isSelfIssued() && certificate.isIssuedBy(root) && !roots.contains(root))
                roots.append(root);
        }
        for (const SeenCertificate& other : others) {
            if (certificate.isIssuedBy(other) && !reached.contains(other))
                reached.append(other);
        }
    }
    std::stable_sort(roots.begin(), roots.end(), [](const auto& one, const auto& other) {
        return one.notBefore < other.notBefore;
    });
    return roots;
}

QList<SeenCertificate> ChainRules::roots() const
{
    return sent.isEmpty() ? QList<SeenCertificate>() : rootsOf(sent.constFirst(), sent + trusted);
}

QList<Finding> ChainRules::findings(const QString& host, const QDateTime& now) const
{
    return young(host, now) + incomplete(host) + endingSooner(host);
}

QList<Finding> ChainRules::young(const QString& host, const QDateTime& now) const
{
    const QList<SeenCertificate> all = roots();
    if (all.isEmpty() || all.constFirst().notBefore <= now.addYears(-yearsOfARoot))
        return {};
    return {
        { FindingId::CertificateRootYoung, host, 0,
          u"The certificate needs the root %1, which has been there since %2 only: machines that "
          "have not been brought up to date since may not have it, and their launchers get "
          "nothing."_s.arg(
              all.constFirst().name,
              all.constFirst().notBefore.toUTC().date().toString(Qt::ISODate)) }
    };
}

QList<Finding> ChainRules::incomplete(const QString& host) const
{
    if (roots().isEmpty() || !rootsOf(sent.constFirst(), sent).isEmpty())
        return {};
    return {
        { FindingId::CertificateChainIncomplete, host, 0,
          u"The server does not send all intermediate certificates. This machine has the one that "
          "is missing; players' machines have not, and their launchers get nothing."_s }
    };
}

/// The same holder has a root of its own; who lacks that goes by another one's word.
bool ChainRules::isCrossSigned(const SeenCertificate& certificate) const
{
    return !certificate.isSelfIssued()
        && std::any_of(trusted.cbegin(), trusted.cend(), [&](const SeenCertificate& root) {
               return root.isSelfIssued() && root.subject == certificate.subject
                   && root.keyId == certificate.keyId;
           });
}

/// The day from which on nothing can be said for it.
QDateTime ChainRules::endOf(const SeenCertificate& crossSigned) const
{
    QDateTime lastRoot;
    for (const SeenCertificate& root : rootsOf(crossSigned, sent))
        lastRoot = lastRoot.isValid() ? std::max(lastRoot, root.notAfter) : root.notAfter;
    return lastRoot.isValid() ? std::min(lastRoot, crossSigned.notAfter) : crossSigned.notAfter;
}

QList<Finding> ChainRules::endingSooner(const QString& host) const
{
    QList<Finding> findings;
    for (const SeenCertificate& certificate : sent) {
        const QDateTime end = endOf(certificate);
        if (isCrossSigned(certificate) && end < sent.constFirst().notAfter)
            findings.append(
                { FindingId::CrossSignatureEnding, host, 0,
                  u"Machines that do not have the root %1 go by a cross-signature, which ends at "
                  "%2 and so before the certificate does; from then on their launchers get "
                  "nothing."_s.arg(certificate.name, Dates::shown(end)) });
    }
    return findings;
}

} // namespace Publisher
