#include "app/constants.h"
#include "tests/support/applicationfolder.h"
#include "tests/support/diskfaults.h"
#include "tests/support/logcapture.h"
#include "tests/support/testmain.h"
#include "tests/update/updatefixture.h"
#include "update/updatingprocedures.h"

#include <QDir>
#include <QFileInfo>

using namespace TestSupport;
using namespace UpdateFixture;

namespace {

QString client(int n, const QString& relativePath = QString())
{
    return ApplicationFolder::path(QString("client%1/").arg(n) + relativePath);
}

/// Reconciles "patch.ini" and returns the log behind its opening lines.
QStringList reconcile(const QString& kind = "live")
{
    LogCapture log;
    UpdatingProcedures run(nullptr);
    QList<PatchDownloadItem> queue;
    run.reconcilePatchIni(livePatchBaseUrl, "patch.ini", queue, kind);
    if (!queue.isEmpty())
        qFatal("a removal was queued as a download");
    return log.lines().mid(2);
}

/// A manifest whose last entry is a removal and whose other entries are folders
/// of the cache, which leave the clients alone.
void writeRemoval(int n, const QStringList& rowsBehindTheNumber)
{
    QStringList rows{ QString("numberOfFiles=%1").arg(n) };
    for (int i = 1; i < n; ++i)
        rows.append({ QString("file%1=filler").arg(i), QString("file%1-dirOnly=1").arg(i) });
    rows.append(QString("file%1-save=false").arg(n));
    for (const QString& row : rowsBehindTheNumber)
        rows.append(QString("file%1%2").arg(n).arg(row));
    writeManifest("patch.ini", rows);
}

const QString fileLine = "Case3: File remove";
const QString folderLine = "Case1: Folder remove";

} // namespace

class tst_ReconciledRemovals : public QObject {
    Q_OBJECT

private slots:
    void init()
    {
        ApplicationFolder::clear();
        for (int n = 1; n <= 3; ++n)
            addRealm(ApplicationFolder::path(QString("client%1").arg(n)));
    }

    void cleanup()
    {
        QDir("/Data").removeRecursively();
        QDir("/live").removeRecursively();
        QDir("/test").removeRecursively();
    }

    void aFileIsRemovedFromTheClientOfTheEntrysOwnNumber_data()
    {
        QTest::addColumn<int>("entry");
        QTest::newRow("entry 1") << 1;
        QTest::newRow("entry 2") << 2;
        QTest::newRow("entry 3") << 3;
    }

    void aFileIsRemovedFromTheClientOfTheEntrysOwnNumber()
    {
        QFETCH(int, entry);
        for (int n = 1; n <= 3; ++n)
            writeFile(client(n, "Data/old.mpq"), "old");
        writeRemoval(entry, { "=old.mpq" });
        QCOMPARE(reconcile().constLast(), fileLine);
        for (int n = 1; n <= 3; ++n)
            QCOMPARE(QFileInfo::exists(client(n, "Data/old.mpq")), n != entry);
    }

    void theSelectedRealmDoesNotMatter()
    {
        writeFile(client(1, "Data/old.mpq"), "old");
        writeFile(client(2, "Data/old.mpq"), "old");
        // The first realm is the selected one.
        writeRemoval(2, { "=old.mpq" });
        reconcile();
        QVERIFY(QFileInfo::exists(client(1, "Data/old.mpq")));
        QVERIFY(!QFileInfo::exists(client(2, "Data/old.mpq")));
    }

    void aFileRemovalHasNoKindInItsPath_data()
    {
        addKindRows();
    }
    void aFileRemovalHasNoKindInItsPath()
    {
        QFETCH(QString, kind);
        writeFile(client(1, "Data/deDE/old.mpq"), "old");
        writeFile(client(1, kind + "/Data/deDE/old.mpq"), "old");
        writeRemoval(1, { "=old.mpq", "-pathOffset=Data/deDE" });
        QCOMPARE(reconcile(kind), QStringList({ fileLine }));
        QVERIFY(!QFileInfo::exists(client(1, "Data/deDE/old.mpq")));
        QVERIFY(QFileInfo::exists(client(1, kind + "/Data/deDE/old.mpq")));
    }

    void aFolderRemovalHasTheKindInItsPath_data()
    {
        addKindRows();
    }
    void aFolderRemovalHasTheKindInItsPath()
    {
        QFETCH(QString, kind);
        QFETCH(QString, otherKind);
        for (const QString& place : { QString(), kind + "/", otherKind + "/" })
            writeFile(client(1, place + "Data/AddOns/deep/file"), "old");
        writeRemoval(1, { "=AddOns", "-dirOnly=true" });
        QCOMPARE(reconcile(kind), QStringList({ folderLine }));
        QVERIFY2(!QFileInfo::exists(client(1, kind + "/Data/AddOns")), "gone with its contents");
        QVERIFY(QFileInfo(client(1, kind + "/Data")).isDir());
        QVERIFY(QFileInfo::exists(client(1, "Data/AddOns/deep/file")));
        QVERIFY(QFileInfo::exists(client(1, otherKind + "/Data/AddOns/deep/file")));
    }

