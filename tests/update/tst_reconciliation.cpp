#include "app/constants.h"
#include "tests/support/applicationfolder.h"
#include "tests/support/diskfaults.h"
#include "tests/support/logcapture.h"
#include "tests/support/testmain.h"
#include "tests/support/timezone.h"
#include "tests/update/updatefixture.h"
#include "update/updatingprocedures.h"

#include <QDir>
#include <QFileInfo>

#include <memory>
#ifndef Q_OS_WIN
#include <sys/stat.h>
#endif

using namespace TestSupport;
using namespace UpdateFixture;

namespace {

const QDateTime fixedTime(QDate(2000, 1, 1), QTime(10, 15));

/// One reconciliation of a manifest, without a window: no download starts.
class Reconciliation {
public:
    explicit Reconciliation(
        const QString& kind = "live", const QString& manifestName = "patch.ini",
        const QList<PatchDownloadItem>& alreadyQueued = {})
        : queue(alreadyQueued)
    {
        LogCapture log;
        UpdatingProcedures run(nullptr);
        run.reconcilePatchIni(livePatchBaseUrl, manifestName, queue, kind);
        lines = withSlashes(log.lines());
    }

    QStringList names() const
    {
        QStringList result;
        for (const PatchDownloadItem& item : queue)
            result.append(item.getFileName());
        return result;
    }

    QList<PatchDownloadItem> queue;
    QStringList lines;
};

PatchDownloadItem someItem()
{
    return { QUrl("https://host/first"), fixedTime, "/folder", "first" };
}

/// The two lines that every reconciliation of a manifest at hand begins with.
QStringList openingLines(const QString& manifestName = "patch.ini")
{
    return { QString("\"https://download.tarnwick.example/\" \"%1\"").arg(manifestName),
             QString("\"%1\"").arg(settingsPath(manifestName)) };
}

QStringList upToDateLines(const QString& path, const QString& hash, int queueSize)
{
    return { "Case4: File Download", "check if hashEquals",
             QString("file:  \"%1\"  with hash:  \"%2\"  is already up-to-date").arg(path, hash),
             QString("Client UpdateQueue size:  %1").arg(queueSize) };
}

QStringList queuedLines(const QString& path, const QString& hash, int queueSize)
{
    return { "Case4: File Download", "check if hashEquals",
             QString("file:  \"%1\"  with hash:  \"%2\""
                     "  --> missed hash-check, added to download Queue.")
                 .arg(path, hash),
             QString("Client UpdateQueue size:  %1").arg(queueSize) };
}

QStringList folderLines(const QString& path)
{
    return { "Case2: Folder create", QString("\"%1\"").arg(path) };
}

/// A manifest with the single file "a.mpq" of this hash.
void writeSingleFileManifest(const QString& hash)
{
    writeManifest(
        "patch.ini", QStringList{ "numberOfFiles=1", "file1=a.mpq", "file1-hash=" + hash });
}

#ifndef Q_OS_WIN
void makePipe(const QString& path)
{
    QVERIFY(QDir().mkpath(QFileInfo(path).path()));
    QCOMPARE(mkfifo(qPrintable(path), 0600), 0);
}
#endif

} // namespace

class tst_Reconciliation : public QObject {
    Q_OBJECT

private slots:
    void init()
    {
        unreadable.reset();
        ApplicationFolder::clear();
    }

    void aMissingManifestIsReportedAndQueuesNothing()
    {
        const Reconciliation run;
        QCOMPARE(
            run.lines,
            QStringList({ "\"https://download.tarnwick.example/\" \"patch.ini\"",
                          QString("patchfile does not exist at:  \"%1\"")
                              .arg(settingsPath("patch.ini")) }));
        QVERIFY(run.queue.isEmpty());
        QVERIFY2(QFileInfo(cachePath("live")).isDir(), "the cache is made before the manifest");
    }

    void aMissingManifestLeavesTheQueueAsItWas()
    {
        const Reconciliation run("live", "patch.ini", { someItem() });
        QCOMPARE(run.names(), QStringList{ someItem().getFileName() });
    }

    void cacheFoldersAreMade_data()
    {
        addKindRows();
    }

    void cacheFoldersAreMade()
    {
        QFETCH(QString, kind);
        QFETCH(QString, otherKind);
        const Reconciliation run(kind);
        QVERIFY(QFileInfo(cachePath(kind)).isDir());
        QVERIFY2(!QFileInfo::exists(cachePath(otherKind)), "only the kind's own folder is made");
    }

    void aCacheThatIsThereIsKept()
    {
        writeFile(cachePath("live/Data/a.mpq"), "cached");
        const Reconciliation run;
        QCOMPARE(readFile(cachePath("live/Data/a.mpq")), "cached");
    }

