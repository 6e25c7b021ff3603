#include "bench/support/firstpaint.h"

#include <QCoreApplication>
#include <QEvent>
#include <QWidget>

#include <chrono>
#include <cstdio>

namespace BenchSupport {

FirstPaint::FirstPaint(QWidget* window)
{
    window->installEventFilter(this);
}

bool FirstPaint::eventFilter(QObject* watched, QEvent* event)
{
    // A window is painted and flushed, its children included, within the event
    // that asks for it; what is posted meanwhile comes after.
    if (event->type() == QEvent::Paint && !painted) {
        painted = true;
        QMetaObject::invokeMethod(this, &FirstPaint::report, Qt::QueuedConnection);
    }
    return QObject::eventFilter(watched, event);
}

void FirstPaint::report()
{
    // The monotonic clock, which the program that started this one reads, too.
    const auto now = std::chrono::steady_clock::now().time_since_epoch();
    std::printf("%lld\n", static_cast<long long>(std::chrono::nanoseconds(now).count()));
    QCoreApplication::quit();
}

} // namespace BenchSupport
