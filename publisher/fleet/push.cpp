#include "publisher/fleet/push.h"

#include "publisher/check/check.h"
#include "publisher/check/checkserved.h"
#include "publisher/common/clock.h"
#include "publisher/common/filework.h"
#include "publisher/common/hashcache.h"
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

/// Of each manifest: by then every file has been hashed on its arrival, or been listed
/// with its size at a server whose own manifest has named it.
constexpr qsizetype patchFilesToProbe = 20;

/// What `check` says of the tree; of the patch files only where they lie. Those that
/// nobody has touched since `build` has written them are not read.
QList<Finding> checkTree(const PushRequest& request, const QString& files)
{
    const QList<std::pair<Kind, QString>> manifests{
        { Kind::Live, ServerLayout::manifestName(Kind::Live) },
        { Kind::Test, ServerLayout::manifestName(Kind::Test) },
        { Kind::Live, ServerLayout::nextManifestName() },
    };
    QList<Finding> findings;
    for (const auto& [kind, name] : manifests) {
        const QString path = request.tree + u'/' + name;
        const auto known
            = HashCache::forTarget(request.tree + u'/' + ServerLayout::kindFolder(kind));
        if (name == manifests.first().second || QFileInfo::exists(path))
            findings += Check::inspect(path, name, kind, request.players, files, &known).findings;
    }
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
        if (!request.dryRun && !hasWork())
            report.stage = PushReport::Stage::Switched;
        const bool isDone
            = request.dryRun || !hasWork() || (bringContent() && exchange() && clearAway());
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
        report.findings = checkTree(request, needsContent() ? request.tree : QString());
        return std::none_of(
            report.findings.cbegin(), report.findings.cend(),
            [this](const Finding& finding) { return counts(finding); });
    }

    bool needsContent() const
    {
        return isAny([this](const Member& member) { return !planOf(member).verify.isEmpty(); });
    }

    /// Whether some server is not as it should be.
    bool hasWork()
    {
        return needsContent() || isAny([](const Member& member) {
                   return member.isInterrupted() || Acquaintance::hasLeftSomething(member);
               })
            || Exchange(members, tree, request.pause, clock).isNeeded();
    }

    bool isAny(const std::function<bool(const Member&)>& condition) const
    {
        return std::any_of(members.all().cbegin(), members.all().cend(), condition);
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
        if (!Acquaintance::make(members, request.secondsOfSilence, clock))
            return false;
        Progress progress(u"Copying and asking"_s, totalWork());
        return members.forEach([&](Member& member) { return bringTo(member, progress); });
    }

    /// What a push that was cut off has left in part may have its full size; it is copied
    /// once more.
    Problem bringTo(Member& member, Progress& progress) const
    {
        QStringList wrong;
        const auto bring = [&](const ContentPlan& plan) {
            return Content::bring(member, tree, plan, request.secondsOfSilence, progress, wrong);
        };
        Problem problem = bring(planOf(member));
        if (!problem && !wrong.isEmpty())
            problem = bring(ContentPlan::again(wrong));
        if (problem || wrong.isEmpty())
            return problem;
        return u"%1 arrives from it as something else than has been published. Look at its disk "
               "and at what stands in front of it, and let `check` look at the tree"_s.arg(
                   wrong.first());
    }

    /// Each file is copied, and asked for.
    Progress::Count totalWork() const
    {
        Progress::Count count{};
        for (const Member& member : members.all()) {
            const ContentPlan plan = planOf(member);
            count.files += plan.toCopy.files + plan.toVerify.files;
            count.bytes += plan.toCopy.bytes + plan.toVerify.bytes;
        }
        return count;
    }

    bool exchange()
    {
        Exchange exchanging(members, tree, request.pause, clock);
        // The first files were asked for long ago.
        if (!lookAgain() || !exchanging.stageAll())
            return false;
        report.stage = PushReport::Stage::Switching;
        const bool isDone = exchanging.run();
        if (isDone)
            report.stage = PushReport::Stage::Switched;
        return isDone;
    }

    bool lookAgain()
    {
        return members.forEach([this](Member& member) {
            return Content::lookAgain(member, tree, request.secondsOfSilence);
        });
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
        asked.probe.mostPatchFiles = patchFilesToProbe;
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
