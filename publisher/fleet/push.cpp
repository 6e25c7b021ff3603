#include "publisher/fleet/push.h"

#include "publisher/check/check.h"
#include "publisher/check/checkserved.h"
#include "publisher/common/clock.h"
#include "publisher/common/filework.h"
#include "publisher/common/progress.h"
#include "publisher/common/treelock.h"
#include "publisher/fleet/acquaintance.h"
#include "publisher/fleet/content.h"
#include "publisher/fleet/exchange.h"
#include "publisher/fleet/fleetprobe.h"
#include "publisher/fleet/lastnamed.h"

#include <QFileInfo>

#include <algorithm>

using namespace Qt::StringLiterals;

namespace Publisher {

namespace {

/// What `check` says of the tree; of the patch files only where they lie.
QList<Finding> checkTree(const PushRequest& request, const QString& files)
{
    QList<Finding> findings;
    for (const Kind kind : { Kind::Live, Kind::Test }) {
        const QString name = ServerLayout::manifestName(kind);
        const QString path = request.tree + u'/' + name;
        if (kind == Kind::Live || QFileInfo::exists(path))
            findings += Check::inspect(path, name, kind, request.players, files).findings;
    }
    const QString next = ServerLayout::nextManifestName();
    if (const QString path = request.tree + u'/' + next; QFileInfo::exists(path))
        findings += Check::inspect(path, next, Kind::Live, request.players, files).findings;
    return findings + CheckServed::inspect(request.tree).findings;
}

class Push {
public:
    Push(const PushRequest& wanted, Clock& time, PushReport& target)
        : request(wanted)
        , clock(time)
        , report(target)
        , members(wanted.servers)
        , tree(PushedTree::read(wanted.tree))
    {
    }

    ExitCode run()
    {
        if (Problem problem = tree.takeSizes())
            return fail(*problem);
        if (!members.forEach([](Member& member) { return member.survey(); })) {
            describe();
            return ExitCode::InputOutput;
        }
        if (!isSound())
            return ExitCode::Findings;
        const bool isDone = request.dryRun || (bringContent() && exchange() && clearAway());
        describe();
        if (!isDone)
            return ExitCode::InputOutput;
        return request.dryRun ? ExitCode::Fine : finish();
    }

private:
    ExitCode fail(const QString& sentence)
    {
        report.errors.append(sentence);
        return ExitCode::InputOutput;
    }

    /// Whether `check` lets the tree pass. Where nothing is to be copied, its files are
    /// not read anew.
    bool isSound()
    {
        const auto& all = members.all();
        const bool isUnchanged = std::all_of(all.cbegin(), all.cend(), [&](const Member& member) {
            return planOf(member).verify.isEmpty();
        });
        report.findings = checkTree(request, isUnchanged ? QString() : request.tree);
        return std::none_of(
            report.findings.cbegin(), report.findings.cend(),
            [this](const Finding& finding) { return counts(finding); });
    }

    bool counts(const Finding& finding) const
    {
        return !request.accepted.contains(finding.identifier());
    }

    ContentPlan planOf(const Member& member) const
    {
        return ContentPlan::of(member, tree);
    }

    /// All that the new manifests name, to all servers.
    bool bringContent()
    {
        return Acquaintance::make(members, request.secondsOfSilence, clock) && copyContent()
            && verifyContent();
    }

    bool copyContent()
    {
        Progress progress(u"Copying"_s, total(&ContentPlan::toCopy));
        return members.forEach(
            [&](Member& member) { return Content::copy(member, tree, planOf(member), progress); });
    }

    bool verifyContent()
    {
        Progress progress(u"Asking"_s, total(&ContentPlan::toVerify));
        return members.forEach(
            [&](Member& member) { return verify(member, planOf(member).verify, progress); });
    }

    /// What a push that was cut off has left in part may have its full size; it is copied
    /// once more.
    Problem verify(Member& member, const QStringList& files, Progress& progress) const
    {
        QStringList wrong;
        const auto ask = [&](const QStringList& asked) {
            wrong.clear();
            return Content::verify(member, tree, asked, request.secondsOfSilence, progress, wrong);
        };
        Problem problem = ask(files);
        if (problem || wrong.isEmpty())
            return problem;
        const QStringList again = wrong;
        problem = inOrder(
            [&] { return Content::replace(member, tree, again, progress); },
            [&] { return ask(again); });
        if (problem || wrong.isEmpty())
            return problem;
        return u"%1 arrives from it as something else than it is here. Look at its disk and at "
               "what stands in front of it"_s.arg(wrong.first());
    }

    Progress::Count total(Progress::Count ContentPlan::*part) const
    {
        Progress::Count count{};
        for (const Member& member : members.all()) {
            const ContentPlan plan = planOf(member);
            count.files += (plan.*part).files;
            count.bytes += (plan.*part).bytes;
        }
        return count;
    }

    bool exchange()
    {
        Exchange exchanging(members, tree, request.pause, clock);
        if (!exchanging.stageAll())
            return false;
        report.stage = PushReport::Stage::Switching;
        const bool isDone = exchanging.run();
        if (isDone)
            report.stage = PushReport::Stage::Switched;
        return isDone;
    }

