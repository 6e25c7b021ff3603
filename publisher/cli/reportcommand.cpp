#include "publisher/cli/commands.h"
#include "publisher/cli/options.h"
#include "publisher/cli/output.h"
#include "publisher/report/report.h"
#include "publisher/report/reportjson.h"
#include "publisher/report/reporttext.h"

#include <QCommandLineParser>
#include <QJsonObject>

using namespace Qt::StringLiterals;

namespace Publisher {

namespace {

void configure(QCommandLineParser& parser)
{
    parser.setApplicationDescription(
        u"\nTells from access logs who has which publication, what goes wrong for players, and "
        "what the server had to do. Reads logs of nginx, Apache and Caddy, packed ones as well, in "
        "any order. No address is shown: players bear marks that change with every run."_s);
    parser.addPositionalArgument(u"LOG"_s, u"Access log, or - for standard input."_s, u"LOG..."_s);
    parser.addOptions({
        { u"tree"_s,
          u"Folder that the web server serves: names publications by their numbers and knows the "
          "files."_s,
          u"SERVER"_s },
        { u"own"_s,
          u"Leaves out the requests of an address, such as that of a machine with probe "
          "(repeatable)."_s,
          u"ADDRESS"_s },
    });
}

ExitCode run(const QCommandLineParser& parser, Output& output)
{
    ReportRequest request;
    request.logs = parser.positionalArguments();
    request.tree = parser.value(u"tree"_s);
    request.own = parser.values(u"own"_s);
    if (request.logs.isEmpty()) {
        output.error(u"give an access log, or - for standard input"_s);
        return ExitCode::Usage;
    }
    Report report;
    if (const Problem problem = makeReport(request, report)) {
        output.error(*problem);
        return ExitCode::InputOutput;
    }
    const QJsonObject json = toJson(report);
    for (auto member = json.begin(); member != json.end(); ++member)
        output.set(member.key(), member.value());
    const QStringList lines = ReportText::lines(report);
    for (const QString& line : lines)
        output.line(line);
    return ExitCode::Fine;
}

} // namespace

const Command reportCommand{ "report"_L1, "tells from access logs what players get"_L1, configure,
                             run };

} // namespace Publisher
