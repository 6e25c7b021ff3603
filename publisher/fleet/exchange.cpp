#include "publisher/fleet/exchange.h"

#include "publisher/common/clock.h"
#include "publisher/common/dates.h"
#include "publisher/common/filework.h"
#include "publisher/common/serverlayout.h"

#include <QFileInfo>

#include <algorithm>

using namespace Qt::StringLiterals;

namespace Publisher {

namespace {

/// A manifest that has just been put in place bears a date so far ahead, until it gets
/// its own: should the push die in between, no player is left with the former one.
constexpr qint64 secondsAhead = 60;

/// For how long servers wait for the date under which a storage has taken a file.
constexpr qint64 longestWait = 30; // seconds

/// How far ahead the clock of a storage may go that dates by itself, and how far behind.
constexpr qint64 mostAhead = 2;
constexpr qint64 mostBehind = 10;

bool isManifest(const QString& name)
{
    return name == ServerLayout::manifestName(Kind::Live)
        || name == ServerLayout::manifestName(Kind::Test)
        || name == ServerLayout::nextManifestName();
}

/// Of a launcher file: no server may have it before that date has come.
bool isFarAhead(const QDateTime& date, const QDateTime& now)
{
    return now.secsTo(date) > longestWait;
}

bool isSameSecond(const QDateTime& one, const QDateTime& other)
{
    return one.toSecsSinceEpoch() == other.toSecsSinceEpoch();
}

bool isOlder(const QDateTime& one, const QDateTime& other)
{
    return one.toSecsSinceEpoch() < other.toSecsSinceEpoch();
}

QDateTime secondAfter(const QDateTime& time)
{
    return QDateTime::fromSecsSinceEpoch(time.toSecsSinceEpoch() + 1).toUTC();
}

QString staged(const QString& name)
{
    return Storage::stagingFolder() + u'/' + name;
}

bool everyone(const Member&)
{
    return true;
}

bool ownDates(const Member& member)
{
    return !member.datesByItself;
}

/// Not every storage that goes by its own clock can be told to date a file anew.
Problem dateIfPossible(const Member& member, const QString& name, const QDateTime& date)
{
    const Problem problem = member.storage.setDate(name, date);
    return member.datesByItself ? Problem() : problem;
}

bool arrivalDates(const Member& member)
{
    return member.datesByItself;
}

} // namespace

Exchange::Exchange(Members& all, const PushedTree& pushed, int seconds, Clock& time)
    : members(all)
    , tree(pushed)
    , pause(seconds)
    , clock(time)
    , begun(time.now())
{
    planPlain();
    planReleases();
}

/// A launcher file that is older than the tree's has been renewed there since.
bool Exchange::isBehind(const Member& member, const QString& name) const
{
    const RootFile wanted = tree.rootFile(name);
    const RootFile present = member.present.rootFile(name);
    if (!wanted.isThere())
        return false;
    const bool isLauncher = launcherRootFiles().contains(name);
    return present.md5 != wanted.md5
        || (isLauncher && (isOlder(present.date, wanted.date) || isFarAhead(present.date, begun)));
}

bool Exchange::isAnyInterrupted() const
{
    const auto& all = members.all();
    return std::any_of(
        all.cbegin(), all.cend(), [](const Member& member) { return member.isInterrupted(); });
}

void Exchange::planPlain()
{
    const QStringList names = plainRootFiles();
    for (const QString& name : names) {
        const auto& all = members.all();
        const bool isMissed = std::any_of(
            all.cbegin(), all.cend(), [&](const Member& member) { return isBehind(member, name); });
        const bool isOutdated = std::any_of(all.cbegin(), all.cend(), [&](const Member& member) {
            return isOlder(member.present.rootFile(name).date, tree.rootFile(name).date);
        });
        if (isMissed)
            plain.append(name);
        if (isManifest(name) && tree.rootFile(name).isThere()
            && (isMissed || isOutdated || isAnyInterrupted()))
            undated.append(name);
    }
}

void Exchange::planReleases()
{
    const QStringList names = launcherRootFiles();
    for (const QString& name : names) {
        Release release{ name, std::nullopt };
        bool isMissed = false;
        for (const Member& member : members.all()) {
            const QDateTime date = member.present.rootFile(name).date;
            if (isBehind(member, name))
                isMissed = true;
            else
                release.date = std::min(release.date.value_or(date), date);
        }
        if (isMissed)
            releases.append(release);
    }
}

QStringList Exchange::changes() const
{
    QStringList names = plain;
    for (const Release& release : releases)
        names.append(release.name);
    return names;
}

QStringList Exchange::changesOf(const Member& member) const
{
    QStringList names = changes();
    names.removeIf([&](const QString& name) { return !isBehind(member, name); });
    return names;
}

bool Exchange::hasPause() const
{
    const auto& all = members.all();
    return std::any_of(releases.cbegin(), releases.cend(), [&](const Release& release) {
        return !release.date
            && (isAnyInterrupted()
                || std::any_of(all.cbegin(), all.cend(), [&](const Member& member) {
                       return member.present.rootFile(release.name).isThere();
                   }));
    });
}

bool Exchange::isNeeded() const
{
    const auto& all = members.all();
    return !plain.isEmpty() || !undated.isEmpty() || !releases.isEmpty()
        || std::any_of(all.cbegin(), all.cend(), [this](const Member& member) {
               return hasNextToDrop(member);
           });
}

bool Exchange::run()
{
    return placePlain() && dropNext() && dateManifests() && exchangeReleases();
}

bool Exchange::stageAll()
{
    const QTemporaryDir drafts;
    const QDateTime date = secondAfter(clock.now().addSecs(secondsAhead));
    const QStringList names = changes();
    Problem problem;
    for (const QString& name : names) {
        const QString draft = drafts.filePath(name);
        if (!problem)
            problem = FileWork::copy(tree.folder + u'/' + name, draft, nullptr).problem;
        if (!problem)
            problem = FileWork::setDate(draft, date);
    }
    return members.forEach([&](Member& member) {
        return problem ? problem : withReason(member, stage(member, drafts.path(), date));
    });
}

/// Reads back what it has copied, since a manifest in place is believed.
Problem Exchange::stage(Member& member, const QString& drafts, const QDateTime& date) const
{
    const QStringList names = changesOf(member);
    const QDateTime asked = clock.now();
    const QTemporaryDir back;
    if (Problem problem = inOrder(
            [&] { return member.storage.stage(drafts, names); },
            [&] { return member.storage.fetch(names, back.path(), Storage::stagingFolder()); }))
        return problem;
    const PushedTree arrived = PushedTree::read(back.path());
    for (const QString& name : names) {
        const RootFile file = arrived.rootFile(name);
        if (file.md5 != tree.rootFile(name).md5)
            return u"%1 has not arrived there as it is here. Look at its disk, and run the same "
                   "command again"_s.arg(name);
        member.datesByItself = member.datesByItself || !isSameSecond(file.date, date);
        if (Problem fault = judgeArrival(member, file.date, asked))
            return fault;
        member.bytesCopied += QFileInfo(drafts + u'/' + name).size();
        ++member.filesCopied;
    }
    return {};
}

/// Swift takes nothing under a name at which it has had something later.
Problem Exchange::withReason(const Member& member, Problem problem) const
{
    if (!problem)
        return problem;
    const QStringList names = changesOf(member);
    for (const QString& name : names) {
        const QDateTime former = member.present.rootFile(name).date;
        if (isFarAhead(former, clock.now()))
            return u"%1. Its storage has dated the %2 that it has with %3, and may take no other "
                   "until then. Run the same command again after that"_s.arg(
                       *problem, name, Dates::shown(former));
    }
    return problem;
}

Problem
Exchange::judgeArrival(const Member& member, const QDateTime& arrival, const QDateTime& asked) const
{
    const QDateTime now = clock.now();
    if (!member.datesByItself
        || (arrival >= asked.addSecs(-mostBehind) && arrival <= now.addSecs(mostAhead)))
        return {};
    return u"its storage dates a file that has just come with %1, and this machine's clock says "
           "%2: dates decide what launchers fetch. Set the wrong one right"_s.arg(
               Dates::shown(arrival), Dates::shown(now));
}

bool Exchange::placePlain()
{
    return forEachOf(plain, everyone, [this](Member& member, const QString& name) {
        return isBehind(member, name) ? member.storage.placeStaged(name) : Problem();
    });
}

bool Exchange::hasNextToDrop(const Member& member) const
{
    const QString name = ServerLayout::nextManifestName();
    return member.present.rootFile(name).isThere() && !tree.rootFile(name).isThere();
}

/// Whoever has been given what was to come would keep it for good.
bool Exchange::dropNext()
{
    return members.forEachThat(
        [this](const Member& member) { return hasNextToDrop(member); },
        [](Member& member) { return member.storage.remove({ ServerLayout::nextManifestName() }); });
}

bool Exchange::dateManifests()
{
    if (undated.isEmpty())
        return true;
    const QDateTime date = secondAfter(clock.now());
    clock.waitUntil(date);
    return forEachOf(undated, everyone, [&](Member& member, const QString& name) {
        return dateIfPossible(member, name, date);
    });
}

bool Exchange::exchangeReleases()
{
    QStringList everywhere;
    for (const Release& release : std::as_const(releases)) {
        if (!release.date)
            everywhere.append(release.name);
        else if (!joinRelease(release))
            return false;
    }
    return everywhere.isEmpty() || renewReleases(everywhere);
}

/// Some have it, so the former one has been taken away everywhere before: what has come
/// back since gets the same date.
bool Exchange::joinRelease(const Release& release)
{
    // Whoever fetched it before its date would fetch it again.
    clock.waitUntil(*release.date);
    return members.forEachThat(
        [&](const Member& member) { return isBehind(member, release.name); },
        [&](Member& member) {
            return inOrder(
                [&] { return dateIfPossible(member, staged(release.name), *release.date); },
                [&] { return member.storage.placeStaged(release.name); });
        });
}

bool Exchange::renewReleases(const QStringList& names)
{
    const int seconds = hasPause() ? pause : 0;
    if (!members.forEach([&](Member& member) { return member.storage.remove(names); }))
        return false;
    const QDateTime gone = clock.now();
    const QDateTime date = secondAfter(gone.addSecs(seconds / 2));
    const auto setDate = [&](Member& member, const QString& name) {
        return member.storage.setDate(staged(name), date);
    };
    const auto place = [](Member& member, const QString& name) {
        return member.storage.placeStaged(name);
    };
    if (!forEachOf(names, ownDates, setDate))
        return false;
    clock.waitUntil(std::max(date, gone.addSecs(seconds)));
    // Who dates by arrival must not arrive after others have handed the file out.
    return forEachOf(names, arrivalDates, place)
        && members.forEachThat(
            arrivalDates, [&](Member& member) { return waitForArrivals(member, names); })
        && forEachOf(names, ownDates, place);
}

Problem Exchange::waitForArrivals(const Member& member, const QStringList& names)
{
    const QTemporaryDir back;
    Problem problem = member.storage.fetch(names, back.path());
    if (problem)
        return problem;
    const PushedTree arrived = PushedTree::read(back.path());
    for (const QString& name : names) {
        // HTTP tells whole seconds, and stores round theirs up.
        const QDateTime date = secondAfter(arrived.rootFile(name).date);
        if (isFarAhead(date, clock.now()))
            return u"its storage dates %1 with %2, and this machine's clock says %3: the other "
                   "servers get none before that date. Set the wrong one right, and run the same "
                   "command again"_s.arg(name, Dates::shown(date), Dates::shown(clock.now()));
        clock.waitUntil(date);
    }
    return {};
}

bool Exchange::forEachOf(const QStringList& names, const Condition& condition, const FileStep& step)
{
    return members.forEachThat(condition, [&](Member& member) {
        for (const QString& name : names) {
            if (Problem problem = step(member, name))
                return problem;
        }
        return Problem();
    });
}

} // namespace Publisher
