#pragma once

#include <QObject>

QT_BEGIN_NAMESPACE
class QWidget;
QT_END_NAMESPACE

namespace BenchSupport {

/// Waits for a window's first picture: prints the monotonic clock in nanoseconds
/// on standard output when it has been painted and handed to the display, and
/// ends the event loop.
class FirstPaint : public QObject {
    Q_OBJECT

public:
    /// To be made before the window is shown.
    explicit FirstPaint(QWidget* window);

    bool eventFilter(QObject* watched, QEvent* event) override;

private:
    void report();

    bool painted = false;
};

} // namespace BenchSupport
