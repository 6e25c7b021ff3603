#include "publisher/build/build.h"
#include "publisher/common/filework.h"
#include "publisher/common/hashcache.h"
#include "publisher/common/parallel.h"
#include "publisher/common/treelock.h"
#include "tests/publisher/buildfixture.h"
#include "tests/support/applicationfolder.h"
#include "tests/support/smalldisk.h"
#include "tests/support/testmain.h"
#include "tests/support/timezone.h"
#include "update/patchmanifest.h"

#include <QDir>
#include <QFileInfo>
#include <QRegularExpression>

#include <atomic>
#include <cerrno>
#ifndef Q_OS_WIN
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>
#endif

using namespace TestSupport;
using namespace BuildFixture;
using namespace Publisher;

namespace {

const QString manifest = "patch.ini";

#ifndef Q_OS_WIN
ino_t numberOf(const QString& path)
{
    struct stat status { };
    return ::stat(QFile::encodeName(path).constData(), &status) == 0 ? status.st_ino : 0;
}
#endif

/// Overwrites bytes without a change of size or date: what an evil or broken
/// machine does, and what no look at size and date can find.
void damage(const QString& path, const QByteArray& content)
{
    const QDateTime date = dateOf(path);
    writeFile(path, content);
    setDate(path, date);
}

#ifndef Q_OS_WIN
mode_t modeOf(const QString& path)
{
    struct stat status { };
    return ::stat(QFile::encodeName(path).constData(), &status) == 0 ? status.st_mode & 07777 : 0;
}
#endif

void putThree()
{
    put("patched_wow.exe", "program");
    put("Data/a.mpq", "first a");
    put("Data/deDE/b.mpq", "first b");
}

} // namespace

#ifndef Q_OS_WIN
/// With which locking a folder fails; 0 for not at all.
static int errorOfLocking = 0;

/// Stands before the system's own.
extern "C" int flock(int handle, int operation)
{
    if (errorOfLocking == 0)
        return static_cast<int>(syscall(SYS_flock, handle, operation));
    errno = errorOfLocking;
    return -1;
}
#endif

class tst_Build : public QObject {
    Q_OBJECT

private slots:
    void init()
    {
        QTest::failOnWarning(QRegularExpression(".*"));
        ApplicationFolder::clear();
    }

    void publishesFilesAndManifest()
    {
        putThree();
        const BuildReport report = published();
        const QStringList paths{ "Data/a.mpq", "Data/deDE/b.mpq", "patched_wow.exe" };
        QCOMPARE(pathsOf(report.added), paths);
        // Both update runs of a start fetch every file.
        QCOMPARE(report.traffic.bytesToUpdate, 2 * 21);
        QCOMPARE(report.traffic.bytesInAll, 2 * 21);
        QVERIFY(report.manifestChanged);
        QStringList expected{ manifest };
        for (const QString& path : paths)
            expected.append(placeOf(path));
        const QMap<QString, QByteArray> tree = servedFiles();
        QCOMPARE(tree.keys(), expected);
        QCOMPARE(tree.value(placeOf("Data/a.mpq")), QByteArray("first a"));
    }

    void manifestListsFoldersThenFiles()
    {
        putThree();
        published();
        const PatchManifest read(server(manifest));
        QStringList names;
        for (qint64 n = 1; n <= read.entryCount(); ++n)
            names.append(read.entry(n).pathOffset + '|' + read.name(n));
        QCOMPARE(
            names,
            QStringList(
                { "|Data", "Data|deDE", "Data|a.mpq", "Data\\deDE|b.mpq", "|patched_wow.exe" }));
        QCOMPARE(read.entry(2).action(), PatchAction::FolderCreate);
        QCOMPARE(read.entry(3).action(), PatchAction::FileDownload);
        QCOMPARE(read.entry(3).hash, placeOf("Data/a.mpq").section('/', -2, -2));
    }

    void testPlayersHaveATreeOfTheirOwn()
    {
        putThree();
        published();
        const QByteArray live = readFile(server(manifest));
        put("Data/a.mpq", "for testing");
        BuildRequest forTest = request();
        forTest.kind = Kind::Test;
        published(forTest);
        QCOMPARE(readFile(server(manifest)), live);
        QCOMPARE(readFile(server(placeOf("Data/a.mpq", "test"))), QByteArray("for testing"));
        QVERIFY(PatchManifest(server("patchTest.ini")).entryCount() == 5);
    }

    void separatorOfOtherPlayers()
    {
        putThree();
        BuildRequest forOthers = request();
        forOthers.separator = '/';
        published(forOthers);
        QCOMPARE(PatchManifest(server(manifest)).entry(4).pathOffset, QString("Data/deDE"));
    }

