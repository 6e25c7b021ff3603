#include "tests/support/timezone.h"

#include <QtGlobal>

#include <ctime>

namespace TestSupport {

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
