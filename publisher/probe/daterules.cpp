#include "publisher/probe/daterules.h"

#include "publisher/common/dates.h"
#include "publisher/probe/servedmanifest.h"

#include <algorithm>

using namespace Qt::StringLiterals;

namespace Publisher::DateRules {

const QDateTime& withoutCopy()
{
    static const QDateTime date = QDateTime::fromString(u"2000-01-01T10:15:00Z"_s, Qt::ISODate);
    return date;
}

QDateTime ofLaterCopy(const ProbeAnswer& answer, const QDateTime& serverTime)
{
    // As much as a clock of the neighbouring time zone.
    constexpr qint64 clockAhead = 3600; // seconds
    const QDateTime exact = answer.lastModified.toUTC();
    return (exact.isValid() ? std::max(exact, serverTime) : serverTime).addSecs(clockAhead);
}

const QDateTime& farAhead()
{
    static const QDateTime date = QDateTime::fromString(u"2099-12-31T23:59:59Z"_s, Qt::ISODate);
    return date;
}

std::optional<Finding> ahead(const QString& name, const ProbeAnswer& answer, const QDateTime& here)
{
    constexpr qint64 tolerance = 10; // seconds
    const QDateTime now = answer.date.isValid() ? std::min(here, answer.date.toUTC()) : here;
    if (!answer.lastModified.isValid() || now.secsTo(answer.lastModified) <= tolerance)
        return std::nullopt;
    const QString server
        = answer.date.isValid() ? u", the server's %1"_s.arg(Dates::shown(answer.date)) : QString();
    return Finding{
        FindingId::DateAhead, name, 0,
        u"It is dated %1. This machine's clock says %2%3: until then every start fetches it anew."_s
            .arg(Dates::shown(answer.lastModified), Dates::shown(here), server)
    };
}

std::optional<Finding> caching(const QString& name, const ProbeAnswer& answer)
{
    const qint64 seconds = answer.secondsInCaches();
    if (seconds <= 0)
        return std::nullopt;
    return Finding{ FindingId::CachedTooLong, name, 0,
                    u"Caches on the way may hand out an old copy for %1 seconds: the server sends "
                    "\"Cache-Control: %2\"."_s.arg(seconds)
                        .arg(QString::fromLatin1(answer.cacheControl)) };
}

std::optional<Finding>
copiedManifest(const QString& name, const QDateTime& dateOfCopy, const ProbeAnswer& answer)
{
    if (answer.status != HttpStatus::notModified)
        return std::nullopt;
    return Finding{ FindingId::ManifestNotModified, name, 0,
                    u"The server answers 304 to launchers whose copy is dated %1. A copy that was "
                    "fetched while another manifest went live, or by a clock that was ahead, "
                    "passes for the newer one: that player misses publications."_s.arg(
                        Dates::shown(dateOfCopy)) };
}

std::optional<Finding> laterCopy(const QString& name, const ProbeAnswer& answer)
{
    if (answer.status != HttpStatus::ok)
        return std::nullopt;
    return Finding{ FindingId::LaterDateAnsweredInFull, name, 0,
                    u"The file is sent in full to launchers whose copy has a later date, which "
                    "may be ahead of the clock: every start downloads it again, and a launcher "
                    "that downloads itself hands over to the updater at every start."_s };
}

std::optional<Finding> exactCopy(const QString& name, const ProbeAnswer& answer)
{
    if (answer.status != HttpStatus::ok)
        return std::nullopt;
    return Finding{ FindingId::ExactDateAnsweredInFull, name, 0,
                    u"The file is sent in full to launchers whose copy has the very same date."_s };
}

std::optional<Finding>
damagedCopy(const PatchFile& file, const QUrl& address, const ProbeAnswer& answer)
{
    if (answer.status != HttpStatus::notModified)
        return std::nullopt;
    return Finding{ FindingId::PatchFileNotModified, file.manifest(), file.number,
                    address.toString()
                        + " is answered 304 to a later date: a copy that is damaged in a player's "
                          "cache never heals."_L1 };
}

} // namespace Publisher::DateRules