    void sameInputGivesTheSameBytes()
    {
        putThree();
        published();
        const QByteArray first = readFile(server(manifest));
        QDir(server()).removeRecursively();
        QDir().rename(source(), source() + "-2");
        // In another order, on other days.
        for (const char* path : { "Data/deDE/b.mpq", "Data/a.mpq", "patched_wow.exe" })
            put(path, readFile(source() + "-2/" + path));
        BuildRequest again = request();
        again.threads = 3;
        published(again);
        QCOMPARE(readFile(server(manifest)), first);
    }

    void unchangedFilesAndManifestKeepTheirDates_data()
    {
        QTest::addColumn<bool>("rehash");
        QTest::newRow("by size and date") << false;
        QTest::newRow("read again") << true;
    }

    void unchangedFilesAndManifestKeepTheirDates()
    {
        QFETCH(bool, rehash);
        putThree();
        published();
        const QDateTime ofFile = dateOf(server(placeOf("Data/a.mpq")));
        const QDateTime ofManifest = dateOf(server(manifest));
        BuildRequest again = request();
        again.rehash = rehash;
        StandingClock clock(QDateTime::currentDateTimeUtc().addDays(1));
        BuildReport report;
        QCOMPARE(build(again, clock, report), ExitCode::Fine);
        QCOMPARE(report.unchanged, 3);
        QVERIFY(!report.manifestChanged);
        QCOMPARE(report.traffic.bytesToUpdate, 0);
        QCOMPARE(dateOf(server(placeOf("Data/a.mpq"))), ofFile);
        QCOMPARE(dateOf(server(manifest)), ofManifest);
        QCOMPARE(clock.waits, 0);
    }

    void tellsTheDifference()
    {
        putThree();
        published();
        put("Data/a.mpq", "second a");
        put("Data/c.mpq", "new");
        QFile::remove(source("patched_wow.exe"));
        BuildRequest dropping = request();
        dropping.confirmedDrops = 1;
        const BuildReport report = published(dropping);
        QCOMPARE(pathsOf(report.added), QStringList("Data/c.mpq"));
        QCOMPARE(pathsOf(report.changed), QStringList("Data/a.mpq"));
        QCOMPARE(pathsOf(report.removed), QStringList("patched_wow.exe"));
        QCOMPARE(report.removed.at(0).size, 7);
        QCOMPARE(report.unchanged, 1);
        QCOMPARE(report.traffic.bytesToUpdate, 2 * 11);
        QCOMPARE(report.traffic.bytesInAll, 2 * 18);
    }

    void manifestIsNewerThanTheOneItReplaces_data()
    {
        QTest::addColumn<int>("clockAhead");
        QTest::addColumn<int>("seconds");
        QTest::newRow("a clock that goes right") << 3600 << 3601;
        QTest::newRow("within the same second") << 0 << 1;
        QTest::newRow("a clock some seconds behind") << -8 << 1;
    }

    /// And never dated ahead: what a clock lacks is waited for.
    void manifestIsNewerThanTheOneItReplaces()
    {
        QFETCH(int, clockAhead);
        putThree();
        published();
        const QDateTime before = dateOf(server(manifest));
        put("Data/a.mpq", "second a");
        StandingClock clock(before.addSecs(clockAhead));
        BuildReport report;
        QCOMPARE(build(request(), clock, report), ExitCode::Fine);
        QTEST(int(before.secsTo(dateOf(server(manifest)))), "seconds");
        QCOMPARE(clock.now(), dateOf(server(manifest)));
    }

    void refusesToPublishAheadOfTheClock_data()
    {
        QTest::addColumn<QByteArray>("content");
        QTest::newRow("changed") << QByteArray("second a");
        QTest::newRow("unchanged") << QByteArray("first a");
    }

    /// One publication under a wrong clock must not draw all later ones with it.
    void refusesToPublishAheadOfTheClock()
    {
        QFETCH(QByteArray, content);
        putThree();
        published();
        const QDateTime wrong = dateOf(server(manifest));
        put("Data/a.mpq", content);
        StandingClock clock(wrong.addDays(-365));
        BuildReport report;
        QCOMPARE(build(request(), clock, report), ExitCode::Findings);
        QCOMPARE(idsOf(report.refusals), QStringList("date-ahead"));
        QVERIFY(reasonOf(report.refusals.at(0)).contains("--renew"));
        QCOMPARE(dateOf(server(manifest)), wrong);
        QCOMPARE(clock.waits, 0);

        // The way back: no player's copy is dated as far ahead.
        BuildRequest renewing = request();
        renewing.renew = true;
        BuildReport renewed;
        QCOMPARE(build(renewing, clock, renewed), ExitCode::Fine);
        QCOMPARE(dateOf(server(manifest)), clock.now());
        QVERIFY(clock.now() < wrong);
    }

    void renewDatesAnUnchangedManifest()
    {
        putThree();
        published();
        const QByteArray content = readFile(server(manifest));
        const QDateTime before = dateOf(server(manifest));
        BuildRequest renewing = request();
        renewing.renew = true;
        const BuildReport report = published(renewing);
        QVERIFY(!report.manifestChanged);
        QCOMPARE(readFile(server(manifest)), content);
        QVERIFY(dateOf(server(manifest)) > before);
    }

