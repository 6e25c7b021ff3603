#include "app/constants.h"
#include "publisher/cli/commands.h"
#include "publisher/cli/findingreport.h"
#include "publisher/cli/fleetoptions.h"
#include "publisher/cli/options.h"
#include "publisher/cli/output.h"
#include "publisher/cli/probemetrics.h"
#include "publisher/common/progress.h"
#include "publisher/fleet/fleetprobe.h"
#include "publisher/probe/probe.h"
#include "publisher/probe/signedrecord.h"

#include <QCommandLineParser>
#include <QFileInfo>
#include <QJsonArray>
#include <QSet>

#include <optional>

using namespace Qt::StringLiterals;

namespace Publisher {

namespace {

/// The address as a base to which names are added, the way the launcher does.
QUrl baseUrl(const QString& text)
{
    return QUrl(text.endsWith(u'/') ? text : text + u'/', QUrl::TolerantMode);
}

/// Where launchers of this configuration fetch the text in their window. Another
/// server than theirs has its own place for it, which only the admin knows.
QUrl infoUrl(const QUrl& base, const QString& given)
{
    if (!given.isEmpty())
        return QUrl(given, QUrl::TolerantMode);
    QUrl url(launcherInfoUrl, QUrl::TolerantMode);
    if (base.host() != QUrl(downloadBaseUrl).host())
        return {};
    if (base.port() >= 0)
        url.setPort(base.port());
    return url;
}

/// The options that both ways of asking have.
std::optional<ProbeRequest> readOptions(const QCommandLineParser& parser, Output& output)
{
    if (!FindingReport::acceptsKnownOnly(parser, output))
        return std::nullopt;
    ProbeRequest request;
    OptionReader options(parser);
    request.daysOfCertificate = options.number(u"days"_s, 0);
    request.secondsOfSilence = options.number(u"timeout"_s, 1);
    if (!options.fault().isEmpty()) {
        output.error(options.fault());
        return std::nullopt;
    }
    if (parser.isSet(u"record"_s) != parser.isSet(u"record-key"_s)) {
        output.error(u"--record and --record-key go together: a record proves nothing without "
                     "its signature"_s);
        return std::nullopt;
    }
    request.test = parser.isSet(u"test"_s);
    request.next = parser.isSet(u"next"_s);
    request.deep = parser.isSet(u"deep"_s);
    request.tree = parser.value(u"tree"_s);
    return request;
}

std::optional<ProbeRequest> readRequest(const QCommandLineParser& parser, Output& output)
{
    const QStringList arguments = parser.positionalArguments();
    if (arguments.size() != 1) {
        output.error(u"which server? Name one address, such as https://download.example/"_s);
        return std::nullopt;
    }
    const QUrl base = baseUrl(arguments.first());
    const QString scheme = base.scheme();
    if (!base.isValid() || base.host().isEmpty() || (scheme != "https"_L1 && scheme != "http"_L1)) {
        output.error(u"\"%1\" is no web address; give one such as https://download.example/"_s.arg(
            arguments.first()));
        return std::nullopt;
    }
    std::optional<ProbeRequest> request = readOptions(parser, output);
    if (request) {
        request->baseUrl = base;
        request->infoUrl = infoUrl(base, parser.value(u"alert"_s));
    }
    return request;
}

std::optional<FleetProbeRequest> readFleetRequest(const QCommandLineParser& parser, Output& output)
{
    if (!parser.positionalArguments().isEmpty()) {
        output.error(u"give an address or --fleet; the list of servers has their addresses"_s);
        return std::nullopt;
    }
    const auto fleet = FleetOptions::readFleet(parser, output);
    const auto asked = fleet ? readOptions(parser, output) : std::nullopt;
    if (!asked)
        return std::nullopt;
    FleetProbeRequest request{ fleet->servers, *asked };
    // The web host has a server of its own, as a rule, which has other tasks.
    request.probe.infoUrl = QUrl(parser.value(u"alert"_s), QUrl::TolerantMode);
    return request;
}

void configure(QCommandLineParser& parser)
{
    parser.setApplicationDescription(
        u"Asks for the manifest, the launcher's files and every patch file, the way launchers do, "
        "and says what would go wrong for players."_s);
    parser.addPositionalArgument(
        u"url"_s, u"Where the manifests lie, such as https://download.example/."_s, u"URL"_s);
    parser.addOptions({
        { u"test"_s, u"The test manifest and its files as well."_s },
        { u"next"_s, u"The manifest of the next publication, and its files, as well."_s },
        { u"deep"_s, u"Downloads every file and compares its hash."_s },
        { u"tree"_s,
          u"Compares with this server tree: manifests and launcher files as they are, patch files "
          "by their sizes."_s,
          u"TREE"_s },
        { u"record"_s,
          u"Compares with what build --record has put down: manifests and launcher files byte by "
          "byte, patch files by their sizes, with --deep by their SHA-256. Asks for every manifest "
          "on record."_s,
          u"FILE"_s },
        { u"record-key"_s,
          u"With --record: the public key of its signature, FILE.minisig, which has to match."_s,
          u"FILE"_s },
    });
    ProbeMetrics::addOption(parser);
    FleetOptions::addFleet(parser);
    FleetOptions::addQuestions(parser);
    FindingReport::addOptions(parser);
}

/// What the server is held against; whether all of it is there.
bool hasMeasures(const QCommandLineParser& parser, ProbeRequest& request, Output& output)
{
    if (!request.tree.isEmpty() && !QFileInfo(request.tree).isDir()) {
        output.error(
            u"there is no folder \"%1\"; --tree takes the folder that the web server serves"_s.arg(
                request.tree));
        return false;
    }
    if (!parser.isSet(u"record"_s))
        return true;
    const SignedRecord signedRecord
        = SignedRecord::read(parser.value(u"record"_s), parser.value(u"record-key"_s));
    request.record = signedRecord.record;
    if (signedRecord.problem)
        output.error(*signedRecord.problem);
    return !signedRecord.problem;
}

QString since(const SeenCertificate& root)
{
    return root.notBefore.toUTC().date().toString(Qt::ISODate);
}

QString toText(const SeenCertificate& root)
{
    return u"the root %1, which there is since %2"_s.arg(root.name, since(root));
}

QJsonArray toJson(const QList<SeenCertificate>& roots)
{
    QJsonArray array;
    for (const SeenCertificate& root : roots)
        array.append(QJsonObject{ { u"name"_s, root.name }, { u"since"_s, since(root) } });
    return array;
}

QJsonObject toJson(const ProbedAddress& address)
{
    QJsonObject object{ { u"server"_s, address.server },
                        { u"address"_s, address.address },
                        { u"files"_s, address.files },
                        { u"certificate"_s, address.certificate },
                        { u"certificateRoots"_s, toJson(address.roots) },
                        { u"tls"_s, address.tls } };
    if (address.certificateDays)
        object.insert(u"certificateDays"_s, *address.certificateDays);
    return object;
}

/// What does no harm to players, and tells servers that are not set up alike.
void showWhetherAlike(
    const QList<ProbedAddress>& addresses, const QString& what, QString ProbedAddress::*part,
    Output& output)
{
    QSet<QString> values;
    for (const ProbedAddress& address : addresses) {
        if (address.isReached)
            values.insert(address.*part);
    }
    if (values.size() > 1)
        output.line(u"The servers differ in their %1."_s.arg(what));
}

void show(const QList<ProbedAddress>& addresses, Output& output)
{
    QJsonArray servers;
    for (const ProbedAddress& address : addresses) {
        servers.append(toJson(address));
        if (!address.isReached)
            output.line(address.name() + ": not reached"_L1);
        else
            output.line(u"%1: %2 files, certificate %3 for %4 more days, %5"_s.arg(address.name())
                            .arg(address.files)
                            .arg(address.certificate.first(12))
                            .arg(address.certificateDays.value_or(0))
                            .arg(address.tls));
        for (const SeenCertificate& root : address.roots)
            output.line(u"%1: its chain ends in %2"_s.arg(address.name(), toText(root)));
    }
    showWhetherAlike(addresses, u"certificates"_s, &ProbedAddress::certificate, output);
    showWhetherAlike(addresses, u"TLS"_s, &ProbedAddress::tls, output);
    output.set(u"servers"_s, servers);
}

/// The certificate of a single server.
void showCertificate(const Probe& probe, Output& output)
{
    const auto days = probe.certificateDays();
    if (!days)
        return;
    output.line(u"The certificate is valid for %1 more days."_s.arg(*days));
    output.set(u"certificateDays"_s, *days);
    const QList<SeenCertificate> roots = probe.roots();
    for (const SeenCertificate& root : roots)
        output.line(u"Its chain ends in %1."_s.arg(toText(root)));
    output.set(u"certificateRoots"_s, toJson(roots));
}

ExitCode runFleet(const QCommandLineParser& parser, Output& output, ProbeMetrics& metrics)
{
    std::optional<FleetProbeRequest> request = readFleetRequest(parser, output);
    if (!request)
        return ExitCode::Usage;
    metrics.server = request->servers.constFirst().address.host();
    if (!hasMeasures(parser, request->probe, output))
        return ExitCode::InputOutput;
    const FleetProbeReport report = probeFleet(*request);
    show(report.addresses, output);
    metrics.take(report);
    for (const QString& error : report.errors)
        output.error(error);
    const ExitCode code
        = FindingReport::conclude(report.findings + report.differences, parser, output);
    return report.errors.isEmpty() && (report.isEachReached() || code == ExitCode::Fine)
        ? code
        : ExitCode::InputOutput;
}

ExitCode runSingle(const QCommandLineParser& parser, Output& output, ProbeMetrics& metrics)
{
    std::optional<ProbeRequest> request = readRequest(parser, output);
    if (!request)
        return ExitCode::Usage;
    metrics.server = request->baseUrl.host();
    if (!hasMeasures(parser, *request, output))
        return ExitCode::InputOutput;
    Probe probe(*request);
    Progress progress(u"Asking"_s, {});
    askAll(probe, progress);
    if (!probe.error().isEmpty()) {
        output.error(probe.error());
        return ExitCode::InputOutput;
    }
    metrics.take(probe);
    showCertificate(probe, output);
    output.line(u"Asked for %1 files."_s.arg(probe.filesAsked()));
    if (request->infoUrl.isEmpty())
        output.line(
            u"The text in the launcher's window was not asked for; --alert names its place."_s);
    output.set(u"files"_s, probe.filesAsked());
    const QList<Finding> findings = probe.findings();
    const ExitCode code = FindingReport::conclude(findings, parser, output);
    return probe.isReached() || code == ExitCode::Fine
            || findings.first().id == FindingId::ServerWithoutTls
        ? code
        : ExitCode::InputOutput;
}

ExitCode run(const QCommandLineParser& parser, Output& output)
{
    ProbeMetrics metrics(parser);
    const ExitCode code = parser.isSet(u"fleet"_s) ? runFleet(parser, output, metrics)
                                                   : runSingle(parser, output, metrics);
    return metrics.write(code, output);
}

} // namespace

const Command probeCommand{ "probe"_L1, "asks a live server what the launchers will ask it"_L1,
                            configure, run };

} // namespace Publisher
