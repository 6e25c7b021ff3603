#include "publisher/buildcommand.h"

#include "publisher/build.h"
#include "publisher/clock.h"
#include "publisher/names.h"
#include "publisher/output.h"
#include "publisher/progress.h"
#include "publisher/removalplan.h"

#include <QCommandLineParser>
#include <QDir>
#include <QFileInfo>
#include <QThread>

using namespace Qt::StringLiterals;

namespace {

void addSwitches(QCommandLineParser& parser)
{
    parser.addOptions({
        { { u"n"_s, u"dry-run"_s }, u"Tells the difference and writes nothing."_s },
        { u"prune"_s,
          u"Removes the kind's files that the new manifest does not name, once it is live. "
          "Players in the middle of an update may still ask for them."_s },
        { u"rehash"_s,
          u"Reads every file, even where size and dates say that it has not changed."_s },
        { u"jobs"_s, u"Reads and copies this many files at once."_s, u"NUMBER"_s,
          QString::number(QThread::idealThreadCount()) },
        { u"no-flush"_s,
          u"Does not wait until everything is on the disk. Faster, but a power cut soon "
          "afterwards can leave a broken publication."_s },
    });
}

QJsonArray toJson(const QList<BuildReport::Item>& items)
{
    QJsonArray array;
    for (const BuildReport::Item& item : items)
        array.append(QJsonObject{ { u"path"_s, item.path }, { u"size"_s, item.size } });
    return array;
}

void list(const QString& word, const QList<BuildReport::Item>& items, Output& output)
{
    for (const BuildReport::Item& item : items)
        output.line(u"%1 %2  %3"_s.arg(word, -9).arg(item.path, humanSize(item.size)));
}

void showOutcome(const BuildRequest& request, const BuildReport& report, Output& output)
{
    const QString manifest = manifestNameOf(request.kind);
    if (request.dryRun)
        output.line(u"Dry run: nothing has been written."_s);
    else if (report.manifestChanged)
        output.line(u"Published: %1 is live."_s.arg(manifest));
    else
        output.line(u"%1 is unchanged."_s.arg(manifest));
}

void showDifference(const BuildRequest& request, const BuildReport& report, Output& output)
{
    list(u"added"_s, report.added, output);
    list(u"changed"_s, report.changed, output);
    list(u"removed"_s, report.removed, output);
    list(u"repaired"_s, report.repaired, output);
    list(u"pruned"_s, report.pruned, output);
    output.line(u"%1 added, %2 changed, %3 removed, %4 unchanged."_s.arg(report.added.size())
                    .arg(report.changed.size())
                    .arg(report.removed.size())
                    .arg(report.unchanged));
    if (!report.removed.isEmpty())
        output.line(u"Players keep what is removed from the manifest; --remove takes it away."_s);
    output.line(u"A player who is up to date fetches %1, a new one %2."_s.arg(
        humanSize(report.bytesToUpdate), humanSize(report.bytesInAll)));
    showOutcome(request, report, output);
}

void setDifference(const BuildRequest& request, const BuildReport& report, Output& output)
{
    output.set(u"kind"_s, request.kind);
    output.set(u"dryRun"_s, request.dryRun);
    output.set(u"added"_s, toJson(report.added));
    output.set(u"changed"_s, toJson(report.changed));
    output.set(u"removed"_s, toJson(report.removed));
    output.set(u"repaired"_s, toJson(report.repaired));
    output.set(u"pruned"_s, toJson(report.pruned));
    output.set(u"unchanged"_s, report.unchanged);
    output.set(u"bytesToUpdate"_s, report.bytesToUpdate);
    output.set(u"bytesInAll"_s, report.bytesInAll);
    output.set(u"manifestChanged"_s, report.manifestChanged);
}

bool isInside(const QString& path, const QString& folder)
{
    return path == folder || path.startsWith(folder + u'/');
}

/// What keeps the command line from making sense; empty when it does.
QString faultOf(const QCommandLineParser& parser)
{
    const QStringList folders = parser.positionalArguments();
    if (folders.size() != 2)
        return u"give the source folder and the server folder"_s;
    const QString source = QFileInfo(folders.at(0)).canonicalFilePath();
    const QString server = QDir::cleanPath(QFileInfo(folders.at(1)).absoluteFilePath());
    if (source.isEmpty() || !QFileInfo(source).isDir())
        return u"there is no folder \"%1\""_s.arg(folders.at(0));
    if (isInside(source, server) || isInside(server, source))
        return u"the source folder and the server folder must not lie in each other"_s;
    const QString kind = parser.value(u"kind"_s);
    if (kind != "live"_L1 && kind != "test"_L1)
        return u"--kind is live or test"_s;
    const QString separator = parser.value(u"separator"_s);
    if (separator != "/"_L1 && separator != R"(\)"_L1)
        return uR"(--separator is / or \)"_s;
    if (parser.value(u"jobs"_s).toInt() < 1)
        return u"--jobs is a number from 1"_s;
    const int realms = parser.value(u"realms"_s).toInt();
    if (realms < 1 || realms > mostRealms)
        return u"--realms is a number from 1 to %1"_s.arg(mostRealms);
    return {};
}

BuildRequest requestOf(const QCommandLineParser& parser)
{
    const QStringList folders = parser.positionalArguments();
    return {
        .source = QFileInfo(folders.at(0)).canonicalFilePath(),
        .server = QDir::cleanPath(QFileInfo(folders.at(1)).absoluteFilePath()),
        .kind = parser.value(u"kind"_s),
        .separator = parser.value(u"separator"_s).at(0),
        .removals = { .files = parser.values(u"remove"_s),
                      .folders = parser.values(u"remove-folder"_s),
                      .realms = parser.value(u"realms"_s).toInt() },
        .dryRun = parser.isSet(u"dry-run"_s),
        .prune = parser.isSet(u"prune"_s),
        .rehash = parser.isSet(u"rehash"_s),
        .flush = !parser.isSet(u"no-flush"_s),
        .threads = parser.value(u"jobs"_s).toInt(),
    };
}

} // namespace

