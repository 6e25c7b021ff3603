#include "publisher/build/removals.h"
#include "publisher/build/sourcetree.h"
#include "tests/publisher/buildfixture.h"
#include "tests/support/applicationfolder.h"
#include "tests/support/logcapture.h"
#include "tests/support/testmain.h"
#include "tests/update/updatefixture.h"
#include "update/updatingprocedures.h"

#include <QDir>
#include <QFileInfo>
#include <QRegularExpression>

using namespace TestSupport;
using namespace BuildFixture;
using namespace Publisher;

namespace {

constexpr int realmsReached = 4;

QString client(int realm, const QString& relativePath = {})
{
    return ApplicationFolder::path(QString("client%1/%2").arg(realm).arg(relativePath));
}

/// What a player may have besides the patch, some of it with telling names.
const QStringList ownFiles{ "Data/own.mpq",        "Data/deDE/old.mpq",       "live/Data/old.mpq",
                            "Interface/old.mpq/a", "Interface/AddOns/Mine/b", "old.mpq" };

void layOutClient(int realm)
{
    for (const QString& path : ownFiles)
        writeFile(client(realm, path), "the player's");
    writeFile(client(realm, "Data/old.mpq"), "to go");
}

/// A whole update run without its downloads, which the cache stands in for.
void runLauncher()
{
    LogCapture log;
    UpdatingProcedures run(nullptr);
    QList<PatchDownloadItem> queue;
    run.reconcilePatchIni("https://download.tarnwick.example/", "patch.ini", queue, "live");
    run.reconcilePatchIni("https://download.tarnwick.example/", "patchTest.ini", queue, "test");
    for (const PatchDownloadItem& item : queue)
        writeFile(item.getTargetFolder() + '/' + item.getFileName(), "downloaded");
    run.copyPatchedFilesIntoClient();
}

/// Publishes for this machine's separator and gives the player the manifest.
void deliver(const BuildRequest& wanted)
{
    BuildRequest forHere = wanted;
    forHere.separator = QDir::separator();
    published(forHere);
    const QString name = ServerLayout::manifestName(wanted.kind);
    UpdateFixture::writeManifest(name, readFile(server(name)));
}

BuildRequest removing(const QStringList& files, const QStringList& folders)
{
    BuildRequest wanted = request();
    wanted.removals = { .files = files, .folders = folders, .realms = realmsReached };
    return wanted;
}

} // namespace

class tst_Removals : public QObject {
    Q_OBJECT

private slots:
    void init()
    {
        QTest::failOnWarning(QRegularExpression(".*"));
        ApplicationFolder::clear();
        put("Data/deDE/patch.mpq", "patch");
        put("Data/own.mpq-2", "patch");
    }

    void refuses_data()
    {
        QTest::addColumn<QStringList>("files");
        QTest::addColumn<QStringList>("folders");
        QTest::addColumn<QString>("id");
        const QStringList none;
        QTest::newRow("no path") << QStringList("") << none << "removal-path";
        QTest::newRow("path from the root") << QStringList("/Data/x") << none << "removal-path";
        QTest::newRow("path with a drive") << QStringList("C:\\Data\\x") << none << "removal-path";
        QTest::newRow("path that leads out") << QStringList("../x") << none << "removal-path";
        QTest::newRow("file with a slash") << QStringList("Data/x/") << none << "removal-path";
        QTest::newRow("no folder but a slash") << none << QStringList("/") << "removal-path";
        QTest::newRow("client folder") << none << QStringList(".") << "removal-path";
        QTest::newRow("wildcard") << QStringList("Data/*.mpq") << none << "removal-path";
        QTest::newRow("file of the source")
            << QStringList("Data/deDE/patch.mpq") << none << "removal-in-source";
        QTest::newRow("file of the source in other case")
            << QStringList("data\\DEDE\\Patch.mpq") << none << "removal-in-source";
        QTest::newRow("folder with files of the source")
            << none << QStringList("Data") << "removal-in-source";
        QTest::newRow("file that is a folder in the source")
            << QStringList("Data/deDE") << none << "removal-in-source";
        QTest::newRow("two names")
            << QStringList({ "Data/x.mpq", "Data/y.mpq" }) << none << "removal-second-name";
        QTest::newRow("two names in other case")
            << QStringList({ "Data/x.mpq", "Data/X.mpq" }) << none << "removal-second-name";
        QTest::newRow("file and folder of two names")
            << QStringList("Data/x.mpq") << QStringList("Interface/y") << "removal-second-name";
    }

    void slashAtTheEndIsNamed()
    {
        const SourceTree tree = SourceTree::scan(source());
        const RemovalPlan plan = RemovalPlan::make({ { "WTF/" }, {}, 4 }, tree, '\\');
        const QString reason = reasonOf(plan.refusals.at(0));
        QVERIFY2(reason.contains("ends in a slash"), qPrintable(reason));
        QVERIFY2(reason.contains("--remove-folder"), qPrintable(reason));
    }

