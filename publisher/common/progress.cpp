#include "publisher/common/progress.h"

#include <array>
#include <cstdio>
#include <utility>

#ifdef Q_OS_WIN
#include <io.h>
#else
#include <unistd.h>
#endif

using namespace Qt::StringLiterals;

namespace Publisher {

namespace {

constexpr qint64 betweenDrawings = 200; // milliseconds

QString minutesAndSeconds(qint64 seconds)
{
    return u"%1:%2"_s.arg(seconds / 60).arg(seconds % 60, 2, 10, QChar(u'0'));
}

} // namespace

QString humanSize(qint64 bytes)
{
    static constexpr std::array units{ "KiB", "MiB", "GiB", "TiB" };
    if (bytes < 1024)
        return QString::number(bytes) + u" B"_s;
    double size = static_cast<double>(bytes) / 1024;
    std::size_t unit = 0;
    while (size >= 1024 && unit + 1 < units.size()) {
        size /= 1024;
        ++unit;
    }
    return QString::number(size, 'f', 1) + u' ' + QLatin1StringView(units.at(unit));
}

Progress::Progress(QString what, Count whole, bool shown)
    : title(std::move(what))
    , visible(shown)
    , totalFiles(whole.files)
    , totalBytes(whole.bytes)
{
    clock.start();
}

Progress::~Progress()
{
    if (visible)
        std::fputs("\r\033[K", stderr);
}

void Progress::addBytes(qint64 count)
{
    bytes += count;
    draw();
}

void Progress::addFile()
{
    ++files;
    draw();
}

void Progress::raiseTotal(Count more)
{
    totalFiles += more.files;
    totalBytes += more.bytes;
    draw();
}

Progress::Count Progress::done() const
{
    return { files, bytes };
}

Progress::Count Progress::total() const
{
    return { totalFiles, totalBytes };
}

bool Progress::isTerminal()
{
#ifdef Q_OS_WIN
    return _isatty(_fileno(stderr)) != 0;
#else
    return isatty(STDERR_FILENO) == 1;
#endif
}

QString Progress::line(const QString& title, Count done, Count total, qint64 milliseconds)
{
    QString text = u"%1: %2 of %3 files"_s.arg(title).arg(done.files).arg(total.files);
    if (total.bytes > 0)
        text += u", %1 of %2"_s.arg(humanSize(done.bytes), humanSize(total.bytes));
    else if (done.bytes > 0)
        text += u", "_s + humanSize(done.bytes);
    if (milliseconds <= 0 || done.bytes <= 0)
        return text;
    const qint64 rate = done.bytes * 1000 / milliseconds;
    text += u", "_s + humanSize(rate) + u"/s"_s;
    if (rate > 0 && done.bytes < total.bytes)
        text += u", "_s + minutesAndSeconds((total.bytes - done.bytes) / rate) + u" left"_s;
    return text;
}

void Progress::draw()
{
    if (!visible)
        return;
    // Whoever finds another thread drawing goes on with its work.
    const std::unique_lock lock(drawing, std::try_to_lock);
    if (!lock.owns_lock() || clock.elapsed() - lastDrawn < betweenDrawings)
        return;
    lastDrawn = clock.elapsed();
    const QString text = line(title, done(), total(), lastDrawn);
    std::fprintf(stderr, "\r%s\033[K", qPrintable(text));
}

} // namespace Publisher