    void saysThatALauncherIsDatedAhead()
    {
        putThree();
        writeFile(server("Halden-Launcher.exe"), "x");
        setDate(server("Halden-Launcher.exe"), utc(QDate(2100, 1, 1), QTime(0, 0)));
        const QStringList notes = published().notes;
        QCOMPARE(notes.size(), 1);
        QVERIFY2(notes.at(0).startsWith("Halden-Launcher.exe: "), qPrintable(notes.at(0)));
        QVERIFY2(notes.at(0).contains("2100-01-01"), qPrintable(notes.at(0)));
    }

    /// Every state of the file, back and forth: the manifest is newer each time.
    void rollBackIsNewerToo()
    {
        putThree();
        const QList<QByteArray> contents{ "one", "two", "one", "two", "three", "one" };
        QDateTime before = utc(QDate(1971, 1, 1), QTime(0, 0));
        StandingClock clock(QDateTime::currentDateTimeUtc());
        for (const QByteArray& content : contents) {
            put("Data/a.mpq", content);
            BuildReport report;
            QCOMPARE(build(request(), clock, report), ExitCode::Fine);
            QCOMPARE(readFile(server(placeOf("Data/a.mpq"))), content);
            QVERIFY2(dateOf(server(manifest)) > before, content.constData());
            before = dateOf(server(manifest));
            clock.forward(-5);
        }
    }

#ifndef Q_OS_WIN // rights are no bits there
    /// Files that another admin has published are his, and may be written by no one
    /// else.
    void rollBackLeavesWhatIsInPlaceAlone()
    {
        putThree();
        published();
        const QString first = server(placeOf("Data/a.mpq"));
        const QDateTime date = utc(QDate(2024, 5, 1), QTime(8, 0));
        setDate(first, date);
        QVERIFY(QFile::setPermissions(first, QFile::ReadOwner | QFile::ReadGroup));
        put("Data/a.mpq", "second a");
        published();
        put("Data/a.mpq", "first a");
        published();
        QCOMPARE(dateOf(first), date);
        QCOMPARE(modeOf(first), mode_t(0440));
    }

    void publishesForEverybodyToRead_data()
    {
        QTest::addColumn<int>("modeOfServer");
        QTest::addColumn<int>("modeOfFolders");
        QTest::newRow("one admin") << 0755 << 0755;
        QTest::newRow("a group of admins") << 02775 << 02775;
        QTest::newRow("a group that only reads") << 02755 << 02755;
    }

    void publishesForEverybodyToRead()
    {
        QFETCH(int, modeOfServer);
        putThree();
        QDir().mkpath(server());
        QVERIFY(
            ::chmod(QFile::encodeName(server()).constData(), static_cast<mode_t>(modeOfServer))
            == 0);
        const mode_t before = ::umask(077);
        published();
        ::umask(before);
        const QString file = placeOf("Data/deDE/b.mpq");
        QCOMPARE(modeOf(server(manifest)), mode_t(0644));
        QCOMPARE(modeOf(server(file)), mode_t(0644));
        for (QString folder = file.section('/', 0, -2); !folder.isEmpty();
             folder = folder.section('/', 0, -2))
            QTEST(int(modeOf(server(folder))), "modeOfFolders");
    }
#endif

    void manyFilesAreDroppedOnlyOnAWord_data()
    {
        QTest::addColumn<int>("dropped");
        QTest::addColumn<int>("confirmed");
        QTest::addColumn<bool>("refused");
        QTest::newRow("a tenth") << 2 << 0 << false;
        QTest::newRow("more") << 3 << 0 << true;
        QTest::newRow("more, with another number") << 3 << 2 << true;
        QTest::newRow("more, with its number") << 3 << 3 << false;
    }

    void manyFilesAreDroppedOnlyOnAWord()
    {
        QFETCH(int, dropped);
        QFETCH(int, confirmed);
        QFETCH(bool, refused);
        for (int i = 0; i < 20; ++i)
            put(QString("Data/%1.mpq").arg(i), "x");
        published();
        const QByteArray before = readFile(server(manifest));
        for (int i = 0; i < dropped; ++i)
            QFile::remove(source(QString("Data/%1.mpq").arg(i)));
        StandingClock clock(dateOf(server(manifest)).addSecs(60));
        BuildRequest dropping = request();
        dropping.confirmedDrops = confirmed;
        dropping.prune = true;
        BuildReport report;
        QCOMPARE(build(dropping, clock, report), refused ? ExitCode::Findings : ExitCode::Fine);
        QCOMPARE(idsOf(report.refusals), refused ? QStringList("many-removed") : QStringList());
        QCOMPARE(report.removed.size(), dropped);
        QCOMPARE(readFile(server(manifest)) == before, refused);
        QCOMPARE(servedFiles().size(), refused ? 21 : 21 - dropped);
    }