    void refuses()
    {
        QFETCH(QStringList, files);
        QFETCH(QStringList, folders);
        const SourceTree tree = SourceTree::scan(source());
        const RemovalPlan plan = RemovalPlan::make({ files, folders, 4 }, tree, '\\');
        QTEST(idsOf(plan.refusals).join(' '), "id");
        QCOMPARE(plan.entries.size(), 0);
    }

    void refusalTellsTheNearestThing()
    {
        const SourceTree tree = SourceTree::scan(source());
        const RemovalPlan plan = RemovalPlan::make({ { "Data/x", "Data/y" }, {}, 4 }, tree, '/');
        for (const char* words : { "\"x\"", "file of a few bytes", "later publication" })
            QVERIFY2(reasonOf(plan.refusals.at(0)).contains(words), words);
    }

    void oneNameInSeveralFolders()
    {
        const SourceTree tree = SourceTree::scan(source());
        const RemovalPlan plan = RemovalPlan::make(
            { { "Data/x", "Data\\enUS\\x" }, { "Interface/AddOns/x" }, 3 }, tree, '\\');
        QCOMPARE(idsOf(plan.refusals), QStringList());
        QStringList shown;
        for (const PatchManifestEntry& entry : plan.entries)
            shown.append(QString("%1 %2 %3 %4")
                             .arg(entry.save)
                             .arg(entry.dirOnly)
                             .arg(entry.pathOffset, entry.name));
        const QString plate = "1 0 halden-vacant x";
        QCOMPARE(
            shown,
            QStringList({ plate, plate, plate, "0 0 Data halden-vacant",
                          "0 0 Data\\enUS halden-vacant", "0 1 Interface\\AddOns halden-vacant" }));
    }

    /// Players with no to the largest number of realms: the launcher's own code
    /// does it all.
    void fileGoesFromEveryClient_data()
    {
        QTest::addColumn<int>("realms");
        for (int realms = 0; realms <= realmsReached; ++realms)
            QTest::addRow("%d realms", realms) << realms;
    }

    void fileGoesFromEveryClient()
    {
        QFETCH(int, realms);
        for (int realm = 1; realm <= realms; ++realm) {
            layOutClient(realm);
            UpdateFixture::addRealm(client(realm).chopped(1));
        }
        const QStringList atRoot{ "/Data/old.mpq", "/live/Data/old.mpq", "/Data/keep" };
        for (const QString& path : atRoot)
            writeFile(path, "not the launcher's");
        deliver(removing({ "Data/old.mpq" }, {}));
        for (int run = 0; run < 2; ++run) {
            runLauncher();
            for (int realm = 1; realm <= realms; ++realm) {
                QVERIFY2(
                    !QFileInfo::exists(client(realm, "Data/old.mpq")), qPrintable(client(realm)));
                for (const QString& path : ownFiles)
                    QVERIFY2(QFileInfo::exists(client(realm, path)), qPrintable(path));
                QCOMPARE(readFile(client(realm, "Data/deDE/patch.mpq")), QByteArray("downloaded"));
            }
        }
        for (const QString& path : atRoot) {
            QVERIFY2(QFileInfo::exists(path), qPrintable(path));
            QFile::remove(path);
        }
        QVERIFY(!QFileInfo::exists(UpdateFixture::cachePath("live/halden-vacant")));
    }

    void folderGoesFromEveryClient()
    {
        for (int realm = 1; realm <= realmsReached; ++realm) {
            layOutClient(realm);
            writeFile(client(realm, "Interface/AddOns/Old/deep/c"), "to go");
            UpdateFixture::addRealm(client(realm).chopped(1));
        }
        deliver(removing({}, { "Interface/AddOns/Old" }));
        runLauncher();
        for (int realm = 1; realm <= realmsReached; ++realm) {
            QVERIFY(!QFileInfo::exists(client(realm, "Interface/AddOns/Old")));
            for (const QString& path : ownFiles)
                QVERIFY2(QFileInfo::exists(client(realm, path)), qPrintable(path));
        }
    }

    /// Comparing the cache reaches clients of the other kind as well.
    void otherKindKeepsItsFile_data()
    {
        QTest::addColumn<bool>("forTest");
        QTest::newRow("live removes, test keeps") << false;
        QTest::newRow("test removes, live keeps") << true;
    }

    void otherKindKeepsItsFile()
    {
        QFETCH(bool, forTest);
        for (int realm = 1; realm <= realmsReached; ++realm) {
            layOutClient(realm);
            UpdateFixture::addRealm(client(realm).chopped(1), realm % 2 == 0);
        }
        BuildRequest wanted = removing({ "Data/old.mpq" }, {});
        wanted.kind = forTest ? Kind::Test : Kind::Live;
        deliver(wanted);
        runLauncher();
        for (int realm = 1; realm <= realmsReached; ++realm) {
            const bool reached = (realm % 2 == 0) == forTest;
            QCOMPARE(QFileInfo::exists(client(realm, "Data/old.mpq")), !reached);
        }
    }
};

HALDEN_TEST_MAIN(tst_Removals)
#include "tst_removals.moc"
