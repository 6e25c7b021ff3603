// One start of the launcher in an application folder that the caller has laid
// out: the real main window and its two update runs, and what they cost as one
// line of JSON.
//
// usage: bench_run [--alone]
//
// With --alone one update() starts one run instead of two side by side.

#include "app/constants.h"
#include "bench/support/runobserver.h"
#include "bench/support/usage.h"
#include "core/processend.h"
#include "ui/mainwindow.h"

#include <QApplication>
#include <QJsonDocument>

#include <cstdio>
#include <ctime>

using BenchSupport::RunObserver;
using BenchSupport::Usage;

namespace {

double processorSeconds()
{
    return static_cast<double>(std::clock()) / CLOCKS_PER_SEC;
}

/// Both of the window's connections go, one comes back.
void leaveOneRun(MainWindow* window)
{
    QObject::disconnect(window, SIGNAL(update()), window, SLOT(initiateLUpdate()));
    QObject::connect(window, SIGNAL(update()), window, SLOT(initiateLUpdate()));
}

void print(QJsonObject figures, const Usage& before, const Usage& after)
{
    figures["startKiB"] = before.residentKiB;
    figures["peakKiB"] = after.peakKiB;
    figures["endKiB"] = after.residentKiB;
    figures["endThreads"] = after.threads;
    figures["endDescriptors"] = after.descriptors;
    figures["processorSeconds"] = processorSeconds();
    std::puts(QJsonDocument(figures).toJson(QJsonDocument::Compact).constData());
}

int measureRuns()
{
    const bool alone = QCoreApplication::arguments().contains(QStringLiteral("--alone"));

    RunObserver observer;
    MainWindow window;
    if (alone)
        leaveOneRun(&window);
    window.show();
    QCoreApplication::processEvents();
    const Usage before = Usage::now();
    observer.runEventLoopFor(alone ? 1 : 2);
    print(observer.figures(), before, Usage::now());
    return 0;
}

} // namespace

int main(int argc, char* argv[])
{
    const QApplication application(argc, argv);
    QCoreApplication::setApplicationVersion(launcherVersion);
    endProcess(measureRuns());
}
