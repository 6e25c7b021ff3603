#include "publisher/cli/findingreport.h"

#include "publisher/cli/output.h"

#include <QCommandLineParser>
#include <QJsonArray>

using namespace Qt::StringLiterals;

namespace Publisher {

namespace {

constexpr QLatin1StringView acceptOption("accept");

QString counted(qsizetype count, const QString& accepted)
{
    if (count == 0)
        return "no findings"_L1 + accepted;
    return QString::number(count) + (count == 1 ? " finding"_L1 : " findings"_L1) + accepted;
}

} // namespace

namespace FindingReport {

void addOptions(QCommandLineParser& parser)
{
    parser.addOption({ QString(acceptOption),
                       u"Findings with this identifier are shown but do not count (repeatable)."_s,
                       u"ID"_s });
}

bool acceptsKnownOnly(const QCommandLineParser& parser, Output& output)
{
    const QStringList known = Findings::ofInspection();
    const QStringList accepted = parser.values(acceptOption);
    for (const QString& identifier : accepted) {
        if (known.contains(identifier))
            continue;
        output.error(u"there is no finding \"%1\"; those that can be accepted are %2"_s.arg(
            identifier, known.join(", "_L1)));
        return false;
    }
    return true;
}

ExitCode conclude(const QList<Finding>& findings, const QCommandLineParser& parser, Output& output)
{
    const QStringList accepted = parser.values(acceptOption);
    QJsonArray objects;
    qsizetype counting = 0;
    for (const Finding& finding : findings) {
        const bool counts = !accepted.contains(finding.identifier());
        counting += counts ? 1 : 0;
        QJsonObject object = Findings::toJson(finding);
        object.insert(u"accepted"_s, !counts);
        objects.append(object);
        output.line((counts ? QString() : u"(accepted) "_s) + Findings::toText(finding));
        output.line("    "_L1 + finding.remedy());
    }
    output.set(u"findings"_s, objects);
    const qsizetype passed = findings.size() - counting;
    output.line(counted(
        counting, passed > 0 ? ", "_L1 + QString::number(passed) + " accepted"_L1 : QString()));
    return counting > 0 ? ExitCode::Findings : ExitCode::Fine;
}

void showRefusals(const QList<Finding>& refusals, Output& output)
{
    QJsonArray array;
    for (const Finding& refusal : refusals) {
        const QString reason = refusal.text + u' ' + refusal.remedy();
        output.line(u"%1: %2 [%3]"_s.arg(refusal.subject, reason, refusal.identifier()));
        array.append(QJsonObject{ { u"id"_s, refusal.identifier() },
                                  { u"path"_s, refusal.subject },
                                  { u"reason"_s, reason } });
    }
    output.line(u"Nothing has been published."_s);
    output.set(u"refusals"_s, array);
}

} // namespace FindingReport

} // namespace Publisher