    void aManifestWithoutEntriesIsOpenedAndNothingElse()
    {
        writeManifest("patch.ini", QStringList{ "file1=a.mpq", "file1-hash=00" });
        const Reconciliation run;
        QCOMPARE(run.lines, openingLines());
        QVERIFY(run.queue.isEmpty());
    }

    void anEntryWithANameOnly()
    {
        writeManifest("patch.ini", QStringList{ "numberOfFiles=1", "file1=a.mpq" });
        const Reconciliation run;
        QCOMPARE(run.lines, openingLines() + upToDateLines(cachePath("live/Data//a.mpq"), "", 0));
        QVERIFY2(run.queue.isEmpty(), "no hash and no cached copy counts as up to date");
    }

    void aMissingFileIsQueued()
    {
        writeSingleFileManifest("00");
        const Reconciliation run;
        QCOMPARE(run.lines, openingLines() + queuedLines(cachePath("live/Data//a.mpq"), "00", 1));
        QCOMPARE(run.queue.size(), 1);
        const PatchDownloadItem item = run.queue.constFirst();
        QCOMPARE(
            item.getUrl(), QUrl("https://download.tarnwick.example/wow-client-patch/live//a.mpq"));
        QCOMPARE(item.getReferenceTime(), fixedTime);
        QCOMPARE(item.getReferenceTime().timeSpec(), Qt::LocalTime);
        QCOMPARE(QDir::fromNativeSeparators(item.getTargetFolder()), cachePath("live/Data/"));
        QCOMPARE(item.getFileName(), "a.mpq");
        QVERIFY2(!QFileInfo::exists(cachePath("live/Data")), "queueing makes no folder");
    }

    void theKindsOwnManifestCacheAndUrlAreUsed()
    {
        writeManifest(
            "patchTest.ini",
            QStringList{ "numberOfFiles=1", "file1=b.mpq", "file1-pathOffset=Data/deDE",
                         "file1-urlOffset=v3/deDE", "file1-hash=11" });
        const Reconciliation run("test", "patchTest.ini");
        QCOMPARE(
            run.lines,
            openingLines("patchTest.ini")
                + queuedLines(cachePath("test/Data/deDE/b.mpq"), "11", 1));
        const PatchDownloadItem item = run.queue.constFirst();
        QCOMPARE(
            item.getUrl(),
            QUrl("https://download.tarnwick.example/wow-client-patch/test/v3/deDE/b.mpq"));
        QCOMPARE(QDir::fromNativeSeparators(item.getTargetFolder()), cachePath("test/Data/deDE"));
    }

