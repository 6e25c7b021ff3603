#include "publisher/build/launcherrelease.h"
#include "publisher/common/treelock.h"
#include "tests/publisher/buildfixture.h"
#include "tests/support/applicationfolder.h"
#include "tests/support/smalldisk.h"
#include "tests/support/testmain.h"

#include <QCoreApplication>
#include <QDir>
#include <QFileInfo>
#include <QRegularExpression>

using namespace TestSupport;
using namespace BuildFixture;
using namespace Publisher;

namespace {

const QString launcherOnServer = "Halden-Launcher.exe";
const QString updaterOnServer = "Halden-Launcher-Updater.exe";

QString built(const QString& name)
{
    return ApplicationFolder::path("built/" + name);
}

/// A program of this machine with something behind it, so that it is another
/// one each time and still a program.
void makeProgram(const QString& name, const QByteArray& version)
{
    static const QByteArray program = readFile("/usr/bin/true");
    writeFile(built(name), program + version);
}

LauncherRequest release()
{
    return { .launcher = built("launcher"),
             .updater = built("updater"),
             .server = server(),
             .flush = false };
}

} // namespace

class tst_LauncherRelease : public QObject {
    Q_OBJECT

private slots:
    void init()
    {
        QTest::failOnWarning(QRegularExpression(".*"));
        ApplicationFolder::clear();
        makeProgram("launcher", "1");
        makeProgram("updater", "1");
    }

    void publishesUnderTheNamesThatLaunchersAskFor()
    {
        QCOMPARE(run(), ExitCode::Fine);
        const QMap<QString, QByteArray> tree = filesBelow(server());
        QCOMPARE(tree.keys(), QStringList({ updaterOnServer, launcherOnServer }));
        QCOMPARE(tree.value(launcherOnServer), readFile(built("launcher")));
        QCOMPARE(tree.value(updaterOnServer), readFile(built("updater")));
        QCOMPARE(
            changes(), QStringList({ updaterOnServer + " added", launcherOnServer + " added" }));
    }

    void unchangedProgramKeepsItsDate()
    {
        QCOMPARE(run(), ExitCode::Fine);
        const QDateTime updater = dateOf(server(updaterOnServer));
        const QDateTime launcher = dateOf(server(launcherOnServer));
        makeProgram("launcher", "2");
        clock.forward(3600);
        QCOMPARE(run(), ExitCode::Fine);
        QCOMPARE(
            changes(),
            QStringList({ updaterOnServer + " unchanged", launcherOnServer + " changed" }));
        QCOMPARE(dateOf(server(updaterOnServer)), updater);
        QVERIFY(dateOf(server(launcherOnServer)) > launcher.addSecs(3500));
        QCOMPARE(readFile(server(launcherOnServer)), readFile(built("launcher")));
    }

    /// A player's copy bears the time of its download, up to now.
    void changedProgramIsNewerThanEveryCopy_data()
    {
        QTest::addColumn<QByteArrayList>("versions");
        QTest::addColumn<int>("forward");
        QTest::newRow("next version") << QByteArrayList{ "1", "2", "3" } << 60;
        QTest::newRow("roll back") << QByteArrayList{ "1", "2", "1" } << 60;
        QTest::newRow("roll back at once") << QByteArrayList{ "1", "2", "1" } << 0;
        QTest::newRow("clock some seconds behind") << QByteArrayList{ "1", "2", "1" } << -8;
    }

    void changedProgramIsNewerThanEveryCopy()
    {
        QFETCH(QByteArrayList, versions);
        QFETCH(int, forward);
        QDateTime before;
        for (const QByteArray& version : versions) {
            const qint64 lastCopy = clock.now().toSecsSinceEpoch();
            makeProgram("launcher", version);
            QCOMPARE(run(), ExitCode::Fine);
            const QDateTime date = dateOf(server(launcherOnServer));
            QVERIFY(date.toSecsSinceEpoch() > lastCopy);
            QVERIFY(!before.isValid() || date > before);
            before = date;
            clock.forward(forward);
        }
    }

    /// One release under a wrong clock must not draw all later ones with it, and a
    /// launcher dated tomorrow fetches itself at every start.
    void refusesToPublishAheadOfTheClock_data()
    {
        QTest::addColumn<QByteArray>("version");
        QTest::newRow("changed") << QByteArray("2");
        QTest::newRow("unchanged") << QByteArray("1");
    }

    void refusesToPublishAheadOfTheClock()
    {
        QFETCH(QByteArray, version);
        makeProgram("launcher", "1");
        QCOMPARE(run(), ExitCode::Fine);
        const QDateTime wrong = dateOf(server(launcherOnServer));
        makeProgram("launcher", version);
        clock.forward(-86400);
        QCOMPARE(run(), ExitCode::Findings);
        QCOMPARE(idsOf(report.refusals), QStringList({ "date-ahead", "date-ahead" }));
        QCOMPARE(report.refusals.at(1).subject, launcherOnServer);
        QCOMPARE(dateOf(server(launcherOnServer)), wrong);

        LauncherRequest renewing = release();
        renewing.renew = true;
        QCOMPARE(run(renewing), ExitCode::Fine);
        QCOMPARE(dateOf(server(launcherOnServer)), clock.now());
        QVERIFY(clock.now() < wrong);
        QVERIFY(changes().contains(updaterOnServer + " renewed"));
    }

