#include "publisher/common/clock.h"

#include <QThread>

#include <algorithm>

namespace Publisher {

namespace {

QDateTime atSecond(qint64 seconds)
{
    return QDateTime::fromSecsSinceEpoch(seconds).toUTC();
}

constexpr qint64 longestWait = 10; // seconds

/// The first second that is newer, or the beginning of time.
qint64 secondAfter(const QDateTime& replaced)
{
    return replaced.isValid() ? replaced.toSecsSinceEpoch() + 1 : 0;
}

} // namespace

QDateTime Clock::now() const
{
    return QDateTime::currentDateTimeUtc();
}

void Clock::waitUntil(const QDateTime& time)
{
    // A moment of the wall clock announces itself by no signal; looking again
    // after the sleep copes with a clock that is set meanwhile.
    for (qint64 left = now().msecsTo(time); left > 0; left = now().msecsTo(time))
        QThread::msleep(static_cast<unsigned long>(left));
}

bool Clock::isAhead(const QDateTime& date) const
{
    return date.isValid() && now().secsTo(date) > longestWait;
}

QDateTime Clock::nextAfter(const QDateTime& replaced)
{
    const qint64 next = now().toSecsSinceEpoch() + 1;
    QDateTime date = atSecond(isAhead(replaced) ? next : std::max(next, secondAfter(replaced)));
    waitUntil(date);
    return date;
}

} // namespace Publisher
