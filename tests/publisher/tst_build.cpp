#include "publisher/build.h"
#include "publisher/filework.h"
#include "publisher/hashcache.h"
#include "publisher/treelock.h"
#include "tests/publisher/buildfixture.h"
#include "tests/support/applicationfolder.h"
#include "tests/support/testmain.h"
#include "tests/support/timezone.h"
#include "update/patchmanifest.h"

#include <QDir>
#include <QFileInfo>
#include <QRegularExpression>

#include <sys/stat.h>

using namespace TestSupport;
using namespace BuildFixture;

namespace {

const QString manifest = "patch.ini";

ino_t numberOf(const QString& path)
{
    struct stat status { };
    return ::stat(QFile::encodeName(path).constData(), &status) == 0 ? status.st_ino : 0;
}

/// Overwrites bytes without a change of size or date: what an evil or broken
/// machine does, and what no look at size and date can find.
void damage(const QString& path, const QByteArray& content)
{
    const QDateTime date = dateOf(path);
    writeFile(path, content);
    setDate(path, date);
}

void putThree()
{
    put("patched_wow.exe", "program");
    put("Data/a.mpq", "first a");
    put("Data/deDE/b.mpq", "first b");
}

} // namespace

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
        QCOMPARE(report.bytesToUpdate, 21);
        QCOMPARE(report.bytesInAll, 21);
        QVERIFY(report.manifestChanged);
        QStringList expected{ manifest };
        for (const QString& path : paths)
            expected.append(placeOf(path));
        const QMap<QString, QByteArray> tree = filesBelow(server());
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
        QCOMPARE(read.hash(3), placeOf("Data/a.mpq").section('/', -2, -2));
    }

    void testPlayersHaveATreeOfTheirOwn()
    {
        putThree();
        published();
        const QByteArray live = readFile(server(manifest));
        put("Data/a.mpq", "for testing");
        BuildRequest forTest = request();
        forTest.kind = "test";
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
        QCOMPARE(report.bytesToUpdate, 0);
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
        const BuildReport report = published();
        QCOMPARE(pathsOf(report.added), QStringList("Data/c.mpq"));
        QCOMPARE(pathsOf(report.changed), QStringList("Data/a.mpq"));
        QCOMPARE(pathsOf(report.removed), QStringList("patched_wow.exe"));
        QCOMPARE(report.removed.at(0).size, 7);
        QCOMPARE(report.unchanged, 1);
        QCOMPARE(report.bytesToUpdate, 11);
        QCOMPARE(report.bytesInAll, 18);
    }

    void changedFileIsNewerThanTheOneItReplaces_data()
    {
        QTest::addColumn<int>("clockAhead");
        QTest::addColumn<bool>("newerThanClock");
        QTest::newRow("a clock that goes right") << 3600 << false;
        QTest::newRow("within the same second") << 0 << true;
        QTest::newRow("a clock a year behind") << -365 * 86400 << true;
    }

    void changedFileIsNewerThanTheOneItReplaces()
    {
        QFETCH(int, clockAhead);
        QFETCH(bool, newerThanClock);
        putThree();
        published();
        const QDateTime before = dateOf(server(placeOf("Data/a.mpq")));
        const QDateTime manifestBefore = dateOf(server(manifest));
        put("Data/a.mpq", "second a");
        StandingClock clock(before.addSecs(clockAhead));
        BuildReport report;
        QCOMPARE(build(request(), clock, report), ExitCode::Fine);
        const QDateTime after = dateOf(server(placeOf("Data/a.mpq")));
        QVERIFY(after.toSecsSinceEpoch() > before.toSecsSinceEpoch());
        QCOMPARE(after == before.addSecs(1), newerThanClock);
        QVERIFY(dateOf(server(manifest)).toSecsSinceEpoch() > manifestBefore.toSecsSinceEpoch());
    }

    /// Every state of the file, back and forth: each is newer than the last.
    void rollBackIsNewerToo()
    {
        putThree();
        const QList<QByteArray> contents{ "one", "two", "one", "two", "three", "one" };
        QDateTime fileBefore = utc(QDate(1971, 1, 1), QTime(0, 0));
        QDateTime manifestBefore = fileBefore;
        StandingClock clock(QDateTime::currentDateTimeUtc());
        for (const QByteArray& content : contents) {
            put("Data/a.mpq", content);
            BuildReport report;
            QCOMPARE(build(request(), clock, report), ExitCode::Fine);
            QCOMPARE(readFile(server(placeOf("Data/a.mpq"))), content);
            const QDateTime file = dateOf(server(placeOf("Data/a.mpq")));
            QVERIFY2(file > fileBefore, content.constData());
            QVERIFY2(dateOf(server(manifest)) > manifestBefore, content.constData());
            fileBefore = file;
            manifestBefore = dateOf(server(manifest));
            clock.forward(-5);
        }
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
        QCOMPARE(filesBelow(server()).size(), 4);
    }

    void pruningSparesWhatIsNotThePatchOfThisKind()
    {
        putThree();
        BuildRequest forTest = request();
        forTest.kind = "test";
        published(forTest);
        const QStringList others{ "launcher.info", "Halden-Launcher.exe", "other/file" };
        for (const QString& other : others)
            writeFile(server(other), "x");
        writeFile(server("wow-client-patch/live/by hand/.old"), "x");
        BuildRequest pruning = request();
        pruning.prune = true;
        QCOMPARE(
            pathsOf(published(pruning).pruned), QStringList("wow-client-patch/live/by hand/.old"));
        const QMap<QString, QByteArray> tree = filesBelow(server());
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
        const QMap<QString, QByteArray> before = filesBelow(server());
        BuildRequest dry = request();
        dry.dryRun = true;
        dry.prune = true;
        const BuildReport report = published(dry);
        QCOMPARE(filesBelow(server()), before);
        QCOMPARE(QFileInfo::exists(server()), publishedBefore);
        QVERIFY(report.manifestChanged);
        QCOMPARE(pathsOf(report.changed).contains("Data/a.mpq"), publishedBefore);
        QCOMPARE(report.bytesToUpdate, publishedBefore ? 8 : 22);
        QCOMPARE(pathsOf(report.pruned), publishedBefore ? QStringList(old) : QStringList());
    }

    void copiesAreFilesOfTheirOwn()
    {
        putThree();
        published();
        const QString copy = server(placeOf("Data/a.mpq"));
        QVERIFY(numberOf(copy) != numberOf(source("Data/a.mpq")));
        QFile edited(source("Data/a.mpq"));
        QVERIFY(edited.open(QIODevice::ReadWrite));
        edited.write("EDITED");
        edited.close();
        QCOMPARE(readFile(copy), QByteArray("first a"));
    }

    void onlyWhatChangedIsCopied()
    {
        putThree();
        published();
        const ino_t number = numberOf(server(placeOf("Data/a.mpq")));
        put("Data/deDE/b.mpq", "second b");
        published();
        QCOMPARE(numberOf(server(placeOf("Data/a.mpq"))), number);
    }

    void damagedCopyIsRepaired()
    {
        putThree();
        published();
        const QString copy = server(placeOf("Data/a.mpq"));
        const QDateTime before = dateOf(copy);
        writeFile(copy, "broken");
        setDate(copy, before);
        const BuildReport report = published();
        QCOMPARE(pathsOf(report.repaired), QStringList("Data/a.mpq"));
        QCOMPARE(readFile(copy), QByteArray("first a"));
        QVERIFY(dateOf(copy) > before);
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
        lying.remember(copy, FileWork::stamp(copy), placeOf("Data/a.mpq").section('/', -2, -2));
        lying.save();
        BuildRequest again = request();
        again.rehash = rehash;
        QTEST(pathsOf(published(again).repaired), "repaired");
    }

    void brokenCacheIsIgnored_data()
    {
        QTest::addColumn<QByteArray>("content");
        QTest::newRow("empty") << QByteArray();
        QTest::newRow("cut short") << QByteArray("{\"/x\":[\"1");
        QTest::newRow("other types") << QByteArray("{\"/x\":7,\"/y\":[[],{}]}");
    }

    void brokenCacheIsIgnored()
    {
        QFETCH(QByteArray, content);
        const QString path = ApplicationFolder::path("cache/hashes.json");
        writeFile(path, content);
        put("a", "x");
        HashCache cache(path);
        QCOMPARE(cache.find("/x"), QString());
        QCOMPARE(cache.find(source("a")), QString());
        cache.remember(source("a"), FileWork::stamp(source("a")), "0cc");
        cache.save();
        QCOMPARE(HashCache(path).find(source("a")), QString("0cc"));
        damage(source("a"), "y");
        QCOMPARE(HashCache(path).find(source("a")), QString());
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
        const QDateTime date = utc(QDate(2024, 5, 1), QTime(8, 0));
        setDate(server("wow-client-patch/live/old place/a.mpq"), date);
        writeFile(
            server(manifest),
            "[General]\nnumberOfFiles=1\nfile1=a.mpq\nfile1-urlOffset=old place\nfile1-hash="
                + hash.toLatin1() + '\n');
        const BuildReport report = published();
        QCOMPARE(report.unchanged, 1);
        QCOMPARE(pathsOf(report.added), QStringList({ "Data/deDE/b.mpq", "patched_wow.exe" }));
        QCOMPARE(dateOf(server(placeOf("Data/a.mpq"))), date);
    }

    void refusalPublishesNothing()
    {
        putThree();
        published();
        const QMap<QString, QByteArray> before = filesBelow(server());
        put("Data/a.mpq", "second a");
        put("Data/con", "x");
        StandingClock clock(QDateTime::currentDateTimeUtc());
        BuildReport report;
        QCOMPARE(build(request(), clock, report), ExitCode::Findings);
        QCOMPARE(idsOf(report.refusals), QStringList("name-not-for-windows"));
        QCOMPARE(filesBelow(server()), before);
    }

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

    void secondPublisherIsTurnedAway()
    {
        putThree();
        QDir().mkpath(server());
        const TreeLock other(server());
        QVERIFY(other.isHeld());
        StandingClock clock(QDateTime::currentDateTimeUtc());
        BuildReport report;
        QCOMPARE(build(request(), clock, report), ExitCode::InputOutput);
        QVERIFY2(report.error.contains("another halden-publish"), qPrintable(report.error));
    }

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
        const QMap<QString, QByteArray> before = filesBelow(server());
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

    void fullDiskLeavesTheOldPublication()
    {
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
        QVERIFY2(report.error.contains("No space left"), qPrintable(report.error));
        QCOMPARE(after, before);
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
