#include "tests/support/applicationfolder.h"
#include "tests/support/testmain.h"
#include "tests/support/timezone.h"
#include "tests/world/community.h"
#include "tests/world/launcherprocess.h"
#include "tests/world/player.h"

#include <QDir>
#include <QFile>
#include <QRegularExpression>

using TestSupport::readFile;
using TestSupport::writeFile;
using TestSupport::ApplicationFolder::path;

namespace {

const QString blankAndUmlaut = "Data/Größe der Welt.MPQ";
const QString umlautFolder = "Data/Übersicht/Straße nach Süden.blp";

const QRegularExpression refused("^404 ");

/// What every start asks for, whatever has changed. Two update runs go side by
/// side, so everything but the information text is asked for twice. That text
/// has no date of its own: it comes anew every time.
QStringList mandatoryRequests()
{
    QStringList all{ "200 /alert" };
    for (const QString name : { "Halden-Launcher-Updater.exe", "Halden-Launcher.exe" })
        all += { "304 /" + name, "304 /" + name };
    for (const QString name : { "patch.ini", "patchTest.ini" })
        all += { "200 /" + name, "200 /" + name };
    all.sort();
    return all;
}

QStringList sorted(QStringList list)
{
    list.sort();
    return list;
}

/// Stands in for the updater program: writes down what it is called with.
void placeUpdater()
{
    const QString updater = path("Halden-Launcher-Updater.exe");
    writeFile(updater, "#!/bin/sh\necho \"$# argument: $*\" >>\"${0%/*}/updater.log\"\n");
    QFile::setPermissions(updater, QFile::permissions(updater) | QFileDevice::ExeOwner);
}

} // namespace

/// The launcher as players get it, from its start to the last installed file,
/// against nginx over TLS.
class tst_Chain : public QObject {
    Q_OBJECT

private slots:
    void init()
    {
        TestSupport::ApplicationFolder::clear();
        community.publish();
        player.settle();
        community.start();
        community.forgetRequests();
    }

    void cleanup()
    {
        community.stop();
    }

    void firstRunInstallsEverythingIntoBothClients()
    {
        QCOMPARE(runLauncher(), QString());
        QCOMPARE(player.wrongInClients(), QStringList());
        QVERIFY(QDir(player.clientPath("live", "Data/Screenshots")).exists());
        QVERIFY(QDir(player.clientPath("test", "Data/Screenshots")).exists());
        QVERIFY2(QFile::exists(player.clientPath("live", blankAndUmlaut)), "no blank or umlaut");
        QVERIFY2(QFile::exists(player.clientPath("test", umlautFolder)), "no umlaut in a folder");
        QCOMPARE(readFile(path("launcher.info")), readFile(community.path("launcher.info")));
    }

    void firstRunAsksForEachFileOnceOrTwice()
    {
        QCOMPARE(runLauncher(), QString());
        const QStringList updater{ "200", "200" };
        QCOMPARE(community.requests().constFirst(), "200 /alert");
        QCOMPARE(community.statuses("/Halden-Launcher-Updater.exe"), updater);
        QCOMPARE(community.statuses("/Halden-Launcher.exe"), QStringList({ "304", "304" }));
        for (const QString manifest : { "/patch.ini", "/patchTest.ini" })
            QCOMPARE(community.statuses(manifest), QStringList({ "200", "200" }));
        for (const QString& request : publishedPatchRequests())
            verifyFetchedOnceOrTwice(request);
    }

    void secondRunOnlyAsksWhetherSomethingIsNew()
    {
        QCOMPARE(runLauncher(), QString());
        QCOMPARE(restart(), QString());
        QCOMPARE(sorted(community.requests()), mandatoryRequests());
        QCOMPARE(player.wrongInClients(), QStringList());
    }

    void changedFileIsFetchedAlone_data()
    {
        QTest::addColumn<QString>("kind");
        QTest::addColumn<QString>("name");
        QTest::newRow("live") << "live" << blankAndUmlaut;
        QTest::newRow("test") << "test" << umlautFolder;
    }

