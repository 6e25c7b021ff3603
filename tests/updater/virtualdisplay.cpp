#include "tests/updater/virtualdisplay.h"

#include "tests/support/applicationfolder.h"

#include <QTest>
#include <QtEndian>

namespace {

constexpr int timeLimitInMilliseconds = 20'000;

/// The header of an X window dump is a row of numbers.
quint32 headerField(const QByteArray& dump, int index)
{
    return qFromBigEndian<quint32>(dump.constData() + qsizetype(index) * 4);
}

QImage imageOf(const QByteArray& dump)
{
    constexpr qsizetype headerSize = 100;
    constexpr quint32 colourSize = 12;
    if (dump.size() < headerSize)
        return {};
    const quint32 start = headerField(dump, 0) + headerField(dump, 19) * colourSize;
    const auto width = int(headerField(dump, 4));
    const auto height = int(headerField(dump, 5));
    const auto line = int(headerField(dump, 12));
    if (headerField(dump, 11) != 32 || dump.size() < qsizetype(start) + qsizetype(line) * height)
        return {};
    const auto* pixels = reinterpret_cast<const uchar*>(dump.constData()) + start;
    return QImage(pixels, width, height, line, QImage::Format_RGB32).copy();
}

bool isBlank(const QImage& image)
{
    QImage plain = image;
    plain.fill(image.pixelColor(0, 0));
    return image == plain;
}

} // namespace

VirtualDisplay::VirtualDisplay()
{
    server.setReadChannel(QProcess::StandardOutput);
    server.start(
        "Xvfb",
        { "-displayfd", "1", "-screen", "0", "1178x707x24", "-fbdir", memory.path(), "-nolisten",
          "tcp", "-noreset" });
    if (!QTest::qWaitFor([this] { return server.canReadLine(); }, timeLimitInMilliseconds))
        qFatal("Xvfb does not start: %s", server.readAllStandardError().constData());
    number = server.readLine().trimmed();
}

VirtualDisplay::~VirtualDisplay()
{
    server.terminate();
    server.waitForFinished();
}

QString VirtualDisplay::name() const
{
    return ':' + number;
}

QImage VirtualDisplay::picture(const QRect& area) const
{
    return imageOf(TestSupport::readFile(memory.filePath("Xvfb_screen0"))).copy(area);
}

QImage VirtualDisplay::settledPicture(const QRect& area) const
{
    QImage last;
    int unchanged = 0;
    const auto settled = [&] {
        const QImage now = picture(area);
        unchanged = now == last && !isBlank(now) ? unchanged + 1 : 0;
        last = now;
        return unchanged == 20;
    };
    if (!QTest::qWaitFor(settled, timeLimitInMilliseconds))
        qFatal("nothing is shown");
    return last;
}

void VirtualDisplay::waitUntilBlank(const QRect& area) const
{
    if (!QTest::qWaitFor([&] { return isBlank(picture(area)); }, timeLimitInMilliseconds))
        qFatal("a window does not go away");
}
