#include "publisher/cli/commands.h"
#include "publisher/cli/options.h"
#include "publisher/cli/output.h"
#include "publisher/report/report.h"
#include "publisher/report/reportjson.h"
#include "publisher/report/reportmetrics.h"
#include "publisher/report/reportpage.h"
#include "publisher/report/reporttext.h"

#include <QCommandLineParser>
#include <QJsonObject>
#include <QSaveFile>

#include <functional>

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
        { u"html"_s, u"Writes it as a page as well, which needs nothing from elsewhere."_s,
          u"FILE"_s },
        { u"metrics"_s, u"Writes the figures for Prometheus' node exporter as well (*.prom)."_s,
          u"FILE"_s },
        { u"own"_s,
          u"Leaves out the requests of an address, such as that of a machine with probe "
          "(repeatable)."_s,
          u"ADDRESS"_s },
    });
}

/// Puts a file in place as a whole, where one is asked for: whoever reads it meanwhile
/// has the former one.
Problem write(const QString& path, const std::function<QByteArray()>& content)
{
    if (path.isEmpty())
        return std::nullopt;
    QSaveFile file(path);
    if (file.open(QIODevice::WriteOnly)) {
        file.write(content());
        // A web server, or the exporter, is another user.
        file.setPermissions(file.permissions() | QFile::ReadGroup | QFile::ReadOther);
        if (file.commit())
            return std::nullopt;
    }
    return u"%1 cannot be written: %2"_s.arg(path, file.errorString());
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
    const Problem problem = inOrder(
        [&] { return write(parser.value(u"html"_s), [&] { return toPage(report); }); },
        [&] { return write(parser.value(u"metrics"_s), [&] { return toMetrics(report); }); });
    if (problem) {
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
