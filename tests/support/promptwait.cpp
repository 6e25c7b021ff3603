#include "tests/support/promptwait.h"

#include <QCoreApplication>
#include <QDeadlineTimer>
#include <QTimer>

#include <algorithm>

namespace TestSupport {

bool promptlyWaitFor(const std::function<bool()>& condition, int milliseconds)
{
    const QDeadlineTimer deadline(milliseconds);
    // Time passes without events, and what a condition looks at may have none.
    QTimer alarm;
    alarm.start(std::min(milliseconds, 1'000));
    while (!condition() && !deadline.hasExpired()) {
        QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents);
        QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
    }
    return condition();
}

} // namespace TestSupport
