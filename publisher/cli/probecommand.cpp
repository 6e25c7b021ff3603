#include "app/constants.h"
#include "publisher/cli/commands.h"
#include "publisher/cli/findingreport.h"
#include "publisher/cli/options.h"
#include "publisher/cli/output.h"
#include "publisher/common/progress.h"
#include "publisher/probe/probe.h"

#include <QCommandLineParser>
#include <QEventLoop>
#include <QFileInfo>

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

std::optional<ProbeRequest> readRequest(const QCommandLineParser& parser, Output& output)
{
    const QStringList arguments = parser.positionalArguments();
    ProbeRequest request;
    if (arguments.size() != 1) {
        output.error(u"which server? Name one address, such as https://download.example/"_s);
        return std::nullopt;
    }
    request.baseUrl = baseUrl(arguments.first());
    const QString scheme = request.baseUrl.scheme();
    if (!request.baseUrl.isValid() || request.baseUrl.host().isEmpty()
        || (scheme != "https"_L1 && scheme != "http"_L1)) {
        output.error(u"\"%1\" is no web address; give one such as https://download.example/"_s.arg(
            arguments.first()));
        return std::nullopt;
    }
    if (!FindingReport::acceptsKnownOnly(parser, output))
        return std::nullopt;
    OptionReader options(parser);
    request.daysOfCertificate = options.number(u"days"_s, 0);
    request.secondsOfSilence = options.number(u"timeout"_s, 1);
    if (!options.fault().isEmpty()) {
        output.error(options.fault());
        return std::nullopt;
    }
    request.infoUrl = infoUrl(request.baseUrl, parser.value(u"alert"_s));
    request.test = parser.isSet(u"test"_s);
    request.deep = parser.isSet(u"deep"_s);
    request.tree = parser.value(u"tree"_s);
    return request;
}

void inquire(Probe& probe)
{
    Progress progress(u"Asking"_s, {});
    QEventLoop loop;
    QObject::connect(&probe, &Probe::filesFound, &loop, [&](qint64 count) {
        progress.raiseTotal({ count, 0 });
    });
    QObject::connect(
        &probe, &Probe::received, &loop, [&](qint64 bytes) { progress.addBytes(bytes); });
    QObject::connect(&probe, &Probe::fileDone, &loop, [&] { progress.addFile(); });
    QObject::connect(&probe, &Probe::finished, &loop, &QEventLoop::quit);
    probe.start();
    loop.exec();
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
        { u"deep"_s, u"Downloads every file and compares its hash."_s },
        { u"tree"_s,
          u"Compares with this server tree: manifests and launcher files as they are, patch files "
          "by their sizes."_s,
          u"TREE"_s },
        { u"alert"_s,
          u"Where launchers fetch the text in their window; for the server of this configuration "
          "it is known."_s,
          u"URL"_s },
        { u"timeout"_s, u"Gives up on a server that says nothing for so long (default 60)."_s,
          u"SECONDS"_s, u"60"_s },
        { u"days"_s, u"The certificate must be valid for this many days (default 14)."_s, u"N"_s,
          u"14"_s },
    });
    FindingReport::addOptions(parser);
}

ExitCode run(const QCommandLineParser& parser, Output& output)
{
    const std::optional<ProbeRequest> request = readRequest(parser, output);
    if (!request)
        return ExitCode::Usage;
    if (!request->tree.isEmpty() && !QFileInfo(request->tree).isDir()) {
        output.error(
            u"there is no folder \"%1\"; --tree takes the folder that the web server serves"_s.arg(
                request->tree));
        return ExitCode::InputOutput;
    }
    Probe probe(*request);
    inquire(probe);
    if (!probe.error().isEmpty()) {
        output.error(probe.error());
        return ExitCode::InputOutput;
    }
    if (const auto days = probe.certificateDays()) {
        output.line(u"The certificate is valid for %1 more days."_s.arg(*days));
        output.set(u"certificateDays"_s, *days);
    }
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

} // namespace

const Command probeCommand{ "probe"_L1, "asks a live server what the launchers will ask it"_L1,
                            configure, run };

} // namespace Publisher