    void refusesWhatWasOfAnotherKind_data()
    {
        QTest::addColumn<QString>("before");
        QTest::addColumn<QString>("after");
        QTest::addColumn<QString>("refused");
        QTest::newRow("file to folder") << "Data/x"
                                        << "Data/x/y"
                                        << "folder-was-file Data/x";
        QTest::newRow("folder to file") << "Data/x/y"
                                        << "Data/x"
                                        << "file-was-folder Data/x";
        QTest::newRow("outer folder to file") << "Data/x/y/z"
                                              << "Data/X"
                                              << "file-was-folder Data/X";
        QTest::newRow("file to folder in another case") << "Data/X"
                                                        << "Data/x/y"
                                                        << "folder-was-file Data/x";
        QTest::newRow("what every client has") << "Interface/x"
                                               << "Data"
                                               << "file-was-folder Data";
        QTest::newRow("elsewhere") << "Data/x"
                                   << "Interface/x/y"
                                   << "";
    }

    /// The cache of a player who has the old kind never takes the new one.
    void refusesWhatWasOfAnotherKind()
    {
        QFETCH(QString, before);
        QFETCH(QString, after);
        put(before, "x");
        published();
        const QByteArray live = readFile(server(manifest));
        QDir(source()).removeRecursively();
        put(after, "x");
        StandingClock clock(dateOf(server(manifest)).addSecs(60));
        BuildRequest next = request();
        next.confirmedDrops = 1;
        BuildReport report;
        const bool fine = build(next, clock, report) == ExitCode::Fine;
        QStringList refused;
        for (const Finding& refusal : std::as_const(report.refusals))
            refused.append(refusal.identifier() + ' ' + refusal.subject);
        QTEST(refused.join(", "), "refused");
        QCOMPARE(fine, refused.isEmpty());
        QCOMPARE(readFile(server(manifest)) == live, !fine);
    }

    void tellsTheRemovalsThatAreNotRepeated()
    {
        putThree();
        BuildRequest removing = request();
        removing.removals
            = { .files = { "Data/old.mpq" }, .folders = { "Interface/old.mpq/" }, .realms = 2 };
        const BuildReport first = published(removing);
        const PublishedRemoval file{ "Data/old.mpq", false };
        const PublishedRemoval folder{ "Interface/old.mpq", true };
        QCOMPARE(first.removals, QList({ file, folder }));
        QVERIFY(first.droppedRemovals.isEmpty());
        removing.removals.folders.clear();
        const BuildReport second = published(removing);
        QCOMPARE(second.removals, QList({ file }));
        QCOMPARE(second.droppedRemovals, QList({ folder }));
    }