    void hashes_data()
    {
        QTest::addColumn<QByteArray>("cached");
        QTest::addColumn<QString>("hash");
        QTest::addColumn<bool>("queued");
        const QByteArray content = "patch content";
        const QString hash = md5(content);
        QTest::newRow("lower case of the content") << content << hash << false;
        QTest::newRow("upper case never matches") << content << hash.toUpper() << true;
        QTest::newRow("one upper-case digit") << content << withOneUpperCaseDigit(hash) << true;
        QTest::newRow("of other content") << content << md5("other") << true;
        QTest::newRow("cut short") << content << hash.left(31) << true;
        QTest::newRow("with separators") << content << hash.left(2) + ":" + hash.mid(2) << true;
        QTest::newRow("none, with a copy") << content << "" << true;
        QTest::newRow("of an empty copy")
            << QByteArray("") << "d41d8cd98f00b204e9800998ecf8427e" << false;
        QTest::newRow("known value")
            << QByteArray("abc") << "900150983cd24fb0d6963f7d28e17f72" << false;
        QTest::newRow("zero bytes count") << QByteArray(100'000, '\0') << md5("") << true;
        const QByteArray large(3'000'000, 'x');
        QTest::newRow("a large file is read to its end") << large << md5(large) << false;
        QTest::newRow("a large file's last byte counts") << large + 'y' << md5(large) << true;
    }

    void hashes()
    {
        QFETCH(QByteArray, cached);
        QFETCH(QString, hash);
        QFETCH(bool, queued);
        writeFile(cachePath("live/Data/a.mpq"), cached);
        writeSingleFileManifest(hash);
        const Reconciliation run;
        const QString path = cachePath("live/Data//a.mpq");
        QCOMPARE(
            run.lines,
            openingLines() + (queued ? queuedLines(path, hash, 1) : upToDateLines(path, hash, 0)));
        QCOMPARE(run.queue.size(), queued ? 1 : 0);
        QCOMPARE(readFile(cachePath("live/Data/a.mpq")), cached);
    }

    void whatCannotBeReadHasAnEmptyHash_data()
    {
        QTest::addColumn<QString>("obstacle");
        QTest::addColumn<QString>("hash");
        QTest::addColumn<bool>("queued");
        QStringList obstacles{ "nothing", "unreadable file", "folder" };
#ifndef Q_OS_WIN // has no such things in folders
        obstacles += { "pipe", "dangling link", "link to a folder", "link to a pipe" };
#endif
        for (const QString& obstacle : obstacles) {
            QTest::addRow("%s, hash given", qPrintable(obstacle))
                << obstacle << md5("patch content") << true;
            QTest::addRow("%s, hash of nothing", qPrintable(obstacle))
                << obstacle << md5("") << true;
            QTest::addRow("%s, no hash", qPrintable(obstacle)) << obstacle << "" << false;
        }
    }

    void whatCannotBeReadHasAnEmptyHash()
    {
        QFETCH(QString, obstacle);
        QFETCH(QString, hash);
        QFETCH(bool, queued);
        putObstacle(obstacle, cachePath("live/Data/a.mpq"));
        writeSingleFileManifest(hash);
        QCOMPARE(Reconciliation().queue.size(), queued ? 1 : 0);
    }

#ifndef Q_OS_WIN // a link is a file with another name there
    void aLinkToTheRightContentMatches()
    {
        writeFile(ApplicationFolder::path("elsewhere"), "patch content");
        QVERIFY(QDir().mkpath(cachePath("live/Data")));
        QVERIFY(QFile::link(ApplicationFolder::path("elsewhere"), cachePath("live/Data/a.mpq")));
        writeSingleFileManifest(md5("patch content"));
        QVERIFY(Reconciliation().queue.isEmpty());
    }
#endif

    void theReferenceTimeIsTheCachedCopysInUtc_data()
    {
        QTest::addColumn<QByteArray>("timeZone");
        QTest::newRow("at Greenwich") << QByteArray("UTC");
        QTest::newRow("five hours east") << QByteArray("TST-5");
        QTest::newRow("eight hours west") << QByteArray("TST8");
    }

    void theReferenceTimeIsTheCachedCopysInUtc()
    {
        QFETCH(QByteArray, timeZone);
        const TimeZone zone(timeZone);
        writeFile(cachePath("live/Data/a.mpq"), "old content");
        setModificationTime(cachePath("live/Data/a.mpq"), someTime());
        writeSingleFileManifest(md5("new content"));
        const QDateTime time = Reconciliation().queue.constFirst().getReferenceTime();
        QCOMPARE(time.timeSpec(), Qt::UTC);
        QCOMPARE(time.toString(Qt::ISODate), "2024-07-14T21:30:05Z");
    }

    void theFixedTimeIsLocal()
    {
        const TimeZone zone("TST-5");
        writeSingleFileManifest("00");
        const QDateTime time = Reconciliation().queue.constFirst().getReferenceTime();
        QCOMPARE(time.toString(Qt::ISODateWithMs), "2000-01-01T10:15:00.000");
        QCOMPARE(time.toUTC().toString(Qt::ISODate), "2000-01-01T05:15:00Z");
    }

    void entriesAreQueuedInTheOrderOfTheirNumbers()
    {
        writeFile(cachePath("live/Data/known"), "known");
        writeManifest(
            "patch.ini",
            QStringList{ "file10=ten", "file10-hash=1", "file2=known", "file2-hash=" + md5("known"),
                         "file3=three", "file3-hash=1", "file1=one", "file1-hash=1", "file4=three",
                         "file4-hash=2", "numberOfFiles=10" });
        const Reconciliation run;
        QCOMPARE(run.names(), QStringList({ "one", "three", "three", "ten" }));
        QCOMPARE(
            run.lines.filter("Client UpdateQueue size"),
            QStringList({ "Client UpdateQueue size:  1", "Client UpdateQueue size:  1",
                          "Client UpdateQueue size:  2", "Client UpdateQueue size:  3",
                          "Client UpdateQueue size:  3", "Client UpdateQueue size:  3",
                          "Client UpdateQueue size:  3", "Client UpdateQueue size:  3",
                          "Client UpdateQueue size:  3", "Client UpdateQueue size:  4" }));
    }

    void itemsAreAppendedBehindWhatIsQueued()
    {
        writeSingleFileManifest("00");
        const Reconciliation run("live", "patch.ini", { someItem() });
        QCOMPARE(run.names(), QStringList({ someItem().getFileName(), "a.mpq" }));
        QCOMPARE(run.lines.constLast(), "Client UpdateQueue size:  2");
    }

    void entriesPastTheNumberAreNotRead()
    {
        writeManifest(
            "patch.ini",
            QStringList{ "numberOfFiles=1", "file1=a", "file1-hash=1", "file2=b", "file2-hash=1" });
        QCOMPARE(Reconciliation().names(), QStringList({ "a" }));
    }

    void foldersAreMadeInTheCache_data()
    {
        QTest::addColumn<QString>("offsetRow");
        QTest::addColumn<QString>("logged");
        QTest::addColumn<QString>("made");
        QTest::newRow("with the default offset") << ""
                                                 << "live/Data//AddOns"
                                                 << "live/Data/AddOns";
        QTest::newRow("below missing parents") << "file1-pathOffset=Data/deDE/new"
                                               << "live/Data/deDE/new/AddOns"
                                               << "live/Data/deDE/new/AddOns";
        QTest::newRow("without offset") << "file1-pathOffset="
                                        << "live//AddOns"
                                        << "live/AddOns";
    }

    void foldersAreMadeInTheCache()
    {
        QFETCH(QString, offsetRow);
        QFETCH(QString, logged);
        QFETCH(QString, made);
        writeManifest(
            "patch.ini",
            QStringList{ "numberOfFiles=1", "file1=AddOns", "file1-dirOnly=true", offsetRow });
        const Reconciliation run;
        QCOMPARE(run.lines, openingLines() + folderLines(cachePath(logged)));
        QVERIFY(QFileInfo(cachePath(made)).isDir());
        QVERIFY(run.queue.isEmpty());
    }

    void aFolderThatIsThereKeepsItsFiles()
    {
        writeFile(cachePath("live/Data/AddOns/kept"), "kept");
        writeManifest(
            "patch.ini", QStringList{ "numberOfFiles=1", "file1=AddOns", "file1-dirOnly=true" });
        const Reconciliation run;
        QCOMPARE(readFile(cachePath("live/Data/AddOns/kept")), "kept");
    }

    void aFolderThatCannotBeMadeIsNotReported()
    {
        writeFile(cachePath("live/Data"), "a file in the way");
        writeManifest(
            "patch.ini",
            QStringList{ "numberOfFiles=2", "file1=AddOns", "file1-dirOnly=true", "file2=b",
                         "file2-hash=1" });
        const Reconciliation run;
        QCOMPARE(
            run.lines,
            openingLines() + folderLines(cachePath("live/Data//AddOns"))
                + queuedLines(cachePath("live/Data//b"), "1", 1));
        QCOMPARE(readFile(cachePath("live/Data")), "a file in the way");
    }

    void aCacheThatCannotBeMadeLeavesTheRestGoingOn()
    {
        writeFile(ApplicationFolder::path("ClientDataStorage"), "a file in the way");
        writeSingleFileManifest("00");
        QCOMPARE(Reconciliation().names(), QStringList({ "a.mpq" }));
        QCOMPARE(readFile(ApplicationFolder::path("ClientDataStorage")), "a file in the way");
    }

    void theClientIsLeftAloneByDownloadsAndFolders()
    {
        const QString client = ApplicationFolder::path("client");
        addRealm(client);
        writeFile(client + "/Data/a.mpq", "old");
        writeManifest(
            "patch.ini",
            QStringList{ "numberOfFiles=2", "file1=a.mpq", "file1-hash=1", "file2=AddOns",
                         "file2-dirOnly=true" });
        const Reconciliation run;
        QCOMPARE(readFile(client + "/Data/a.mpq"), "old");
        QVERIFY(!QFileInfo::exists(client + "/Data/AddOns"));
        QVERIFY(!QFileInfo::exists(client + "/live"));
    }

    void theManifestIsNotWritten()
    {
        const QByteArray content = "; kept\nnumberOfFiles = 1\nfile1 = a\n";
        writeManifest("patch.ini", content);
        const Reconciliation run;
        QCOMPARE(readFile(settingsPath("patch.ini")), content);
    }

private:
    static QString withOneUpperCaseDigit(QString hash)
    {
        for (QChar& digit : hash) {
            if (digit.isLetter()) {
                digit = digit.toUpper();
                break;
            }
        }
        return hash;
    }

    void putObstacle(const QString& obstacle, const QString& path)
    {
        const QString aside = ApplicationFolder::path("aside");
        QVERIFY(QDir().mkpath(QFileInfo(path).path()));
        if (obstacle == "unreadable file") {
            writeFile(path, "patch content");
            unreadable = std::make_unique<UnreadableFile>(path);
        } else if (obstacle == "folder") {
            QVERIFY(QDir().mkpath(path));
        }
#ifndef Q_OS_WIN
        else if (obstacle == "pipe") {
            makePipe(path);
        } else if (obstacle == "dangling link") {
            QVERIFY(QFile::link(aside, path));
        } else if (obstacle == "link to a folder") {
            QVERIFY(QDir().mkpath(aside));
            QVERIFY(QFile::link(aside, path));
        } else if (obstacle == "link to a pipe") {
            makePipe(aside);
            QVERIFY(QFile::link(aside, path));
        }
#endif
    }

    std::unique_ptr<UnreadableFile> unreadable;
};

HALDEN_TEST_MAIN(tst_Reconciliation)
#include "tst_reconciliation.moc"
