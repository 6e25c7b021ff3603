#include "publisher/report/reportmetrics.h"

#include "publisher/report/report.h"

#include <QString>

using namespace Qt::StringLiterals;

namespace Publisher {

namespace {

class Metrics {
public:
    /// What follows, up to the next one.
    void begin(const QByteArray& metricName, const char* help)
    {
        name = "halden_report_" + metricName;
        written += "# HELP " + name + ' ' + help + "\n# TYPE " + name + " gauge\n";
    }

    /// `labels` are "name=\"value\"", from words of this program.
    void add(double value, const QByteArray& labels = {})
    {
        written += name + (labels.isEmpty() ? labels : '{' + labels + '}') + ' '
            + QByteArray::number(value, 'g', 17) + '\n';
    }

    void alone(const QByteArray& metricName, const char* help, double value)
    {
        begin(metricName, help);
        add(value);
    }

    QByteArray text() const
    {
        return written;
    }

private:
    QByteArray name;
    QByteArray written;
};

QByteArray track(const Adoption& adoption)
{
    return "track=\"" + adoption.track.toLatin1() + '"';
}

void addAdoption(const Report& report, Metrics& metrics)
{
    metrics.begin("players", "Addresses that asked for a manifest or the launcher.");
    for (const Adoption& one : report.adoption)
        metrics.add(static_cast<double>(one.players), track(one));
    metrics.begin("players_behind", "Those without the latest publication.");
    for (const Adoption& one : report.adoption)
        metrics.add(static_cast<double>(one.behind), track(one));
    metrics.begin("adoption_seconds", "Until this share of the players had the latest one.");
    for (const Adoption& one : report.adoption) {
        for (std::size_t i = 0; i < Adoption::shares.size() && !one.publications.isEmpty(); ++i) {
            if (const auto seconds = one.publications.constLast().seconds[i])
                metrics.add(
                    static_cast<double>(*seconds),
                    track(one) + ",percent=\"" + QByteArray::number(Adoption::shares[i]) + '"');
        }
    }
}

void addTrouble(const Report& report, Metrics& metrics)
{
    metrics.begin("trouble", "What goes wrong, by the report's identifiers.");
    const auto identifiers = Troubles::all();
    for (const auto& [identifier, remedy] : identifiers) {
        qint64 count = 0;
        for (const Trouble& one : report.troubles)
            count += one.identifier() == identifier ? one.count : 0;
        metrics.add(static_cast<double>(count), "kind=\"" + identifier.toLatin1() + '"');
    }
}

} // namespace

QByteArray toMetrics(const Report& report)
{
    const Load& load = report.load;
    Metrics metrics;
    addAdoption(report, metrics);
    addTrouble(report, metrics);
    const auto alone = [&](const char* name, const char* help, qint64 value) {
        metrics.alone(name, help, static_cast<double>(value));
    };
    alone("requests", "Requests in the logs.", load.requests);
    alone("sent_bytes", "Bytes sent by the logs.", load.bytes);
    alone("connections", "New connections in the logs.", load.connections);
    alone("peak_requests_per_minute", "Of the busiest minute.", load.mostRequests.value);
    alone("peak_bytes_per_minute", "Of the busiest minute.", load.mostBytes.value);
    alone("peak_connections_per_minute", "Of the busiest minute.", load.mostConnections.value);
    metrics.alone(
        "slowest_tenth_bytes_per_second", "What the slowest tenth of the downloads had at most.",
        load.slowestTenth);
    alone("lines", "Lines of the logs.", report.quality.lines);
    alone("wrong_lines", "Lines that could not be read.", report.quality.wrong);
    alone("first_request_seconds", "When the logs begin, since 1970.", report.from);
    alone("last_request_seconds", "When they end, since 1970.", report.to);
    return metrics.text();
}

} // namespace Publisher