    void manifestGoesLiveAtTheBeginningOfASecond()
    {
        putThree();
        const QDateTime start = QDateTime::fromMSecsSinceEpoch(1'700'000'000'250).toUTC();
        StandingClock clock(start);
        BuildReport report;
        QCOMPARE(build(request(), clock, report), ExitCode::Fine);
        QCOMPARE(clock.waits, 1);
        QCOMPARE(dateOf(server(manifest)), QDateTime::fromSecsSinceEpoch(1'700'000'001).toUTC());
    }

    void oldContentStaysUntilItIsPruned()
    {
        putThree();
        published();
        const QString old = placeOf("Data/a.mpq");
        put("Data/a.mpq", "second a");
        published();
        QCOMPARE(readFile(server(old)), QByteArray("first a"));
        BuildRequest pruning = request();
        pruning.prune = true;
        const BuildReport report = published(pruning);
        QCOMPARE(pathsOf(report.pruned), QStringList(old));
        QCOMPARE(report.pruned.at(0).size, 7);
        QVERIFY(!QFileInfo::exists(server(old)));
        QVERIFY(!QFileInfo::exists(QFileInfo(server(old)).path()));
        QCOMPARE(servedFiles().size(), 4);
    }

    void pruningSparesWhatIsNotThePatchOfThisKind()
    {
        putThree();
        BuildRequest forTest = request();
        forTest.kind = Kind::Test;
        published(forTest);
        const QStringList others{ "launcher.info", "Halden-Launcher.exe", "other/file" };
        for (const QString& other : others)
            writeFile(server(other), "x");
        writeFile(server("wow-client-patch/live/by hand/.old"), "x");
        BuildRequest pruning = request();
        pruning.prune = true;
        QCOMPARE(
            pathsOf(published(pruning).pruned), QStringList("wow-client-patch/live/by hand/.old"));
        const QMap<QString, QByteArray> tree = servedFiles();
        for (const QString& other : others)
            QVERIFY2(tree.contains(other), qPrintable(other));
        QVERIFY(tree.contains(placeOf("Data/a.mpq", "test")));
    }

    void dryRunWritesNothing_data()
    {
        QTest::addColumn<bool>("publishedBefore");
        QTest::newRow("first publication") << false;
        QTest::newRow("later one") << true;
    }

    void dryRunWritesNothing()
    {
        QFETCH(bool, publishedBefore);
        putThree();
        if (publishedBefore)
            published();
        const QString old = placeOf("Data/a.mpq");
        put("Data/a.mpq", "second a");
        const QMap<QString, QByteArray> before = servedFiles();
        BuildRequest dry = request();
        dry.dryRun = true;
        dry.prune = true;
        const BuildReport report = published(dry);
        QCOMPARE(servedFiles(), before);
        QCOMPARE(QFileInfo::exists(server()), publishedBefore);
        QVERIFY(report.manifestChanged);
        QCOMPARE(pathsOf(report.changed).contains("Data/a.mpq"), publishedBefore);
        QCOMPARE(report.traffic.bytesToUpdate, 2 * (publishedBefore ? 8 : 22));
        QCOMPARE(pathsOf(report.pruned), publishedBefore ? QStringList(old) : QStringList());
    }

    void copiesAreFilesOfTheirOwn()
    {
        putThree();
        published();
        const QString copy = server(placeOf("Data/a.mpq"));
        QVERIFY(!isSameFile(copy, source("Data/a.mpq")));
        QFile edited(source("Data/a.mpq"));
        QVERIFY(edited.open(QIODevice::ReadWrite));
        edited.write("EDITED");
        edited.close();
        QCOMPARE(readFile(copy), QByteArray("first a"));
    }

#ifndef Q_OS_WIN // the C library tells no numbers of files there
    void onlyWhatChangedIsCopied()
    {
        putThree();
        published();
        const ino_t number = numberOf(server(placeOf("Data/a.mpq")));
        put("Data/deDE/b.mpq", "second b");
        published();
        QCOMPARE(numberOf(server(placeOf("Data/a.mpq"))), number);
    }
#endif

    void damagedCopyIsRepaired()
    {
        putThree();
        published();
        const QString copy = server(placeOf("Data/a.mpq"));
        writeFile(copy, "broken");
        const BuildReport report = published();
        QCOMPARE(pathsOf(report.repaired), QStringList("Data/a.mpq"));
        QCOMPARE(readFile(copy), QByteArray("first a"));
        QVERIFY(!report.manifestChanged);
    }

    void missingCopyIsRepaired()
    {
        putThree();
        published();
        QFile::remove(server(placeOf("Data/a.mpq")));
        QCOMPARE(pathsOf(published().repaired), QStringList("Data/a.mpq"));
        QCOMPARE(readFile(server(placeOf("Data/a.mpq"))), QByteArray("first a"));
    }

    void rehashReadsWhatTheCacheWouldVouchFor_data()
    {
        QTest::addColumn<bool>("rehash");
        QTest::addColumn<QStringList>("repaired");
        QTest::newRow("size and date are trusted") << false << QStringList();
        QTest::newRow("nothing is trusted") << true << QStringList("Data/a.mpq");
    }

    void rehashReadsWhatTheCacheWouldVouchFor()
    {
        QFETCH(bool, rehash);
        putThree();
        published();
        const QString copy = server(placeOf("Data/a.mpq"));
        damage(copy, "FIRST A");
        // The cache vouches for the damaged copy as it looks now.
        HashCache lying = HashCache::forTarget(server("wow-client-patch/live"));
        lying.remember(copy, FileFingerprint::of(copy), placeOf("Data/a.mpq").section('/', -2, -2));
        lying.save();
        BuildRequest again = request();
        again.rehash = rehash;
        QTEST(pathsOf(published(again).repaired), "repaired");
    }

    void sourceEditedInPlaceIsNoticed()
    {
        putThree();
        published();
        damage(source("Data/a.mpq"), "FIRST A");
        QCOMPARE(pathsOf(published().changed), QStringList("Data/a.mpq"));
    }

    void handWrittenManifestIsTakenOver()
    {
        putThree();
        const QString hash = placeOf("Data/a.mpq").section('/', -2, -2);
        writeFile(server("wow-client-patch/live/old place/a.mpq"), "first a");
        writeFile(
            server(manifest),
            "[General]\nnumberOfFiles=1\nfile1=a.mpq\nfile1-urlOffset=old place\nfile1-hash="
                + hash.toLatin1() + '\n');
        const BuildReport report = published();
        QCOMPARE(report.unchanged, 1);
        QCOMPARE(pathsOf(report.added), QStringList({ "Data/deDE/b.mpq", "patched_wow.exe" }));
    }

#ifndef Q_OS_WIN // there is no file of such a name there
    void refusalPublishesNothing()
    {
        putThree();
        published();
        const QMap<QString, QByteArray> before = servedFiles();
        put("Data/a.mpq", "second a");
        put("Data/con", "x");
        StandingClock clock(QDateTime::currentDateTimeUtc());
        BuildReport report;
        QCOMPARE(build(request(), clock, report), ExitCode::Findings);
        QCOMPARE(idsOf(report.refusals), QStringList("name-not-for-windows"));
        QCOMPARE(servedFiles(), before);
    }
#endif

    void removalsStandInFront()
    {
        putThree();
        BuildRequest removing = request();
        removing.removals = { .files = { "Data/old.mpq" }, .folders = {}, .realms = 2 };
        published(removing);
        const PatchManifest read(server(manifest));
        QCOMPARE(read.name(1), QString("old.mpq"));
        QCOMPARE(read.name(2), QString("old.mpq"));
        QCOMPARE(read.entry(3).action(), PatchAction::FileRemove);
        QCOMPARE(read.entry(3).pathOffset, QString("Data"));
        QCOMPARE(read.name(4), QString("Data"));
        const BuildReport again = published(removing);
        QCOMPARE(again.unchanged, 3);
        QCOMPARE(pathsOf(again.removed), QStringList());
    }

#ifndef Q_OS_WIN // the lock is a file of the toolkit's there
    void lockThatIsNotToBeHadIsTold_data()
    {
        QTest::addColumn<int>("error");
        QTest::addColumn<QString>("told");
        QTest::newRow("another publisher") << EWOULDBLOCK << "another halden-publish is at work";
        QTest::newRow("a mount without locks") << ENOLCK << "No locks available";
        QTest::newRow("a mount that knows none") << ENOSYS << "Function not implemented";
    }

    void lockThatIsNotToBeHadIsTold()
    {
        QFETCH(int, error);
        QFETCH(QString, told);
        putThree();
        StandingClock clock(QDateTime::currentDateTimeUtc());
        BuildReport report;
        errorOfLocking = error;
        const ExitCode code = build(request(), clock, report);
        errorOfLocking = 0;
        QCOMPARE(code, ExitCode::InputOutput);
        QVERIFY2(report.error.contains(told), qPrintable(report.error));
        QCOMPARE(report.error.contains("another halden-publish"), error == EWOULDBLOCK);
    }

    void lockWithoutRightIsTold()
    {
        putThree();
        QDir().mkpath(server("wow-client-patch/live"));
        QFile::setPermissions(server(), QFile::WriteOwner | QFile::ExeOwner);
        StandingClock clock(QDateTime::currentDateTimeUtc());
        BuildReport report;
        const ExitCode code = build(request(), clock, report);
        QFile::setPermissions(server(), QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
        QCOMPARE(code, ExitCode::InputOutput);
        QVERIFY2(report.error.contains("Permission denied"), qPrintable(report.error));
    }
#endif

    void secondPublisherIsTurnedAway()
    {
        putThree();
        QDir().mkpath(server());
        const TreeLock other(server());
        QVERIFY(!other.problem());
        StandingClock clock(QDateTime::currentDateTimeUtc());
        BuildReport report;
        QCOMPARE(build(request(), clock, report), ExitCode::InputOutput);
        QVERIFY2(report.error.contains("another halden-publish"), qPrintable(report.error));
    }

#ifndef Q_OS_WIN // a folder cannot be closed for its own owner there
    void failureLeavesTheOldPublication_data()
    {
        QTest::addColumn<QString>("readOnly");
        QTest::newRow("server folder") << "";
        QTest::newRow("patch folder") << "wow-client-patch";
        QTest::newRow("folder of the file") << "wow-client-patch/live/Data";
    }

    void failureLeavesTheOldPublication()
    {
        QFETCH(QString, readOnly);
        putThree();
        published();
        const QMap<QString, QByteArray> before = servedFiles();
        put("Data/a.mpq", "second a");
        const QString folder = server(readOnly);
        QFile::setPermissions(folder, QFile::ReadOwner | QFile::ExeOwner);
        StandingClock clock(QDateTime::currentDateTimeUtc().addDays(1));
        BuildReport report;
        const ExitCode code = build(request(), clock, report);
        QFile::setPermissions(folder, QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
        QCOMPARE(code, ExitCode::InputOutput);
        QVERIFY(!report.error.isEmpty());
        QCOMPARE(readFile(server(manifest)), before.value(manifest));
        for (auto file = before.begin(); file != before.end(); ++file)
            QCOMPARE(readFile(server(file.key())), file.value());
        QCOMPARE(published().unchanged, 2);
    }
#endif

    void fullDiskLeavesTheOldPublication()
    {
        HALDEN_NEEDS_SMALL_DISK();
        putThree();
        BuildRequest small = request();
        small.server = "/small/server";
        published(small);
        const QMap<QString, QByteArray> before = filesBelow(small.server);
        put("Data/large.mpq", QByteArray(2 << 20, 'x'));
        StandingClock clock(QDateTime::currentDateTimeUtc().addDays(1));
        BuildReport report;
        const ExitCode code = build(small, clock, report);
        QMap<QString, QByteArray> after = filesBelow(small.server);
        QDir(small.server).removeRecursively();
        QCOMPARE(code, ExitCode::InputOutput);
#ifdef Q_OS_WIN // the room is not seen beforehand, so that the disk itself tells
        QVERIFY2(report.error.contains(diskFullText()), qPrintable(report.error));
#else
        QVERIFY2(report.error.contains("No space left"), qPrintable(report.error));
#endif
        QCOMPARE(after, before);
    }

#ifndef Q_OS_WIN // a file cannot be closed for its own owner there
    /// Small files are placed while others are still read.
    void failureTakesBackWhatHasBeenPlaced()
    {
        putThree();
        published();
        const QMap<QString, QByteArray> before = filesBelow(server());
        put("Data/Neu/small.mpq", "small");
        put("Data/unreadable.mpq", "x");
        QFile::setPermissions(source("Data/unreadable.mpq"), {});
        StandingClock clock(QDateTime::currentDateTimeUtc().addDays(1));
        BuildReport report;
        QCOMPARE(build(request(), clock, report), ExitCode::InputOutput);
        QCOMPARE(filesBelow(server()), before);
        QVERIFY(!QFileInfo::exists(server("wow-client-patch/live/Data/Neu")));
        QFile::setPermissions(source("Data/unreadable.mpq"), QFile::ReadOwner);
        QCOMPARE(published().added.size(), 2);
        QCOMPARE(readFile(server(placeOf("Data/Neu/small.mpq"))), QByteArray("small"));
    }
#endif

    /// Whoever finds the folder above missing may not be the one who makes it.
    void threadsMakeTheSameFoldersAtOnce()
    {
        constexpr int threads = 4;
        constexpr int rounds = 300;
        std::atomic_int failures = 0;
        for (int round = 0; round < rounds; ++round) {
            const QString above = server(QString("%1/a/b/c").arg(round));
            Parallel::run(threads, qsizetype(threads) * 2, [&](qsizetype i, int) {
                failures += FileWork::createFolder(above + '/' + QString::number(i)) ? 1 : 0;
            });
        }
        QCOMPARE(failures.load(), 0);
    }

    /// A torn file, of a publisher that was killed while it wrote it.
    void tornFileIsReplaced()
    {
        put("Data/a.mpq", "whole content");
        writeFile(server(placeOf("Data/a.mpq")), "whole");
        published();
        QCOMPARE(readFile(server(placeOf("Data/a.mpq"))), QByteArray("whole content"));
    }

    /// Seen before anything is copied; what is there already takes no room.
    void roomIsLookedForBeforeCopying_data()
    {
        QTest::addColumn<int>("size");
        QTest::addColumn<bool>("there");
        QTest::addColumn<bool>("fits");
#ifndef Q_OS_WIN // Wine tells the room of the drive, whatever disk a folder of it is
        QTest::newRow("too large") << (2 << 20) << false << false;
#endif
        QTest::newRow("fits") << (400 << 10) << false << true;
        QTest::newRow("there already") << (600 << 10) << true << true;
    }

    void roomIsLookedForBeforeCopying()
    {
        QFETCH(int, size);
        QFETCH(bool, there);
        QFETCH(bool, fits);
        HALDEN_NEEDS_SMALL_DISK();
        BuildRequest small = request();
        small.server = "/small/server";
        put("Data/large.mpq", QByteArray(size, 'x'));
        if (there)
            published(small);
        put("Data/a.mpq", "x");
        StandingClock clock(QDateTime::currentDateTimeUtc().addDays(1));
        BuildReport report;
        const ExitCode code = build(small, clock, report);
        QDir(small.server).removeRecursively();
        QCOMPARE(code, fits ? ExitCode::Fine : ExitCode::InputOutput);
        QCOMPARE(report.error.contains("2.0 MiB"), !fits);
    }

#ifndef Q_OS_WIN // the same
    void rightsAreLookedForBeforeCopying_data()
    {
        QTest::addColumn<QString>("closed");
        QTest::addColumn<QString>("changed");
        QTest::addColumn<bool>("told");
        const QString changed = "Data/deDE/b.mpq";
        QTest::newRow("manifest") << "" << changed << true;
        QTest::newRow("history") << ".halden-history/live" << changed << true;
        QTest::newRow("folder of a file") << "wow-client-patch/live/Data/deDE" << changed << true;
        QTest::newRow("folder in which one is made") << "wow-client-patch/live"
                                                     << "Interface/c.mpq" << true;
        // Another admin's, in which nothing is to be done.
        QTest::newRow("elsewhere") << "wow-client-patch/live/Data/deDE"
                                   << "Data/a.mpq" << false;
    }

    /// A source file that cannot be read shows which comes first.
    void rightsAreLookedForBeforeCopying()
    {
        QFETCH(QString, closed);
        QFETCH(QString, changed);
        QFETCH(bool, told);
        putThree();
        published();
        put(changed, "second");
        put("Data/unreadable.mpq", "x");
        QFile::setPermissions(source("Data/unreadable.mpq"), {});
        const QString folder = server(closed);
        QFile::setPermissions(folder, QFile::ReadOwner | QFile::ExeOwner);
        StandingClock clock(QDateTime::currentDateTimeUtc().addDays(1));
        BuildReport report;
        const ExitCode code = build(request(), clock, report);
        QFile::setPermissions(folder, QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
        QCOMPARE(code, ExitCode::InputOutput);
        QCOMPARE(report.error.startsWith(folder + " cannot be written: "), told);
        QCOMPARE(report.error.contains("unreadable.mpq"), !told);
    }

    void diskBelowTheServerFolderIsLookedAt_data()
    {
        QTest::addColumn<QString>("place");
        QTest::addColumn<int>("size");
        QTest::addColumn<QString>("told");
        QTest::newRow("patch files, too large")
            << "wow-client-patch" << (2 << 20) << "/wow-client-patch has no room";
        QTest::newRow("patch files, fit") << "wow-client-patch" << 1000 << "";
        QTest::newRow("one kind's alone")
            << "wow-client-patch/live" << 1000 << "/wow-client-patch/live lies on another disk";
        QTest::newRow("nothing") << "other" << (2 << 20) << "";
    }

    /// Patch files may lie on a disk of their own.
    void diskBelowTheServerFolderIsLookedAt()
    {
        HALDEN_NEEDS_SMALL_DISK();
        QFETCH(QString, place);
        QFETCH(int, size);
        QFETCH(QString, told);
        // Of another size each time, by which the settings layer goes.
        put("Data/" + QString(place).replace('/', '-'), QByteArray(size, 'x'));
        const QString disk = "/small/disk";
        QDir().mkpath(disk);
        QDir().mkpath(QFileInfo(server(place)).path());
        QVERIFY(QFile::link(disk, server(place)));
        StandingClock clock(QDateTime::currentDateTimeUtc());
        BuildReport report;
        const ExitCode code = build(request(), clock, report);
        QDir(disk).removeRecursively();
        QVERIFY(QFile::remove(server(place)));
        QVERIFY2(report.error.isEmpty() == told.isEmpty(), qPrintable(report.error));
        QVERIFY2(report.error.contains(told), qPrintable(report.error));
        QCOMPARE(code, told.isEmpty() ? ExitCode::Fine : ExitCode::InputOutput);
    }

    /// The manifest goes to the server folder's own disk.
    void roomForTheManifestIsLookedFor()
    {
        HALDEN_NEEDS_SMALL_DISK();
        put("Data/a.mpq", "x");
        BuildRequest small = request();
        small.server = "/small/server";
        const QString patches = ApplicationFolder::path("patches");
        QDir().mkpath(small.server);
        QDir().mkpath(patches);
        QVERIFY(QFile::link(patches, small.server + "/wow-client-patch"));
        QFile filler("/small/filler");
        QVERIFY(filler.open(QIODevice::WriteOnly | QIODevice::Unbuffered));
        while (filler.write(QByteArray(4096, 'x')) > 0) { }
        filler.close();
        StandingClock clock(QDateTime::currentDateTimeUtc());
        BuildReport report;
        const ExitCode code = build(small, clock, report);
        filler.remove();
        QVERIFY(QFile::remove(small.server + "/wow-client-patch"));
        QDir(small.server).removeRecursively();
        QCOMPARE(code, ExitCode::InputOutput);
        QVERIFY2(report.error.startsWith("/small/server has no room"), qPrintable(report.error));
    }

    void unreadableSourceIsTold()
    {
        putThree();
        QFile::setPermissions(source("Data/a.mpq"), {});
        StandingClock clock(QDateTime::currentDateTimeUtc());
        BuildReport report;
        QCOMPARE(build(request(), clock, report), ExitCode::InputOutput);
        QVERIFY2(report.error.contains("Data/a.mpq"), qPrintable(report.error));
        QVERIFY(!QFileInfo::exists(server(manifest)));
    }
#endif

    void manyFilesOnManyThreads()
    {
        for (int i = 0; i < 300; ++i)
            put(QString("Data/%1/f.mpq").arg(i), QByteArray(1 + i * 37, char('a' + i % 26)));
        BuildRequest parallel = request();
        parallel.threads = 4;
        QCOMPARE(published(parallel).added.size(), 300);
        QCOMPARE(published(parallel).unchanged, 300);
        for (int i = 0; i < 300; ++i) {
            const QString path = QString("Data/%1/f.mpq").arg(i);
            QCOMPARE(readFile(server(placeOf(path))), readFile(source(path)));
        }
    }
};

HALDEN_TEST_MAIN(tst_Build)
#include "tst_build.moc"
