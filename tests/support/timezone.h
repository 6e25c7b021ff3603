#pragma once

#include <QByteArray>
#include <QDateTime>

namespace TestSupport {

/// A moment by its name in UTC, in the one way that every supported Qt takes.
QDateTime utc(QDate day, QTime time);

/// Moves the process to another time zone while it lives. The zone is a POSIX
/// rule such as "CET-1CEST", so that no time zone data are needed.
class TimeZone {
public:
    explicit TimeZone(const QByteArray& rule);
    ~TimeZone();
    TimeZone(const TimeZone&) = delete;
    TimeZone& operator=(const TimeZone&) = delete;

private:
    QByteArray previous;
};

} // namespace TestSupport
