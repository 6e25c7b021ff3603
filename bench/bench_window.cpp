// The yardstick of bench_start: an empty window of the launcher's size with the
// launcher's picture, and nothing behind it.
//
// usage: bench_window [--text] [--tls]
//
// With --text the window shows a line of text, which makes the toolkit look for
// fonts; with --tls it loads the TLS library, as the launcher does when it asks
// for its information text.

#include "bench/support/firstpaint.h"

#include <QApplication>
#include <QLabel>
#include <QMainWindow>
#include <QSslConfiguration>

int main(int argc, char* argv[])
{
    const QApplication application(argc, argv);
    const QStringList arguments = QCoreApplication::arguments();
    QMainWindow window;
    window.resize(1178, 707);
    window.setStyleSheet(
        QStringLiteral("QMainWindow { border-image: url(:/images/ressources/background.jpg)"
                       " 0 0 0 0 stretch stretch;}"));
    if (arguments.contains(QStringLiteral("--text")))
        window.setCentralWidget(new QLabel(QStringLiteral("Text")));
    if (arguments.contains(QStringLiteral("--tls")))
        QSslConfiguration::defaultConfiguration();
    const BenchSupport::FirstPaint firstPaint(&window);
    window.show();
    return QApplication::exec();
}