    /// A run that was killed leaves its copy in the folder that is served.
    void clearsWhatAKilledRunHasLeft_data()
    {
        QTest::addColumn<bool>("patch");
        QTest::newRow("build-launcher") << false;
        QTest::newRow("build") << true;
    }

    void clearsWhatAKilledRunHasLeft()
    {
        QFETCH(bool, patch);
        const QStringList left{ ".Halden-Launcher.exe.halden-publish",
                                ".patch.ini.halden-publish" };
        for (const QString& name : left)
            writeFile(server(name), "half");
        writeFile(server(".htaccess"), "x");
        put("Data/a.mpq", "x");
        if (patch)
            published();
        else
            QCOMPARE(run(), ExitCode::Fine);
        const QStringList after = filesBelow(server()).keys();
        QVERIFY(after.contains(".htaccess"));
        for (const QString& name : left)
            QVERIFY2(!after.contains(name), qPrintable(name));
    }

    void dryRunWritesNothing()
    {
        LauncherRequest dry = release();
        dry.dryRun = true;
        QCOMPARE(run(dry), ExitCode::Fine);
        QCOMPARE(
            changes(), QStringList({ updaterOnServer + " added", launcherOnServer + " added" }));
        QVERIFY(!QFileInfo::exists(server()));
    }

    void refusesWhatPlayersCouldNotStart_data()
    {
        QTest::addColumn<QString>("which");
        QTest::addColumn<QByteArray>("content");
        for (const char* which : { "launcher", "updater" }) {
            QTest::addRow("%s of no bytes", which) << which << QByteArray();
            QTest::addRow("%s that is a page", which)
                << which << QByteArray("<!DOCTYPE html><html></html>");
            QTest::addRow("%s cut short", which) << which << readFile("/usr/bin/true").left(1000);
            QTest::addRow("%s of two letters", which) << which << QByteArray("MZ");
        }
    }

    void refusesWhatPlayersCouldNotStart()
    {
        QFETCH(QString, which);
        QFETCH(QByteArray, content);
        writeFile(built(which), content);
        QCOMPARE(run(), ExitCode::Findings);
        QCOMPARE(idsOf(report.refusals), QStringList("not-a-program"));
        QCOMPARE(report.refusals.at(0).subject, built(which));
        QVERIFY(!QFileInfo::exists(server()));
    }

#ifndef Q_OS_WIN // a folder cannot be closed for its own owner there
    void failureLeavesTheOldPrograms()
    {
        QCOMPARE(run(), ExitCode::Fine);
        const QMap<QString, QByteArray> before = filesBelow(server());
        makeProgram("launcher", "2");
        QFile::setPermissions(server(), QFile::ReadOwner | QFile::ExeOwner);
        const ExitCode code = run();
        QFile::setPermissions(server(), QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
        QCOMPARE(code, ExitCode::InputOutput);
        QVERIFY(!report.error.isEmpty());
        QCOMPARE(filesBelow(server()), before);
    }
#endif

    void fullDiskLeavesTheOldPrograms()
    {
        HALDEN_NEEDS_SMALL_DISK();
        LauncherRequest small = release();
        small.server = "/small/server";
        QCOMPARE(run(small), ExitCode::Fine);
        const QMap<QString, QByteArray> before = filesBelow(small.server);
        makeProgram("launcher", QByteArray(2 << 20, 'x'));
        QCOMPARE(run(small), ExitCode::InputOutput);
        QVERIFY2(report.error.contains(diskFullText()), qPrintable(report.error));
        QCOMPARE(filesBelow(small.server), before);
        QDir(small.server).removeRecursively();
    }

    void secondPublisherIsTurnedAway()
    {
        QDir().mkpath(server());
        const TreeLock other(server());
        QCOMPARE(run(), ExitCode::InputOutput);
        QVERIFY2(report.error.contains("another halden-publish"), qPrintable(report.error));
    }

private:
    ExitCode run(const LauncherRequest& wanted = release())
    {
        report = {};
        return releaseLauncher(wanted, clock, report);
    }

    QStringList changes() const
    {
        QStringList lines;
        for (const LauncherReport::Item& item : report.items)
            lines.append(item.name + ' ' + item.change);
        return lines;
    }

    StandingClock clock{ QDateTime::currentDateTimeUtc().addSecs(10) };
    LauncherReport report;
};

HALDEN_TEST_MAIN(tst_LauncherRelease)
#include "tst_launcherrelease.moc"
