#include "publisher/build/build.h"
#include "publisher/cli/commands.h"
#include "publisher/cli/findingreport.h"
#include "publisher/cli/options.h"
#include "publisher/cli/output.h"
#include "publisher/cli/recordkeeping.h"
#include "publisher/common/clock.h"
#include "publisher/common/finding.h"
#include "publisher/common/progress.h"

#include <QCommandLineParser>
#include <QDir>
#include <QFile>
#include <QFileInfo>

#include <algorithm>
#include <optional>

using namespace Qt::StringLiterals;

namespace Publisher {

namespace {

QJsonArray toJson(const QList<qint64>& numbers)
{
    QJsonArray array;
    for (const qint64 number : numbers)
        array.append(number);
    return array;
}

QJsonArray toJson(const QList<PublishedRemoval>& removals)
{
    QJsonArray array;
    for (const PublishedRemoval& removal : removals)
        array.append(QJsonObject{ { u"path"_s, removal.path }, { u"folder"_s, removal.isFolder } });
    return array;
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

void showRemovals(const BuildReport& report, Output& output)
{
    const auto what = [](const PublishedRemoval& removal) {
        return removal.isFolder ? u"the folder with all that is in it"_s : u"the file"_s;
    };
    for (const PublishedRemoval& removal : report.removals)
        output.line(
            u"deletes   %1  %2, from every player's client"_s.arg(removal.path, what(removal)));
    for (const PublishedRemoval& removal : report.droppedRemovals)
        output.line(
            u"keeps     %1  %2: the live manifest deletes it, this one does not. Players who have "
            "not been online meanwhile keep it; repeat the removal for as long as there are any"_s
                .arg(removal.path, what(removal)));
}

/// Whether the publication takes the file from players too.
bool isDeleted(const BuildReport::Item& item, const BuildReport& report)
{
    const QString path = item.path.toCaseFolded();
    return std::any_of(
        report.removals.cbegin(), report.removals.cend(), [&](const PublishedRemoval& removal) {
            const QString gone = removal.path.toCaseFolded();
            return removal.isFolder ? path.startsWith(gone + u'/') : path == gone;
        });
}

void showRemoved(const BuildReport& report, Output& output)
{
    list(u"removed"_s, report.removed, output);
    const bool some = std::any_of(
        report.removed.cbegin(), report.removed.cend(),
        [&](const BuildReport::Item& item) { return !isDeleted(item, report); });
    if (some)
        output.line(u"Players keep what is removed from the manifest; --remove takes it away."_s);
    showRemovals(report, output);
}

void showPassedOver(const BuildReport& report, Output& output)
{
    for (const QString& path : report.passedOver)
        output.line(u"passed over %1  because of its name"_s.arg(path));
}

void showOutcome(const BuildRequest& request, const BuildReport& report, Output& output)
{
    const QString manifest = request.next ? ServerLayout::nextManifestName()
                                          : ServerLayout::manifestName(request.kind);
    if (request.dryRun)
        output.line(u"Dry run: nothing has been written."_s);
    else if (report.manifestChanged && request.next)
        output.line(
            u"Published: %1 is there for the players that the server gives it to."_s.arg(manifest));
    else if (report.manifestChanged)
        output.line(u"Published: %1 is live."_s.arg(manifest));
    else if (request.renew)
        output.line(u"%1 is unchanged and has a new date."_s.arg(manifest));
    else
        output.line(u"%1 is unchanged."_s.arg(manifest));
}

void showDifference(const BuildReport& report, Output& output)
{
    showPassedOver(report, output);
    list(u"added"_s, report.added, output);
    list(u"changed"_s, report.changed, output);
    showRemoved(report, output);
    list(u"repaired"_s, report.repaired, output);
    list(u"pruned"_s, report.pruned, output);
    if (!report.unreachable.isEmpty())
        output.line(u"Without what is pruned there is no way back to publication %1; --keep keeps "
                    u"more."_s.arg(Findings::numberList(report.unreachable)));
    output.line(u"%1 added, %2 changed, %3 removed, %4 unchanged."_s.arg(report.added.size())
                    .arg(report.changed.size())
                    .arg(report.removed.size())
                    .arg(report.unchanged));
    output.line(report.traffic.sentence());
    for (const QString& note : report.notes)
        output.line(note);
}

void setDifference(const BuildRequest& request, const BuildReport& report, Output& output)
{
    output.set(u"kind"_s, ServerLayout::word(request.kind));
    output.set(u"dryRun"_s, request.dryRun);
    output.set(u"added"_s, toJson(report.added));
    output.set(u"changed"_s, toJson(report.changed));
    output.set(u"removed"_s, toJson(report.removed));
    output.set(u"removals"_s, toJson(report.removals));
    output.set(u"droppedRemovals"_s, toJson(report.droppedRemovals));
    output.set(u"passedOver"_s, QJsonArray::fromStringList(report.passedOver));
    output.set(u"notes"_s, QJsonArray::fromStringList(report.notes));
    output.set(u"repaired"_s, toJson(report.repaired));
    output.set(u"pruned"_s, toJson(report.pruned));
    output.set(u"unreachable"_s, toJson(report.unreachable));
    output.set(u"unchanged"_s, report.unchanged);
    output.set(u"bytesToUpdate"_s, report.traffic.bytesToUpdate);
    output.set(u"bytesInAll"_s, report.traffic.bytesInAll);
    output.set(u"manifestChanged"_s, report.manifestChanged);
}

bool isInside(const QString& path, const QString& folder)
{
    return path == folder || path.startsWith(folder + u'/');
}

/// Why the folders make no sense; empty when they do.
QString faultOf(const QCommandLineParser& parser)
{
    const QStringList folders = parser.positionalArguments();
    if (folders.size() != 2)
        return u"give the source folder and the server folder"_s;
    const QString source = QFileInfo(folders.at(0)).canonicalFilePath();
    const QString server = QDir::cleanPath(QFileInfo(folders.at(1)).absoluteFilePath());
    if (source.isEmpty() || !QFileInfo(source).isDir())
        return u"there is no folder \"%1\"; name the source, which is laid out as the client"_s.arg(
            folders.at(0));
    if (isInside(source, server) || isInside(server, source))
        return u"the source folder and the server folder must not lie in each other; name two "
               "that stand apart"_s;
    if (parser.isSet(u"next"_s) && parser.value(u"kind"_s) != ServerLayout::word(Kind::Live))
        return u"--next is for live players; testers have a manifest of their own"_s;
    if (parser.isSet(u"next"_s) && parser.isSet(u"prune"_s))
        return u"--prune goes with the publication that makes the next one live"_s;
    return {};
}

BuildRequest requestOf(const QCommandLineParser& parser, OptionReader& options)
{
    return {
        .source = QFileInfo(parser.positionalArguments().at(0)).canonicalFilePath(),
        .server = options.folder(1),
        .kind = options.kind(),
        .next = options.isSet(u"next"_s),
        .separator = options.separator(),
        .removals = { .files = parser.values(u"remove"_s),
                      .folders = parser.values(u"remove-folder"_s),
                      .realms = options.realms() },
        .confirmedDrops = options.confirmedDrops(),
        .renew = options.isSet(u"renew"_s),
        .dryRun = options.isSet(u"dry-run"_s),
        .prune = options.isSet(u"prune"_s),
        .keep = options.number(u"keep"_s, 1),
        .message = options.text(u"message"_s),
        .rehash = options.isSet(u"rehash"_s),
        .flush = !options.isSet(u"no-flush"_s),
        .threads = options.number(u"jobs"_s, 1),
    };
}

/// Adds what a list beside the source says. Returns what went wrong, as a sentence.
QString addRemovalsOfFile(const QCommandLineParser& parser, BuildRequest& request, Output& output)
{
    const QString beside = request.source + ".removals"_L1;
    const QString path = parser.isSet(u"removals"_s) ? parser.value(u"removals"_s) : beside;
    if (path == beside && !QFileInfo::exists(path))
        return {};
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return u"the removals in %1 cannot be read: %2. Give yourself the right to, or name "
               u"another "
               "file with --removals"_s.arg(path, file.errorString());
    output.line(u"Removals of %1 are taken along."_s.arg(path));
    const QStringList lines = QString::fromUtf8(file.readAll()).split(u'\n');
    for (const QString& line : lines) {
        const QString entry = line.trimmed();
        const bool isFolder = entry.endsWith(u'/') || entry.endsWith(u'\\');
        if (!entry.isEmpty() && !entry.startsWith(u'#'))
            (isFolder ? request.removals.folders : request.removals.files).append(entry);
    }
    return {};
}

void configure(QCommandLineParser& parser)
{
    parser.setApplicationDescription(
        u"\nPublishes SOURCE, which is laid out as the client folder, in SERVER, which the web "
        "server serves. Nothing that is published is overwritten; the manifest goes live last, "
        "atomically."_s);
    parser.addPositionalArgument(
        u"SOURCE"_s, u"Folder with Data/..., patched_wow.exe and so on."_s);
    Options::addServer(parser);
    Options::addKind(parser, u"Which players get it: live (patch.ini) or test (patchTest.ini)."_s);
    Options::addPlayers(parser, u"Removals reach players with up to this many realm entries."_s);
    parser.addOptions({
        { u"remove"_s, u"Removes this file from every player's client; repeatable for one name."_s,
          u"PATH"_s },
        { u"remove-folder"_s,
          u"Removes this folder and all that is in it from every player's client; repeatable "
          "for one name."_s,
          u"PATH"_s },
        { u"removals"_s,
          u"Removes what this file lists too, one path a line, folders with a slash at the end; "
          "SOURCE.removals, beside the source, if it is there."_s,
          u"FILE"_s },
        { u"next"_s,
          u"Publishes it beside what is live, as %1, for the share of the players that the server "
          "gives it to."_s.arg(ServerLayout::nextManifestName()) },
        { u"renew"_s,
          u"Dates the manifest anew even if it has not changed, so that every launcher fetches it "
          "once more."_s },
        { u"prune"_s,
          u"Removes the kind's files that none of the latest publications names, once the new "
          "manifest is live. Players in the middle of an update may still ask for them."_s },
        { u"keep"_s,
          u"With --prune: how many publications keep their files, the new one included, so that "
          "one can roll back to them."_s,
          u"NUMBER"_s, u"3"_s },
    });
    Options::addPublishing(parser);
    RecordKeeping::addOption(parser);
}

std::optional<BuildRequest> readRequest(const QCommandLineParser& parser, Output& output)
{
    QString fault = faultOf(parser);
    if (fault.isEmpty()) {
        OptionReader options(parser);
        const BuildRequest request = requestOf(parser, options);
        fault = options.fault();
        if (fault.isEmpty())
            return request;
    }
    output.error(fault);
    return std::nullopt;
}

ExitCode run(const QCommandLineParser& parser, Output& output)
{
    std::optional<BuildRequest> wanted = readRequest(parser, output);
    if (!wanted)
        return ExitCode::Usage;
    BuildRequest& request = *wanted;
    if (const QString fault = addRemovalsOfFile(parser, request, output); !fault.isEmpty()) {
        output.error(fault);
        return ExitCode::InputOutput;
    }
    RecordKeeping record(parser, output);
    if (!record.isReady())
        return ExitCode::InputOutput;
    Clock clock;
    BuildReport report;
    const ExitCode code = build(request, clock, report);
    if (code == ExitCode::InputOutput) {
        output.error(report.error);
        return code;
    }
    setDifference(request, report, output);
    if (report.compared)
        showDifference(report, output);
    else
        showRemoved(report, output);
    if (code == ExitCode::Findings)
        FindingReport::showRefusals(report.refusals, output);
    else
        showOutcome(request, report, output);
    return code == ExitCode::Fine && !request.dryRun
        ? record.addPatch(request.server, request.kind, request.next)
        : code;
}

} // namespace

const Command buildCommand{ "build"_L1, "publishes a folder of patch files"_L1, configure, run };

} // namespace Publisher
