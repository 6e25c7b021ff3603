#include "bench/players/player.h"

#include "app/constants.h"
#include "net/referencetime.h"
#include "update/launcherfiles.h"
#include "update/patchlayout.h"

#include <QDateTime>
#include <QStringList>

#include <utility>

using namespace Qt::StringLiterals;

namespace Players {

namespace {

constexpr long notModified = 304;
constexpr long notFound = 404;
constexpr qint64 bytesUntilHangUp = 1 << 20;
const QString infoName = u"launcher.info"_s;
// Holds the launcher that waits for the updater.
const QString waitingLauncher = u"Halden-Launcher.tmp"_s;

QString manifestName(const QString& kind)
{
    return kind == "live"_L1 ? QString(liveManifestFileName) : QString(testManifestFileName);
}

QString placeOf(const QString& kind, const PatchManifestEntry& entry)
{
    return kind + u'/' + entry.pathOffset + u'/' + entry.name;
}

/// Patch files lie in folders that are named after their content.
bool isAsAddressed(const QUrl& url, const QByteArray& md5)
{
    return url.path().section(u'/', -2, -2).toLatin1() == md5;
}

} // namespace

Player::Player(World& livedIn, int itsNumber, const Ways& hisWays)
    : world(livedIn)
    , number(itsNumber)
    , kinds(hisWays.isTester ? QStringList{ u"test"_s, u"live"_s } : QStringList{ u"live"_s })
    , ways(hisWays)
{
}

void Player::settle()
{
    copies[launcherFileName] = { {}, now() };
}

bool Player::isStuck() const
{
    return ways.isStuck;
}

qint64 Player::now() const
{
    return world.now(number) + ways.secondsAhead;
}

void Player::start(std::function<void()> ended)
{
    over = std::move(ended);
    ++world.tally.starts;
    runs.clear();
    underWay = 2;
    // The launcher always asks for this one as if it had no copy.
    world.ask(
        number, 0,
        { .url = QUrl(launcherInfoUrl),
          .ifModifiedSince = fixedReferenceTime().toSecsSinceEpoch() },
        [this](const Transport::Answer&) {
            for (const int run : { 1, 2 }) {
                runs[run].kinds = kinds;
                askUpdater(run);
            }
        });
}

void Player::ask(int run, const QUrl& url, const QString& name, bool wantsBody, const Step& step)
{
    world.ask(
        number, run, { .url = url, .ifModifiedSince = referenceDate(name), .wantsBody = wantsBody },
        step);
}

qint64 Player::referenceDate(const QString& name) const
{
    const auto copy = copies.constFind(name);
    return copy == copies.cend() ? fixedReferenceTime().toSecsSinceEpoch() : copy->date;
}

bool Player::write(const QString& name, const Transport::Answer& answer)
{
    constexpr long firstError = 400;
    if (!answer.isWhole || answer.status == notModified || answer.status >= firstError
        || answer.length == 0)
        return false;
    copies[name] = { answer.md5, now(), answer.body };
    return true;
}

void Player::askUpdater(int run)
{
    ask(run, QUrl(downloadBaseUrl + updaterFileName), updaterFileName, false,
        [this, run](const Transport::Answer& answer) {
            write(updaterFileName, answer);
            askLauncher(run);
        });
}

void Player::askLauncher(int run)
{
    ask(run, QUrl(downloadBaseUrl + launcherFileName), launcherFileName, false,
        [this, run](const Transport::Answer& answer) { takeLauncher(run, answer); });
}

void Player::takeLauncher(int run, const Transport::Answer& answer)
{
    write(waitingLauncher, answer);
    if (!copies.contains(waitingLauncher) || !copies.contains(updaterFileName)) {
        askManifest(run);
        return;
    }
    const Copy fetched = copies.take(waitingLauncher);
    if (ways.isStuck) {
        world.transport.cancel(number);
        std::exchange(over, {})();
        return;
    }
    const bool isTheSame = copies.value(launcherFileName).md5 == fetched.md5;
    copies[launcherFileName] = fetched;
    if (isTheSame) {
        // A real one would do so for ever, and say nothing about the rest.
        ++world.tally.launchersTwice;
        askManifest(run);
        return;
    }
    // The launcher quits, and the updater starts it again with the file exchanged.
    world.transport.cancel(number);
    start(std::exchange(over, {}));
}

void Player::askManifest(int run)
{
    Run& itsRun = runs[run];
    if (itsRun.kinds.isEmpty()) {
        reconcile(run);
        return;
    }
    const QString name = manifestName(itsRun.kinds.takeFirst());
    ask(run, QUrl(downloadBaseUrl + name), name, true,
        [this, run, name](const Transport::Answer& answer) {
            write(name, answer);
            askManifest(run);
        });
}

Entries Player::entriesOf(const QString& kind) const
{
    return world.manifests.entries(copies.value(manifestName(kind)).text);
}

void Player::reconcile(int run)
{
    for (const QString& kind : { u"live"_s, u"test"_s }) {
        if (!kinds.contains(kind))
            continue;
        const Entries entries = entriesOf(kind);
        for (const PatchManifestEntry& entry : *entries)
            queueFile(runs[run], kind, entry);
    }
    askFile(run);
}

void Player::queueFile(Run& run, const QString& kind, const PatchManifestEntry& entry)
{
    if (entry.action() != PatchAction::FileDownload)
        return;
    const QString place = placeOf(kind, entry);
    if (QString::fromLatin1(copies.value(place).md5) == entry.hash)
        return;
    const QString base = kind == "live"_L1 ? livePatchBaseUrl : testPatchBaseUrl;
    run.queue.append({ PatchLayout::patchFile(base, kind, entry), place, referenceDate(place) });
}

void Player::askFile(int run)
{
    Run& itsRun = runs[run];
    if (itsRun.next == itsRun.queue.size()) {
        endRun();
        return;
    }
    const Run::Item item = itsRun.queue.at(itsRun.next++);
    world.ask(
        number, run,
        { .url = item.url,
          .ifModifiedSince = item.date,
          .breaksOffAfter = ways.breaksOff ? bytesUntilHangUp : 0 },
        [this, run, item](const Transport::Answer& answer) {
            takeFile(item, answer);
            askFile(run);
        });
}

void Player::takeFile(const Run::Item& item, const Transport::Answer& answer)
{
    if (answer.status == notFound)
        ++world.tally.missing;
    if (write(item.place, answer) && !isAsAddressed(item.url, answer.md5))
        ++world.tally.wrong;
}

void Player::endRun()
{
    if (--underWay == 0)
        std::exchange(over, {})();
}

QStringList Player::differences(
    const QMap<QString, QByteArray>& manifestHashes, const QByteArray& launcherHash) const
{
    QStringList found;
    const auto launcher = copies.constFind(launcherFileName);
    const bool isOwn = launcher != copies.cend() && launcher->md5.isEmpty();
    if (!launcherHash.isEmpty() && !isOwn && copies.value(launcherFileName).md5 != launcherHash)
        found.append(launcherFileName);
    for (const QString& kind : kinds) {
        const QString name = manifestName(kind);
        if (copies.value(name).md5 != manifestHashes.value(name))
            found.append(name);
        const Entries entries = entriesOf(kind);
        for (const PatchManifestEntry& entry : *entries) {
            const QString place = placeOf(kind, entry);
            if (entry.action() == PatchAction::FileDownload
                && QString::fromLatin1(copies.value(place).md5) != entry.hash)
                found.append(place);
        }
    }
    return found;
}

} // namespace Players
