#pragma once

#include "bench/support/usage.h"

#include <QElapsedTimer>
#include <QJsonObject>
#include <QList>
#include <QObject>
#include <QString>

namespace BenchSupport {

/// Follows the update runs of this process by their debug log, which is all that
/// a run tells the outside, and measures their phases. Ends the event loop when
/// the expected number of runs has installed. The log goes on to standard error,
/// as it does in the launcher. One per process.
class RunObserver : public QObject {
    Q_OBJECT

public:
    RunObserver();
    ~RunObserver() override;

    /// Runs the event loop until so many more runs have installed and nothing is
    /// left of them but what outlives a run.
    void runEventLoopFor(int runs);

    /// Seconds of each run's reconciliation and installation; seconds from the
    /// first download of a patch file to the end of the last, installations left
    /// out; the number of downloads begun and of runs; the most threads and
    /// descriptors.
    QJsonObject figures() const;

private:
    static void receive(QtMsgType type, const QMessageLogContext& context, const QString& message);
    void note(const QString& message);
    void endReconciliation();
    void endFetch();
    void beginInstallation();
    void endInstallation();
    void sampleUsage();
    double seconds() const;

    QtMessageHandler previousHandler = nullptr;
    QElapsedTimer clock;
    int runsLeft = 0;
    qint64 downloads = 0;
    double reconciliationBegan = -1;
    double installationBegan = -1;
    double fetchBegan = -1;
    double fetchSeconds = 0;
    double lastSample = -1;
    QList<double> reconciliations;
    QList<double> installations;
    Usage most;
};

} // namespace BenchSupport