    void aFolderIsRemovedFromTheClientOfTheEntrysOwnNumber()
    {
        for (int n = 1; n <= 3; ++n)
            writeFile(client(n, "live/Data/AddOns/file"), "old");
        writeRemoval(3, { "=AddOns", "-dirOnly=true" });
        reconcile();
        QVERIFY(QFileInfo::exists(client(1, "live/Data/AddOns")));
        QVERIFY(QFileInfo::exists(client(2, "live/Data/AddOns")));
        QVERIFY(!QFileInfo::exists(client(3, "live/Data/AddOns")));
    }

    void aFileEntryWithoutRealmRemovesFromTheRoot()
    {
        writeFile("/Data/old.mpq", "old");
        writeFile("/Data/kept.mpq", "kept");
        writeRemoval(5, { "=old.mpq" });
        QCOMPARE(reconcile().constLast(), fileLine);
        QVERIFY(!QFileInfo::exists("/Data/old.mpq"));
        QVERIFY(QFileInfo::exists("/Data/kept.mpq"));
    }

    void aFolderEntryWithoutRealmRemovesFromTheRoot()
    {
        writeFile("/live/Data/AddOns/file", "old");
        writeFile("/Data/AddOns/file", "kept");
        writeRemoval(5, { "=AddOns", "-dirOnly=true" });
        QCOMPARE(reconcile().constLast(), folderLine);
        QVERIFY(!QFileInfo::exists("/live/Data/AddOns"));
        QVERIFY(QFileInfo::exists("/Data/AddOns/file"));
    }

    void aFolderRemovalWithoutNameEmptiesTheWholeOffset()
    {
        writeFile(client(1, "live/Data/a"), "old");
        writeFile(client(1, "live/Data/deDE/b"), "old");
        writeFile(client(1, "live/Interface/c"), "kept");
        writeRemoval(1, { "-dirOnly=true" });
        reconcile();
        QVERIFY(!QFileInfo::exists(client(1, "live/Data/a")));
        QVERIFY(!QFileInfo::exists(client(1, "live/Data/deDE")));
        QVERIFY(QFileInfo::exists(client(1, "live/Interface/c")));
    }

    void aFileRemovalWithoutNameRemovesNothing()
    {
        writeFile(client(1, "Data/a"), "kept");
        writeRemoval(1, { "=" });
        QCOMPARE(reconcile(), QStringList({ fileLine }));
        QVERIFY(QFileInfo::exists(client(1, "Data/a")));
    }

    void anotherKindOfThingIsLeftAlone_data()
    {
        QTest::addColumn<bool>("folderEntry");
        QTest::newRow("a folder where a file is to be removed") << false;
        QTest::newRow("a file where a folder is to be removed") << true;
    }

    void anotherKindOfThingIsLeftAlone()
    {
        QFETCH(bool, folderEntry);
        const QString victim = client(1, folderEntry ? "live/Data/thing" : "Data/thing");
        writeFile(folderEntry ? victim : victim + "/inside", "kept");
        writeRemoval(1, { "=thing", folderEntry ? "-dirOnly=true" : "-dirOnly=false" });
        QCOMPARE(reconcile(), QStringList({ folderEntry ? folderLine : fileLine }));
        QVERIFY(QFileInfo::exists(victim));
    }

    void failedRemovalsAreNotReported_data()
    {
        QTest::addColumn<QString>("dirOnly");
        QTest::addColumn<QString>("line");
        QTest::newRow("a file that is not there") << "false" << fileLine;
        QTest::newRow("a folder that is not there") << "true" << folderLine;
    }

    void failedRemovalsAreNotReported()
    {
        QFETCH(QString, dirOnly);
        QFETCH(QString, line);
        writeManifest(
            "patch.ini",
            QStringList{ "numberOfFiles=2", "file1=gone", "file1-save=0",
                         "file1-dirOnly=" + dirOnly, "file2=gone", "file2-save=0",
                         "file2-dirOnly=" + dirOnly });
        QCOMPARE(reconcile(), QStringList({ line, line }));
    }

    void whatMayNotBeRemovedStays_data()
    {
        QTest::addColumn<QString>("folder");
        QTest::addColumn<QString>("dirOnly");
        QTest::addColumn<QString>("line");
        QTest::newRow("a file") << "Data"
                                << "false" << fileLine;
        QTest::newRow("a folder") << "live/Data"
                                  << "true" << folderLine;
    }

    void whatMayNotBeRemovedStays()
    {
        QFETCH(QString, folder);
        QFETCH(QString, dirOnly);
        QFETCH(QString, line);
        const QString victim = client(1, folder + "/victim");
        writeFile(dirOnly == "true" ? victim + "/inside" : victim, "kept");
        const UnremovableFile unremovable(dirOnly == "true" ? victim + "/inside" : victim);
        writeRemoval(1, { "=victim", "-dirOnly=" + dirOnly });
        QCOMPARE(reconcile(), QStringList({ line }));
        QVERIFY(QFileInfo::exists(victim));
    }

    void theCacheIsNotTouchedByRemovals()
    {
        writeFile(cachePath("live/Data/old.mpq"), "cached");
        writeRemoval(1, { "=old.mpq" });
        reconcile();
        QCOMPARE(readFile(cachePath("live/Data/old.mpq")), "cached");
    }
};

HALDEN_TEST_MAIN(tst_ReconciledRemovals)
#include "tst_reconciledremovals.moc"
