// Preloaded into the launcher: closes the topmost window, as a player would, for
// every byte that comes in on standard input.

#include <QApplication>
#include <QSocketNotifier>
#include <QWidget>

#include <algorithm>
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

void listen()
{
    auto* news = new QSocketNotifier(STDIN_FILENO, QSocketNotifier::Read, qApp);
    QObject::connect(news, &QSocketNotifier::activated, news, &closeTopmostWindow);
}

} // namespace

Q_COREAPP_STARTUP_FUNCTION(listen)
