#include "publisher/report/reportmetrics.h"

#include "publisher/common/metricstext.h"
#include "publisher/report/report.h"

#include <QString>

using namespace Qt::StringLiterals;

namespace Publisher {

namespace {

using Labels = MetricsText::Labels;

void begin(MetricsText& metrics, QLatin1StringView name, const QString& help)
{
    metrics.begin("halden_report_"_L1 + name, help);
}

Labels track(const Adoption& adoption)
{
    return { { u"track"_s, adoption.track } };
}

void addAdoption(const Report& report, MetricsText& metrics)
{
    begin(metrics, "players"_L1, u"Addresses that asked for a manifest or the launcher."_s);
    for (const Adoption& one : report.adoption)
        metrics.add(track(one), one.players);
    begin(metrics, "players_behind"_L1, u"Those without the latest publication."_s);
    for (const Adoption& one : report.adoption)
        metrics.add(track(one), one.behind);
    begin(metrics, "adoption_seconds"_L1, u"Until this share of the players had the latest one."_s);
    for (const Adoption& one : report.adoption) {
        for (std::size_t i = 0; i < Adoption::shares.size() && !one.publications.isEmpty(); ++i) {
            if (const auto seconds = one.publications.constLast().seconds[i])
                metrics.add(
                    track(one) + Labels{ { u"percent"_s, QString::number(Adoption::shares[i]) } },
                    *seconds);
        }
    }
}

void addTrouble(const Report& report, MetricsText& metrics)
{
    begin(metrics, "trouble"_L1, u"What goes wrong, by the report's identifiers."_s);
    const auto identifiers = Troubles::all();
    for (const auto& [identifier, remedy] : identifiers) {
        qint64 count = 0;
        for (const Trouble& one : report.troubles)
            count += one.identifier() == identifier ? one.count : 0;
        metrics.add({ { u"kind"_s, identifier } }, count);
    }
}

} // namespace

QByteArray toMetrics(const Report& report)
{
    const Load& load = report.load;
    MetricsText metrics;
    addAdoption(report, metrics);
    addTrouble(report, metrics);
    const auto alone = [&](QLatin1StringView name, const QString& help, qint64 value) {
        begin(metrics, name, help);
        metrics.add({}, value);
    };
    alone("requests"_L1, u"Requests in the logs."_s, load.requests);
    alone("sent_bytes"_L1, u"Bytes sent by the logs."_s, load.bytes);
    alone("connections"_L1, u"New connections in the logs."_s, load.connections);
    alone("peak_requests_per_minute"_L1, u"Of the busiest minute."_s, load.mostRequests.value);
    alone("peak_bytes_per_minute"_L1, u"Of the busiest minute."_s, load.mostBytes.value);
    alone(
        "peak_connections_per_minute"_L1, u"Of the busiest minute."_s, load.mostConnections.value);
    begin(
        metrics, "slowest_tenth_bytes_per_second"_L1,
        u"What the slowest tenth of the downloads had at most."_s);
    metrics.addFraction({}, load.slowestTenth);
    alone("lines"_L1, u"Lines of the logs."_s, report.quality.lines);
    alone("wrong_lines"_L1, u"Lines that could not be read."_s, report.quality.wrong);
    alone("first_request_seconds"_L1, u"When the logs begin, since 1970."_s, report.from);
    alone("last_request_seconds"_L1, u"When they end, since 1970."_s, report.to);
    return metrics.text();
}

} // namespace Publisher
