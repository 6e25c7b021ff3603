#pragma once

#include "publisher/common/exitcode.h"
#include "publisher/common/finding.h"

#include <QList>
#include <QString>

#include <optional>

class QCommandLineParser;

namespace Publisher {

class Output;
class Probe;
struct FleetProbeReport;

/// What `probe` leaves for a machine that draws curves and raises alarms,
/// "--metrics FILE". Nothing without the option.
class ProbeMetrics {
public:
    static void addOption(QCommandLineParser& parser);

    explicit ProbeMetrics(const QCommandLineParser& parser);

    /// The host that was asked for.
    QString server;
    void take(const Probe& probe);
    void take(const FleetProbeReport& report);

    /// Writes the file, whatever way the command ends but for one that makes no sense.
    /// Returns how it ends now.
    ExitCode write(ExitCode code, Output& output) const;

private:
    QByteArray text(bool isComplete) const;

    const QCommandLineParser& parser;
    QList<Finding> findings;
    std::optional<qint64> certificateDays;
    qint64 files = 0;
};

} // namespace Publisher