    void changedFileIsFetchedAlone()
    {
        QFETCH(QString, kind);
        QFETCH(QString, name);
        QCOMPARE(runLauncher(), QString());
        writeFile(Community::sourcePath(kind, name), "the new edition");
        publishChanges();
        QCOMPARE(runLauncher(), QString());
        QCOMPARE(readFile(player.clientPath(kind, name)), "the new edition");
        QCOMPARE(player.wrongInClients(), QStringList());
        verifyOnlyFetched(community.patchRequest(kind, name));
    }

    /// Its manifest was fetched while another one went live, or by a clock that was
    /// ahead, and passes for the newer one.
    void manifestDatedAheadHidesNoPublication()
    {
        QCOMPARE(runLauncher(), QString());
        writeFile(Community::sourcePath("live", blankAndUmlaut), "the new edition");
        publishChanges();
        QFile copy(path("Settings/patch.ini"));
        QVERIFY(copy.open(QIODevice::ReadWrite));
        QVERIFY(copy.setFileTime(
            TestSupport::utc(QDate(2099, 12, 31), QTime(12, 0)),
            QFileDevice::FileModificationTime));
        copy.close();
        QCOMPARE(runLauncher(), QString());
        QCOMPARE(readFile(player.clientPath("live", blankAndUmlaut)), "the new edition");
        QCOMPARE(player.wrongInClients(), QStringList());
    }

    void newFileInANewFolderIsFetchedAlone()
    {
        QCOMPARE(runLauncher(), QString());
        const QString name = "Data/deDE/Neu/halden neu.MPQ";
        writeFile(Community::sourcePath("live", name), "brand new");
        publishChanges();
        QCOMPARE(runLauncher(), QString());
        QCOMPARE(readFile(player.clientPath("live", name)), "brand new");
        verifyOnlyFetched(community.patchRequest("live", name));
    }

    void retiredFileLeavesBothClients()
    {
        const QString file = "Data/Halden-Alt";
        const QString folder = "Interface/AddOns/Halden-Alt";
        for (const QString kind : { "live", "test" }) {
            writeFile(Community::sourcePath(kind, file), "a file for some time");
            writeFile(Community::sourcePath(kind, folder + "/alt.lua"), "an add-on for some time");
        }
        community.publishChanges();
        QCOMPARE(runLauncher(), QString());
        QCOMPARE(player.wrongInClients(), QStringList());
        QVERIFY(QFile::exists(player.clientPath("live", file)));

        for (const QString kind : { "live", "test" }) {
            QVERIFY(QFile::remove(Community::sourcePath(kind, file)));
            QVERIFY(QDir(Community::sourcePath(kind, folder)).removeRecursively());
            writeFile(player.clientPath(kind, "Interface/AddOns/Eigenes/eigenes.lua"), "own");
        }
        publishChanges({ "--remove", file, "--remove-folder", folder, "--yes-remove", "2" });
        QCOMPARE(runLauncher(), QString());
        for (const QString kind : { "live", "test" }) {
            QVERIFY(!QFile::exists(player.clientPath(kind, file)));
            QVERIFY(!QFile::exists(player.clientPath(kind, folder)));
            QCOMPARE(
                readFile(player.clientPath(kind, "Interface/AddOns/Eigenes/eigenes.lua")), "own");
        }
        QCOMPARE(player.wrongInClients(), QStringList());
        QCOMPARE(community.patchRequests(), QStringList());
    }

    void damagedCacheFileHeals_data()
    {
        QTest::addColumn<QString>("kind");
        QTest::addColumn<QByteArray>("damage");
        // All of these are newer than the server's copy, whose date is old.
        QTest::newRow("live, other content") << "live" << QByteArray("not what was published");
        QTest::newRow("test, other content") << "test" << QByteArray("not what was published");
        QTest::newRow("live, emptied") << "live" << QByteArray();
    }