    bool clearAway()
    {
        return members.forEach([](Member& member) { return member.storage.removeStagingFolder(); });
    }

    void describe()
    {
        const Exchange exchanging(members, tree, request.pause, clock);
        for (const Member& member : members.all()) {
            PushReport::Row row;
            row.server = member.server.name;
            if (request.dryRun || report.stage == PushReport::Stage::Switched)
                row.exchanged = exchanging.changesOf(member);
            row.files = member.filesCopied;
            row.bytes = member.bytesCopied;
            if (request.dryRun && !member.problem)
                countPlanned(member, row);
            row.milliseconds = member.milliseconds;
            row.verdict = verdictOf(member, row);
            report.rows.append(row);
            if (member.problem)
                report.errors.append(
                    u"server \"%1\": %2"_s.arg(member.server.name, *member.problem));
        }
    }

    void countPlanned(const Member& member, PushReport::Row& row) const
    {
        row.files = planOf(member).toCopy.files + row.exchanged.size();
        row.bytes = planOf(member).toCopy.bytes;
        for (const QString& name : std::as_const(row.exchanged))
            row.bytes += QFileInfo(request.tree + u'/' + name).size();
    }

    QString verdictOf(const Member& member, const PushReport::Row& row) const
    {
        if (member.problem)
            return u"failed"_s;
        if (request.dryRun)
            return row.files > 0 ? u"would change"_s : u"unchanged"_s;
        if (report.stage == PushReport::Stage::Switching)
            return u"perhaps switched"_s;
        if (report.stage == PushReport::Stage::Before)
            return u"not switched"_s;
        return row.exchanged.isEmpty() ? u"unchanged"_s : u"switched"_s;
    }

    ExitCode finish()
    {
        probeAll();
        const bool isFine = std::none_of(
            report.findings.cbegin(), report.findings.cend(),
            [this](const Finding& finding) { return counts(finding); });
        if (!isFine)
            return ExitCode::Findings;
        return prune() ? ExitCode::Fine : ExitCode::InputOutput;
    }

    void probeAll()
    {
        FleetProbeRequest asked;
        asked.servers = request.servers;
        asked.probe.test = tree.rootFile(ServerLayout::manifestName(Kind::Test)).isThere();
        asked.probe.next = tree.rootFile(ServerLayout::nextManifestName()).isThere();
        asked.probe.tree = request.tree;
        asked.probe.infoUrl = request.infoUrl;
        asked.probe.daysOfCertificate = request.daysOfCertificate;
        asked.probe.secondsOfSilence = request.secondsOfSilence;
        const FleetProbeReport probed = probeFleet(asked);
        report.findings += probed.findings;
        report.errors += probed.errors;
    }

    static bool isPatchFile(const QString& path)
    {
        // Names that begin with a dot are of those at work there.
        return path.startsWith(ServerLayout::patchFolder() + u'/') && !path.contains("/."_L1);
    }

    bool prune()
    {
        QSet<QString> present;
        QSet<QString> named(tree.content.keyBegin(), tree.content.keyEnd());
        for (const Member& member : members.all()) {
            named.unite({ member.present.content.keyBegin(), member.present.content.keyEnd() });
            const QStringList paths = member.sizes.keys();
            for (const QString& path : paths) {
                if (isPatchFile(path))
                    present.insert(path);
            }
        }
        present.unite({ tree.content.keyBegin(), tree.content.keyEnd() });
        LastNamed record(request.tree);
        record.note(present, named, clock.now());
        if (const Problem problem = record.store()) {
            report.errors.append(*problem);
            return false;
        }
        return !request.pruneAfterDays
            || remove(record.unnamedFor(*request.pruneAfterDays, clock.now()));
    }

    bool remove(QSet<QString> unnamed)
    {
        unnamed.subtract({ tree.content.keyBegin(), tree.content.keyEnd() });
        const bool isDone = members.forEach([&](Member& member) {
            QStringList gone;
            const QStringList paths = member.sizes.keys();
            for (const QString& path : paths) {
                if (unnamed.contains(path))
                    gone.append(path);
            }
            rowOf(member).pruned = gone.size();
            if (gone.isEmpty())
                return Problem();
            return inOrder(
                [&] { return member.storage.remove(gone); },
                [&] { return member.storage.removeEmptyFolders(); });
        });
        for (const Member& member : members.all()) {
            if (member.problem)
                report.errors.append(
                    u"server \"%1\": %2"_s.arg(member.server.name, *member.problem));
        }
        return isDone;
    }

    /// Each is written by the thread of its member alone.
    PushReport::Row& rowOf(const Member& member)
    {
        return report.rows[&member - members.all().data()];
    }

    const PushRequest& request;
    Clock& clock;
    PushReport& report;
    FileWork::PublicFiles publicFiles;
    Members members;
    PushedTree tree;
};

} // namespace

ExitCode push(const PushRequest& request, Clock& clock, PushReport& report)
{
    std::optional<TreeLock> lock;
    if (!request.dryRun)
        lock.emplace(request.tree);
    if (lock && lock->problem()) {
        report.errors.append(*lock->problem());
        return ExitCode::InputOutput;
    }
    return Push(request, clock, report).run();
}

} // namespace Publisher
