// Preloaded into the launcher: closes the topmost window, as a player would, for
// every byte that comes in on standard input. It ends a launcher whose application object
// does not stay until the end.

#include <QApplication>
#include <QSocketNotifier>
#include <QWidget>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <unistd.h>

namespace {

QWidget* topmostWindow()
{
    if (QWidget* dialog = QApplication::activeModalWidget())
        return dialog;
    const QWidgetList windows = QApplication::topLevelWidgets();
    const auto visible = std::find_if(
        windows.begin(), windows.end(), [](const QWidget* window) { return window->isVisible(); });
    return visible == windows.end() ? nullptr : *visible;
}

/// A byte that comes before the window stays for the next call.
void closeTopmostWindow()
{
    QWidget* window = topmostWindow();
    char byte = 0;
    if (window && read(STDIN_FILENO, &byte, 1) == 1)
        window->close();
}

/// Network threads are at work, and one that is about to give an event to the application
/// object does not survive if that goes: seldom enough for a test to miss it.
void demandTheApplicationToStay()
{
    QObject::connect(qApp, &QObject::destroyed, [] {
        std::fputs("The application object was destroyed.\n", stderr);
        std::abort();
    });
}

void listen()
{
    auto* news = new QSocketNotifier(STDIN_FILENO, QSocketNotifier::Read, qApp);
    QObject::connect(news, &QSocketNotifier::activated, news, &closeTopmostWindow);
}

} // namespace

Q_COREAPP_STARTUP_FUNCTION(listen)
Q_COREAPP_STARTUP_FUNCTION(demandTheApplicationToStay)
