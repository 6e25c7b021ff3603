// Lays out a text the way the launcher's window does, within limits: the toolkit
// has no end with some. Exit code 0 tells that it has one.

#include <QFile>
#include <QGuiApplication>
#include <QImage>
#include <QPainter>
#include <QTextDocument>
#include <QTextStream>

#include <sys/resource.h>

namespace {

// A window that stands still for so long is closed by its player.
constexpr rlim_t mostSeconds = 5;
// The text's place in the window.
constexpr QSize window(311, 391);

bool limit(int resource, rlim_t most)
{
    const rlimit both{ .rlim_cur = most, .rlim_max = most };
    return setrlimit(resource, &both) == 0;
}

bool setLimits()
{
#ifndef HALDEN_SANITIZE // which takes terabytes for itself
    constexpr rlim_t mostBytes = rlim_t(1) << 30;
    if (!limit(RLIMIT_DATA, mostBytes))
        return false;
#endif
    return limit(RLIMIT_CORE, 0) && limit(RLIMIT_CPU, mostSeconds);
}

/// As the launcher reads it, line ends left out.
QString read(QFile& file)
{
    QString text;
    QTextStream stream(&file);
    while (!stream.atEnd())
        text.append(stream.readLine());
    return text;
}

void show(const QString& text)
{
    QTextDocument document;
    document.setHtml(text);
    document.setTextWidth(window.width());
    QImage image(window, QImage::Format_ARGB32_Premultiplied);
    QPainter painter(&image);
    document.drawContents(&painter, QRectF(QPointF(), window));
}

} // namespace

int main(int argc, char* argv[])
{
    // No display is asked for.
    qputenv("QT_QPA_PLATFORM", "offscreen");
    const QGuiApplication application(argc, argv);
    QFile file(QGuiApplication::arguments().value(1));
    if (!setLimits() || !file.open(QIODevice::ReadOnly | QIODevice::Text))
        return 1;
    show(read(file));
    return 0;
}
