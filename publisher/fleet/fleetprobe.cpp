#include "publisher/fleet/fleetprobe.h"

#include "publisher/common/dates.h"
#include "publisher/common/parallel.h"
#include "publisher/common/progress.h"
#include "publisher/fleet/pushedtree.h"
#include "publisher/probe/daterules.h"
#include "update/launcherfiles.h"

#include <QEventLoop>

#include <algorithm>

using namespace Qt::StringLiterals;

namespace Publisher {

namespace {

/// Who says what about one file.
class Voices {
public:
    void add(const QString& value, const QString& speaker)
    {
        if (!value.isEmpty())
            speakers[value].append(speaker);
    }

    bool differ() const
    {
        return speakers.size() > 1;
    }

    /// "2024-... from north and south; 2025-... from east".
    QString text() const
    {
        QStringList parts;
        for (auto value = speakers.begin(); value != speakers.end(); ++value)
            parts.append(value.key() + " from "_L1 + value->join(", "_L1));
        return parts.join("; "_L1);
    }

private:
    QMap<QString, QStringList> speakers;
};

QString contentOf(const SeenFile& file)
{
    if (!file.md5.isEmpty())
        return "MD5 "_L1 + QString::fromLatin1(file.md5);
    return file.length < 0 ? QString() : QString::number(file.length) + " bytes"_L1;
}

QString dateOf(const SeenFile& file)
{
    return file.lastModified.isValid() ? Dates::shown(file.lastModified) : QString();
}

/// Launchers ask for all others by hash.
bool isAskedByDate(const QString& path)
{
    return !path.startsWith(patchFolderName);
}

QList<Finding> compare(const QList<ProbedAddress>& addresses)
{
    QMap<QString, std::pair<Voices, Voices>> files;
    for (const ProbedAddress& address : addresses) {
        for (auto file = address.seen.begin(); file != address.seen.end(); ++file) {
            auto& [contents, dates] = files[file.key()];
            contents.add(contentOf(*file), address.name());
            if (isAskedByDate(file.key()))
                dates.add(dateOf(*file), address.name());
        }
    }
    QList<Finding> found;
    for (auto file = files.begin(); file != files.end(); ++file) {
        const auto& [contents, dates] = *file;
        if (contents.differ())
            found.append({ FindingId::BytesDiffer, file.key(), 0,
                           "Players get what the server has that they happen to ask: "_L1
                               + contents.text() + '.'_L1 });
        if (dates.differ())
            found.append(
                { FindingId::DatesDiffer, file.key(), 0,
                  "A player may fetch it twice, or miss it: "_L1 + dates.text() + '.'_L1 });
    }
    return found;
}

/// Launchers speak TLS 1.2; what else a server could speak shows whether all have been
/// set up alike.
QString bestTls(const ProbeRequest& request)
{
    Inquiry inquiry(request.secondsOfSilence);
    inquiry.connectTo(request.baseUrl.host(), *request.connect);
    QEventLoop loop;
    QObject::connect(&inquiry, &Inquiry::finished, &loop, &QEventLoop::quit);
    inquiry.ask({ request.baseUrl, DateRules::withoutCopy(), Inquiry::Body::Beginning,
                  [](const ProbeAnswer&) {}, Inquiry::Tls::AnyVersion });
    loop.exec();
    return inquiry.session() ? inquiry.session()->tls : QString();
}

void ask(const ProbeRequest& request, ProbedAddress& result, Progress& progress)
{
    Probe probe(request);
    askAll(probe, progress);
    result.isReached = probe.isReached();
    result.files = probe.filesAsked();
    result.certificateDays = probe.certificateDays();
    result.certificate = probe.certificate();
    result.roots = probe.roots();
    result.seen = probe.seen();
    result.error = probe.error();
    if (result.isReached)
        result.tls = bestTls(request);
    const QList<Finding> findings = probe.findings();
    for (Finding finding : findings) {
        finding.subject.prepend(result.name() + ": "_L1);
        result.findings.append(finding);
    }
}

} // namespace

QString ProbedAddress::name() const
{
    return server + " ("_L1 + address + ')'_L1;
}

bool FleetProbeReport::isEachReached() const
{
    return std::all_of(addresses.cbegin(), addresses.cend(), [](const ProbedAddress& address) {
        return address.isReached;
    });
}

FleetProbeReport probeFleet(const FleetProbeRequest& request)
{
    FleetProbeReport report;
    QList<ProbeRequest> requests;
    for (const FleetServer& server : request.servers) {
        for (const ConnectAddress& address : server.connect) {
            ProbeRequest asked = request.probe;
            asked.baseUrl = server.address;
            asked.connect = address;
            requests.append(asked);
            report.addresses.append({ server.name, address.text() });
        }
    }
    Progress progress(u"Asking"_s, {});
    // Each thread writes to elements of its own.
    ProbedAddress* results = report.addresses.data();
    const int count = static_cast<int>(requests.size());
    Parallel::run(
        count, count, [&](qsizetype i, int) { ask(requests.at(i), results[i], progress); });
    for (const ProbedAddress& address : std::as_const(report.addresses)) {
        report.findings += address.findings;
        if (!address.error.isEmpty())
            report.errors.append(address.name() + ": "_L1 + address.error);
    }
    report.differences = compare(report.addresses);
    return report;
}

} // namespace Publisher