QString BuildCommand::name() const
{
    return u"build"_s;
}

QString BuildCommand::summary() const
{
    return u"publishes a folder of patch files"_s;
}

void BuildCommand::configure(QCommandLineParser& parser) const
{
    parser.setApplicationDescription(
        u"\nPublishes SOURCE, which is laid out as the client folder, in SERVER, which the web "
        "server serves. Nothing that is published is overwritten; the manifest goes live last, "
        "in one blow."_s);
    parser.addPositionalArgument(
        u"SOURCE"_s, u"Folder with Data/..., patched_wow.exe and so on."_s);
    parser.addPositionalArgument(u"SERVER"_s, u"Folder that the web server serves."_s);
    parser.addOptions({
        { u"kind"_s, u"Which players get it: live (patch.ini) or test (patchTest.ini)."_s,
          u"KIND"_s, u"live"_s },
        { u"separator"_s, u"Between the folders on players' systems: \\ (Windows) or /."_s,
          u"CHARACTER"_s, u"\\"_s },
        { u"remove"_s, u"Removes this file from every player's client; repeatable for one name."_s,
          u"PATH"_s },
        { u"remove-folder"_s,
          u"Removes this folder and all that is in it from every player's client; repeatable "
          "for one name."_s,
          u"PATH"_s },
        { u"realms"_s, u"Removals reach players with up to this many realm entries."_s, u"NUMBER"_s,
          u"16"_s },
    });
    addSwitches(parser);
}

ExitCode BuildCommand::run(const QCommandLineParser& parser, Output& output)
{
    if (const QString fault = faultOf(parser); !fault.isEmpty()) {
        output.error(fault);
        return ExitCode::Usage;
    }
    const BuildRequest request = requestOf(parser);
    Clock clock;
    BuildReport report;
    const ExitCode code = build(request, clock, report);
    if (code == ExitCode::Fine) {
        showDifference(request, report, output);
        setDifference(request, report, output);
    } else if (code == ExitCode::Findings) {
        showRefusals(report.refusals, output);
    } else {
        output.error(report.error);
    }
    return code;
}