    void damagedCacheFileHeals()
    {
        QFETCH(QString, kind);
        QFETCH(QByteArray, damage);
        QCOMPARE(runLauncher(), QString());
        writeFile(player.cachePath(kind, blankAndUmlaut), damage);
        writeFile(player.clientPath(kind, blankAndUmlaut), damage);
        QCOMPARE(restart(), QString());
        QCOMPARE(player.wrongInClients(), QStringList());
        verifyOnlyFetched(community.patchRequest(kind, blankAndUmlaut));
    }

    void damagedClientIsRestoredWithoutADownload()
    {
        QCOMPARE(runLauncher(), QString());
        writeFile(player.clientPath("live", blankAndUmlaut), "changed by the player");
        QVERIFY(QFile::remove(player.clientPath("test", umlautFolder)));
        QCOMPARE(restart(), QString());
        QCOMPARE(player.wrongInClients(), QStringList());
        QCOMPARE(sorted(community.requests()), mandatoryRequests());
    }

    void failingServerLeavesWhatIsThere_data()
    {
        QTest::addColumn<bool>("running");
        QTest::addColumn<QStringList>("missing");
        QTest::addColumn<int>("refusals");
        const QStringList manifests{ "patch.ini", "patchTest.ini" };
        const QStringList launcherFiles{ "Halden-Launcher.exe", "Halden-Launcher-Updater.exe" };
        QTest::newRow("server down") << false << QStringList() << 0;
        QTest::newRow("manifests missing") << true << manifests << 4;
        QTest::newRow("one manifest missing") << true << QStringList{ "patchTest.ini" } << 2;
        QTest::newRow("launcher files missing") << true << launcherFiles << 4;
        QTest::newRow("patch files missing") << true << QStringList{ "wow-client-patch" } << 0;
        QTest::newRow("information text missing") << true << QStringList{ "launcher.info" } << 1;
        QTest::newRow("nothing there")
            << true
            << manifests + launcherFiles + QStringList{ "launcher.info", "wow-client-patch" } << 9;
    }

    /// A player who has been up to date installs from the cache, whatever the
    /// server does, and nothing that was there gets lost.
    void failingServerLeavesWhatIsThere()
    {
        QFETCH(bool, running);
        QFETCH(QStringList, missing);
        QFETCH(int, refusals);
        QCOMPARE(runLauncher(), QString());
        QVERIFY(QFile::remove(player.clientPath("live", blankAndUmlaut)));
        QVERIFY(QFile::remove(player.clientPath("test", blankAndUmlaut)));
        moveAway(missing);
        if (running)
            community.start();
        community.forgetRequests();
        QCOMPARE(runLauncher(), QString());
        putBack(missing);
        QCOMPARE(player.wrongInClients(), QStringList());
        QCOMPARE(community.requests().size(), running ? mandatoryRequests().size() : 0);
        QCOMPARE(community.requests().filter(refused).size(), refusals);
    }

    void unpublishedPatchFileHoldsUpNoOther()
    {
        const QString published = community.patchPath("live", blankAndUmlaut);
        QVERIFY(QFile::rename(published, published + ".away"));
        LauncherProcess launcher;
        launcher.start();
        QVERIFY2(launcher.waitForBothRuns(player), qPrintable(launcher.lastLines()));
        QCOMPARE(launcher.failedCopies(), 2);
        QCOMPARE(player.wrongInClients(), QStringList{ "live missing: " + blankAndUmlaut });
        QCOMPARE(
            community.statuses(community.patchRequest("live", blankAndUmlaut)).constFirst(), "404");
    }

