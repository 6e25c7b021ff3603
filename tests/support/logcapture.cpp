#include "tests/support/logcapture.h"

#include <QMutex>
#include <QMutexLocker>
#include <QThread>

namespace TestSupport {

namespace {

// A message handler is a plain function and is called from any thread.
struct Store {
    QMutex mutex;
    const QThread* owner = nullptr;
    QStringList lines;
    QStringList others;
};

Store& store()
{
    static Store instance;
    return instance;
}

} // namespace

LogCapture::LogCapture()
{
    clear();
    {
        const QMutexLocker lock(&store().mutex);
        store().owner = QThread::currentThread();
    }
    previous = qInstallMessageHandler(&LogCapture::collect);
}

LogCapture::~LogCapture()
{
    qInstallMessageHandler(previous);
}

QStringList LogCapture::lines() const
{
    const QMutexLocker lock(&store().mutex);
    return store().lines;
}

QStringList LogCapture::linesOfOtherThreads() const
{
    const QMutexLocker lock(&store().mutex);
    return store().others;
}

QStringList LogCapture::linesStartingWith(const QString& prefix) const
{
    QStringList found;
    const QStringList all = lines();
    for (const QString& line : all) {
        if (line.startsWith(prefix))
            found.append(line);
    }
    return found;
}

void LogCapture::clear()
{
    const QMutexLocker lock(&store().mutex);
    store().lines.clear();
    store().others.clear();
}

void LogCapture::collect(QtMsgType type, const QMessageLogContext&, const QString& message)
{
    const QMutexLocker lock(&store().mutex);
    QStringList& lines = QThread::currentThread() == store().owner ? store().lines : store().others;
    lines.append((type == QtDebugMsg ? QString() : QStringLiteral("warning: ")) + message);
}

QStringList withSlashes(QStringList lines)
{
    // The log doubles a backslash within quotation marks.
    return lines.replaceInStrings("\\\\", "/");
}

} // namespace TestSupport
