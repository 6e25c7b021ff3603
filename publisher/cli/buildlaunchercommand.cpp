#include "publisher/build/launcherrelease.h"
#include "publisher/cli/commands.h"
#include "publisher/cli/findingreport.h"
#include "publisher/cli/options.h"
#include "publisher/cli/output.h"
#include "publisher/cli/recordkeeping.h"
#include "publisher/common/clock.h"
#include "publisher/common/progress.h"

#include <QCommandLineParser>
#include <QFileInfo>

using namespace Qt::StringLiterals;

namespace Publisher {

namespace {

/// What keeps the command line from making sense; empty when it does.
QString faultOf(const QCommandLineParser& parser)
{
    if (parser.positionalArguments().size() != 1)
        return u"give the server folder, the one that the web server serves"_s;
    for (const QString& option : { u"launcher"_s, u"updater"_s }) {
        if (!parser.isSet(option))
            return u"give --%1 FILE"_s.arg(option);
        if (!QFileInfo(parser.value(option)).isFile())
            return u"there is no file \"%1\"; name the program with --%2"_s.arg(
                parser.value(option), option);
    }
    return {};
}

void show(const LauncherRequest& request, const LauncherReport& report, Output& output)
{
    QJsonArray files;
    for (const LauncherReport::Item& item : report.items) {
        output.line(u"%1 %2  %3"_s.arg(item.change, -9).arg(item.name, humanSize(item.size)));
        files.append(QJsonObject{
            { u"name"_s, item.name }, { u"size"_s, item.size }, { u"change"_s, item.change } });
    }
    if (request.dryRun)
        output.line(u"Dry run: nothing has been written."_s);
    output.set(u"files"_s, files);
    output.set(u"dryRun"_s, request.dryRun);
}

void configure(QCommandLineParser& parser)
{
    parser.setApplicationDescription(
        u"\nPuts both programs into SERVER under the names that launchers ask for. A program that "
        "has not changed keeps its date."_s);
    Options::addServer(parser);
    parser.addOptions({
        { u"launcher"_s, u"The launcher to publish."_s, u"FILE"_s },
        { u"updater"_s, u"The updater to publish."_s, u"FILE"_s },
        { { u"n"_s, u"dry-run"_s }, u"Tells the difference and writes nothing."_s },
        { u"renew"_s,
          u"Dates both anew even if they have not changed: every player fetches them once more."_s },
        { u"no-flush"_s, u"Does not wait until both are on the disk."_s },
    });
    RecordKeeping::addOption(parser);
}

ExitCode run(const QCommandLineParser& parser, Output& output)
{
    if (const QString fault = faultOf(parser); !fault.isEmpty()) {
        output.error(fault);
        return ExitCode::Usage;
    }
    const LauncherRequest request{
        .launcher = parser.value(u"launcher"_s),
        .updater = parser.value(u"updater"_s),
        .server = OptionReader(parser).folder(0),
        .dryRun = parser.isSet(u"dry-run"_s),
        .renew = parser.isSet(u"renew"_s),
        .flush = !parser.isSet(u"no-flush"_s),
    };
    RecordKeeping record(parser, output);
    if (!record.isReady())
        return ExitCode::InputOutput;
    Clock clock;
    LauncherReport report;
    const ExitCode code = releaseLauncher(request, clock, report);
    if (code == ExitCode::Fine)
        show(request, report, output);
    else if (code == ExitCode::Findings)
        FindingReport::showRefusals(report.refusals, output);
    else
        output.error(report.error);
    return code == ExitCode::Fine && !request.dryRun ? record.addLauncher(request.server) : code;
}

} // namespace

const Command buildLauncherCommand{ "build-launcher"_L1,
                                    "publishes the launcher and its updater"_L1, configure, run };

} // namespace Publisher
