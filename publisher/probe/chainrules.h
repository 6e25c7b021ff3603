#pragma once

#include "publisher/common/finding.h"
#include "publisher/probe/seencertificate.h"

#include <QList>
#include <QString>

namespace Publisher {

/// The certificates that a server sends, its own first, beside what this machine
/// trusts. They are known to lead from one to the other; what is judged here is
/// whether they do on machines of players, too.
class ChainRules {
public:
    ChainRules(QList<SeenCertificate> sent, QList<SeenCertificate> trusted);

    /// Those that the chain can end in, the oldest first.
    QList<SeenCertificate> roots() const;

    QList<Finding> findings(const QString& host, const QDateTime& now) const;

private:
    /// The roots that are reached from one certificate by way of others.
    QList<SeenCertificate>
    rootsOf(const SeenCertificate& begin, const QList<SeenCertificate>& others) const;
    bool isCrossSigned(const SeenCertificate& certificate) const;
    QDateTime endOf(const SeenCertificate& crossSigned) const;

    QList<Finding> young(const QString& host, const QDateTime& now) const;
    QList<Finding> incomplete(const QString& host) const;
    QList<Finding> endingSooner(const QString& host) const;

    QList<SeenCertificate> sent;
    QList<SeenCertificate> trusted;
};

} // namespace Publisher
