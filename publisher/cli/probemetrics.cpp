#include "publisher/cli/probemetrics.h"

#include "publisher/cli/output.h"
#include "publisher/common/filework.h"
#include "publisher/common/metricstext.h"
#include "publisher/fleet/fleetprobe.h"

#include <QCommandLineParser>
#include <QDateTime>
#include <QMap>

#include <algorithm>

using namespace Qt::StringLiterals;

namespace Publisher {

void ProbeMetrics::addOption(QCommandLineParser& parser)
{
    parser.addOption(
        { u"metrics"_s,
          u"Writes the figures to this file, in Prometheus' text format, for the textfile "
          "collector of its node exporter."_s,
          u"FILE"_s });
}

namespace {

constexpr qint64 secondsOfADay = 86'400;

} // namespace

ProbeMetrics::ProbeMetrics(const QCommandLineParser& acceptedLine)
    : parser(acceptedLine)
{
}

void ProbeMetrics::take(const Probe& probe)
{
    findings = probe.findings();
    certificateDays = probe.certificateDays();
    files = probe.filesAsked();
}

void ProbeMetrics::take(const FleetProbeReport& report)
{
    findings = report.findings + report.differences;
    for (const ProbedAddress& address : report.addresses) {
        files += address.files;
        if (address.certificateDays)
            certificateDays = std::min(
                certificateDays.value_or(*address.certificateDays), *address.certificateDays);
    }
}

QByteArray ProbeMetrics::text(bool isComplete) const
{
    const MetricsText::Labels whose{
        { u"server"_s, server },
        { u"depth"_s, parser.isSet(u"deep"_s) ? u"deep"_s : u"glance"_s },
    };
    const QStringList accepted = parser.values(u"accept"_s);
    QMap<QString, qint64> counts;
    for (const Finding& finding : findings)
        counts[finding.identifier()] += accepted.contains(finding.identifier()) ? 0 : 1;
    MetricsText text;
    text.begin(u"halden_probe_complete"_s, u"1 when everything was asked, 0 when not."_s);
    text.add(whose, isComplete ? 1 : 0);
    text.begin(u"halden_probe_time_seconds"_s, u"When it ended, since 1970."_s);
    text.add(whose, QDateTime::currentSecsSinceEpoch());
    text.begin(u"halden_probe_files"_s, u"Files that were asked for."_s);
    text.add(whose, files);
    text.begin(u"halden_probe_findings"_s, u"Findings that are not accepted."_s);
    for (auto count = counts.cbegin(); count != counts.cend(); ++count)
        text.add(whose + MetricsText::Labels{ { u"id"_s, count.key() } }, count.value());
    if (certificateDays) {
        text.begin(
            u"halden_probe_certificate_seconds"_s,
            u"Until the first certificate ends, in full days."_s);
        text.add(whose, *certificateDays * secondsOfADay);
    }
    return text.text();
}

ExitCode ProbeMetrics::write(ExitCode code, Output& output) const
{
    if (!parser.isSet(u"metrics"_s) || code == ExitCode::Usage)
        return code;
    const FileWork::PublicFiles readableByAll;
    const Problem problem
        = FileWork::store(parser.value(u"metrics"_s), text(code != ExitCode::InputOutput));
    if (problem)
        output.error(*problem);
    return problem ? ExitCode::InputOutput : code;
}

} // namespace Publisher
