#include "bench/support/runobserver.h"

#include "tests/support/runlog.h"

#include <QCoreApplication>
#include <QJsonArray>

#include <algorithm>
#include <numeric>

namespace BenchSupport {

namespace {

RunObserver* observer = nullptr;

// Looking costs time itself.
constexpr double secondsBetweenSamples = 0.01;

QJsonArray jsonArray(const QList<double>& values)
{
    QJsonArray array;
    for (const double value : values)
        array.append(value);
    return array;
}

} // namespace

RunObserver::RunObserver()
{
    observer = this;
    clock.start();
    previousHandler = qInstallMessageHandler(&RunObserver::receive);
}

RunObserver::~RunObserver()
{
    qInstallMessageHandler(previousHandler);
    observer = nullptr;
}

void RunObserver::runEventLoopFor(int runs)
{
    runsLeft = runs;
    QCoreApplication::exec();
    // Runs delete themselves and connections are given back by the event loop.
    QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
    QCoreApplication::processEvents();
}

QJsonObject RunObserver::figures() const
{
    return {
        { "reconcile", jsonArray(reconciliations) },
        { "install", jsonArray(installations) },
        { "fetch", fetchSeconds },
        { "downloads", downloads },
        { "runs", installations.size() },
        { "mostThreads", most.threads },
        { "mostDescriptors", most.descriptors },
    };
}

void RunObserver::receive(QtMsgType type, const QMessageLogContext& context, const QString& message)
{
    observer->previousHandler(type, context, message);
    observer->note(message);
}

void RunObserver::note(const QString& message)
{
    if (message.startsWith(QLatin1String("true QUrl("))) {
        ++downloads;
        if (reconciliationBegan >= 0 && fetchBegan < 0)
            fetchBegan = seconds();
        endReconciliation();
    } else if (message == QLatin1String("got an answer")) {
        sampleUsage();
    } else if (message == QLatin1String("clientUpdateIsCalled")) {
        reconciliationBegan = seconds();
    } else if (message == QLatin1String("now emit clientDownloadComplete")) {
        endReconciliation();
        endFetch();
    } else if (message == QLatin1String(TestSupport::RunLog::installs)) {
        beginInstallation();
    }
}

/// The walk over the manifest leads on to the first download or to the end of
/// the queue within the same call.
void RunObserver::endReconciliation()
{
    if (reconciliationBegan < 0)
        return;
    reconciliations.append(seconds() - reconciliationBegan);
    reconciliationBegan = -1;
}

/// Of two runs the one that is done first installs while the other still
/// fetches. Nothing is fetched meanwhile, so that time does not count.
void RunObserver::endFetch()
{
    if (fetchBegan < 0)
        return;
    const double installing = std::accumulate(installations.cbegin(), installations.cend(), 0.0);
    fetchSeconds = seconds() - fetchBegan - installing;
}

/// Nothing says when the installation has ended, but it is one call: the next
/// thing to happen is an event.
void RunObserver::beginInstallation()
{
    installationBegan = seconds();
    QMetaObject::invokeMethod(this, &RunObserver::endInstallation, Qt::QueuedConnection);
}

void RunObserver::endInstallation()
{
    installations.append(seconds() - installationBegan);
    if (--runsLeft == 0)
        QCoreApplication::quit();
}

void RunObserver::sampleUsage()
{
    if (lastSample >= 0 && seconds() - lastSample < secondsBetweenSamples)
        return;
    const Usage usage = Usage::now();
    most.threads = std::max(most.threads, usage.threads);
    most.descriptors = std::max(most.descriptors, usage.descriptors);
    lastSample = seconds();
}

double RunObserver::seconds() const
{
    return static_cast<double>(clock.nsecsElapsed()) / 1e9;
}

} // namespace BenchSupport
