// What stays of update runs that one process has made: living objects by class
// and the heap in use, a line of JSON after each start-up check.
//
// usage: bench_leaks RUNS
//
// Start-up checks after the first are begun by the window's runInit(). Each adds
// connections that are never removed: the k-th ends in k information texts being
// shown, each of which starts k + 1 runs. So few checks make many runs.

#include "app/constants.h"
#include "bench/support/objectcensus.h"
#include "bench/support/runobserver.h"
#include "bench/support/usage.h"
#include "core/processend.h"
#include "core/signalboolhelperclass.h"
#include "net/filedownloader.h"
#include "net/referencetime.h"
#include "ui/mainwindow.h"
#include "update/launcherfiles.h"

#include <QApplication>
#include <QFileInfo>
#include <QJsonDocument>
#include <QJsonObject>

#include <cstdio>
#include <malloc.h>

using BenchSupport::ObjectCensus;
using BenchSupport::RunObserver;
using BenchSupport::Usage;

namespace {

// What one download leaves is small beside what the first ones set up for all.
constexpr int downloadsForComparison = 200;

/// In all arenas and in blocks of their own.
qint64 heapInUse()
{
    const auto info = mallinfo2();
    return static_cast<qint64>(info.uordblks) + static_cast<qint64>(info.hblkhd);
}

void print(const QJsonObject& line)
{
    std::puts(QJsonDocument(line).toJson(QJsonDocument::Compact).constData());
    std::fflush(stdout);
}

QJsonObject survivors()
{
    QJsonObject objects;
    const auto census = ObjectCensus::byClass();
    for (auto it = census.cbegin(); it != census.cend(); ++it)
        objects[QString::fromLatin1(it.key())] = it.value();
    return objects;
}

void report(int starts, const RunObserver& observer)
{
    QJsonObject line = observer.figures();
    const Usage usage = Usage::now();
    line["starts"] = starts;
    line["heap"] = heapInUse();
    line["threads"] = usage.threads;
    line["descriptors"] = usage.descriptors;
    line["residentKiB"] = usage.residentKiB;
    line["objects"] = survivors();
    print(line);
}

/// The check number `starts` and the runs that come of it.
int playRunsOf(int starts, RunObserver* observer)
{
    const int runs = starts * (starts + 1);
    observer->runEventLoopFor(runs);
    report(starts, *observer);
    return runs;
}

/// The same question and answer as a run has three times, without a run.
void downloadOnce(MainWindow* window, SignalBoolHelperClass* done)
{
    const QString folder = QCoreApplication::applicationDirPath();
    const QFileInfo local(folder + u'/' + updaterFileName);
    FileDownloader::download(
        true, window, done, QUrl(downloadBaseUrl + updaterFileName), referenceTimeOf(local), folder,
        QString());
    while (!done->state())
        QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents);
    done->setFalse();
}

/// Bytes of heap that a download leaves by itself.
void reportDownloads(MainWindow* window)
{
    SignalBoolHelperClass done;
    const qint64 before = heapInUse();
    for (int i = 0; i < downloadsForComparison; ++i)
        downloadOnce(window, &done);
    QCoreApplication::processEvents();
    print({ { "heapPerDownload", (heapInUse() - before) / downloadsForComparison } });
}

int playRuns()
{
    const int wanted = QCoreApplication::arguments().value(1).toInt();

    RunObserver observer;
    MainWindow window;
    window.show();
    int runs = playRunsOf(1, &observer);
    for (int starts = 2; runs < wanted; ++starts) {
        QMetaObject::invokeMethod(&window, "runInit");
        runs += playRunsOf(starts, &observer);
    }
    reportDownloads(&window);
    return 0;
}

} // namespace

int main(int argc, char* argv[])
{
    ObjectCensus::begin();
    const QApplication application(argc, argv);
    QCoreApplication::setApplicationVersion(launcherVersion);
    endProcess(playRuns());
}
