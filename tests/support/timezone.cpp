#include "tests/support/timezone.h"

#include <QTimeZone>
#include <QtGlobal>

#include <ctime>

namespace TestSupport {

QDateTime utc(QDate day, QTime time)
{
    return QDateTime(day, time, QTimeZone::utc()).toUTC();
}

TimeZone::TimeZone(const QByteArray& rule)
    : previous(qgetenv("TZ"))
{
    qputenv("TZ", rule);
    tzset();
}

TimeZone::~TimeZone()
{
    qputenv("TZ", previous);
    tzset();
}

} // namespace TestSupport