    void newerLauncherIsHandedOver()
    {
        placeUpdater();
        QVERIFY(QFile::remove(path("Halden-Launcher.exe")));
        LauncherProcess launcher;
        launcher.start();
        const qint64 id = launcher.processId();
        QVERIFY2(launcher.waitForQuit(), qPrintable(launcher.lastLines()));
        QVERIFY2(launcher.exitCode() == 0, qPrintable(launcher.lastLines()));
        QCOMPARE(
            readFile(path("Halden-Launcher.tmp")), readFile(community.path("Halden-Launcher.exe")));
        QTRY_VERIFY(QFile::exists(path("updater.log")));
        // Each of the two update runs may get so far before the program ends.
        const QByteArray line = "1 argument: " + QByteArray::number(id) + '\n';
        QTRY_COMPARE(readFile(path("updater.log")).replace(line, ""), QByteArray());
        QVERIFY(readFile(path("updater.log")).startsWith(line));
    }

    void currentLauncherIsNotHandedOver()
    {
        placeUpdater();
        QCOMPARE(runLauncher(), QString());
        QVERIFY(!QFile::exists(path("Halden-Launcher.tmp")));
        QVERIFY(!QFile::exists(path("updater.log")));
    }

    void waitingLauncherIsHandedOverWithoutADownload()
    {
        placeUpdater();
        writeFile(path("Halden-Launcher.tmp"), "left from an earlier run");
        LauncherProcess launcher;
        launcher.start();
        QVERIFY2(launcher.waitForQuit(), qPrintable(launcher.lastLines()));
        QVERIFY2(launcher.exitCode() == 0, qPrintable(launcher.lastLines()));
        QTRY_VERIFY(readFile(path("updater.log")).startsWith("1 argument: "));
        QCOMPARE(readFile(path("Halden-Launcher.tmp")), "left from an earlier run");
        community.stop();
        QVERIFY(!community.statuses("/Halden-Launcher.exe").contains("200"));
    }

    void manyFilesNeedFewDescriptors()
    {
        community.publish(300);
        QCOMPARE(runLauncher({ "prlimit", "--nofile=256:256" }), QString());
        QCOMPARE(player.wrongInClients(), QStringList());
        QCOMPARE(player.copiesPerRun(), 600);
    }

private:
    /// One complete start of the launcher; afterwards the server has ended too
    /// and its log is complete. Returns what went wrong.
    QString runLauncher(const QStringList& wrapper = {})
    {
        LauncherProcess launcher;
        launcher.start(wrapper);
        if (!launcher.waitForBothRuns(player))
            return "the update runs do not end, " + launcher.lastLines();
        if (launcher.failedCopies() != 0)
            return "a copy into a client failed, " + launcher.lastLines();
        community.stop();
        return {};
    }

    QString restart()
    {
        community.start();
        community.forgetRequests();
        return runLauncher();
    }

    /// A new publication, for a player who has been up to date a moment ago.
    void publishChanges(const QStringList& options = {})
    {
        community.publishChanges(options);
        community.start();
        community.forgetRequests();
    }

    QStringList publishedPatchRequests() const
    {
        QStringList found;
        for (const QString kind : { "live", "test" }) {
            const QStringList names = TestSupport::filesBelow(Community::sourcePath(kind)).keys();
            for (const QString& name : names)
                found.append(community.patchRequest(kind, name));
        }
        return found;
    }

    void verifyFetchedOnceOrTwice(const QString& request)
    {
        const QStringList statuses = community.statuses(request);
        QVERIFY2(statuses.size() == 1 || statuses.size() == 2, qPrintable(request));
        QCOMPARE(statuses.count("200"), statuses.size());
    }

    /// Whether the second run asks as well depends on who is first to write.
    void verifyOnlyFetched(const QString& request)
    {
        verifyFetchedOnceOrTwice(request);
        QCOMPARE(community.patchRequests().size(), community.statuses(request).size());
    }

    void moveAway(const QStringList& names)
    {
        for (const QString& name : names)
            QVERIFY(QFile::rename(community.path(name), community.path(name + ".away")));
    }

    void putBack(const QStringList& names)
    {
        for (const QString& name : names)
            QVERIFY(QFile::rename(community.path(name + ".away"), community.path(name)));
    }

    Community community;
    Player player;
};

HALDEN_TEST_MAIN(tst_Chain)
#include "tst_chain.moc"
