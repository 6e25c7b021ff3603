#include "tests/support/applicationfolder.h"
#include "tests/support/reporter.h"
#include "tests/support/testmain.h"
#include "tests/support/timezone.h"
#include "tests/update/updatefixture.h"
#include "tests/update/updaterun.h"

#include <QDir>
#include <QFileInfo>

using namespace TestSupport;
using namespace UpdateFixture;

namespace {

const QString updater = "Halden-Launcher-Updater.exe";
const QString launcher = "Halden-Launcher.exe";
const QString waiting = "Halden-Launcher.tmp";
const QByteArray updaterUrl = "/Halden-Launcher-Updater.exe";
const QByteArray launcherUrl = "/Halden-Launcher.exe";

QString inFolder(const QString& name)
{
    return ApplicationFolder::path(name);
}

/// A program in the updater's place that writes down how it is started.
void placeStandIn(const QString& recordName = "record")
{
    TestSupport::placeReporter(inFolder(updater), inFolder(recordName));
}

/// The folder that the stand-in was started in and its arguments; waits for it.
QStringList recordOf(const QString& recordName = "record")
{
    const auto starts = [path = inFolder(recordName)] {
        return TestSupport::reportedStarts(path);
    };
    if (!QTest::qWaitFor([&] { return !starts().isEmpty(); }, patience))
        return { "the updater was not started" };
    return starts().constFirst().sliced(1);
}

/// True when no stand-in has run: none is running any more, and none has left
/// its record.
bool updaterWasNeverStarted()
{
    return QTest::qWaitFor([] { return !TestSupport::isRunning(updater); }, patience)
        && !QFileInfo::exists(inFolder("record"));
}

QStringList ownProcessIdAsTheOnlyArgument()
{
    return { QDir::currentPath(), QString::number(QCoreApplication::applicationPid()) };
}

/// Both programs are current.
void answerNotModified(UpdateRun& run)
{
    run.server.answer(updaterUrl, HttpAnswer::notModified());
    run.server.answer(launcherUrl, HttpAnswer::notModified());
}

} // namespace

class tst_SelfUpdate : public SeveredWindowTest {
    Q_OBJECT

private slots:
    void bothCurrentCompletesOnceWithoutHandOver()
    {
        placeStandIn();
        UpdateRun run(*window);
        answerNotModified(run);
        QCOMPARE(run.playFromTheStart(), Ending::Deleted);
        QCOMPARE(
            run.events,
            QStringList({ updaterUrl, launcherUrl, "launcherUpdateComplete", "/patch.ini",
                          "clientUpdateComplete", "clientDownloadComplete" }));
        QVERIFY(updaterWasNeverStarted());
        QVERIFY(!QFileInfo::exists(inFolder(waiting)));
    }

    void theDownloadsAreNamedInTheLog()
    {
        UpdateRun run(*window);
        answerNotModified(run);
        QCOMPARE(run.playFromTheStart(), Ending::Deleted);
        QCOMPARE(
            run.log.linesStartingWith("true").mid(0, 2),
            QStringList({ downloadLine(updater, ApplicationFolder::path(), ""),
                          downloadLine(launcher, ApplicationFolder::path(), waiting) }));
    }

    void nothingButTheUpdaterIsFetchedBeforeItHasEnded()
    {
        UpdateRun run(*window);
        run.server.answer(updaterUrl, HttpAnswer());
        run->downloadUpdater();
        QTRY_COMPARE(run.server.requestedPaths(), QStringList({ updaterUrl }));
        QCOMPARE(run.log.linesStartingWith("true").size(), 1);
        QCOMPARE(run.launcherCompletions(), 0);
        run.server.shutDown();
        QVERIFY(run.waitForEnd());
        QCOMPARE(run.log.linesStartingWith("true").size(), 3);
        QCOMPARE(run.launcherCompletions(), 1);
    }

    void referenceTimes_data()
    {
        QTest::addColumn<QByteArray>("timeZone");
        QTest::newRow("at Greenwich") << QByteArray("UTC");
        QTest::newRow("five hours east") << QByteArray("TST-5");
        QTest::newRow("eight hours west") << QByteArray("TST8");
    }

    void referenceTimes()
    {
        QFETCH(QByteArray, timeZone);
        const TimeZone zone(timeZone);
        writeFile(inFolder(updater), "updater");
        writeFile(inFolder(launcher), "launcher");
        setModificationTime(inFolder(updater), someTime());
        setModificationTime(inFolder(launcher), someTime().addDays(1));
        UpdateRun run(*window);
        answerNotModified(run);
        QCOMPARE(run.playFromTheStart(), Ending::Deleted);
        QCOMPARE(modifiedSince(run, 0), "Sun, 14 Jul 2024 21:30:05 GMT");
        QCOMPARE(modifiedSince(run, 1), "Mon, 15 Jul 2024 21:30:05 GMT");
    }

    void referenceTimesOfMissingPrograms()
    {
        // A launcher that waits says nothing about the age of the one in use.
        writeFile(inFolder(waiting), "waiting");
        setModificationTime(inFolder(waiting), someTime());
        UpdateRun run(*window);
        answerNotModified(run);
        QCOMPARE(run.playFromTheStart(), Ending::Deleted);
        QCOMPARE(modifiedSince(run, 0), "Sat, 01 Jan 2000 10:15:00 GMT");
        QCOMPARE(modifiedSince(run, 1), "Sat, 01 Jan 2000 10:15:00 GMT");
    }

    void aMissingUpdaterIsFetchedInFull()
    {
        UpdateRun run(*window);
        run.server.serve(updaterUrl, "the updater", someTime());
        run.server.answer(launcherUrl, HttpAnswer::notModified());
        QCOMPARE(run.playFromTheStart(), Ending::Deleted);
        QCOMPARE(readFile(inFolder(updater)), "the updater");
    }

    void aCurrentUpdaterIsNotFetchedAgain()
    {
        writeFile(inFolder(updater), "the local updater");
        setModificationTime(inFolder(updater), someTime());
        UpdateRun run(*window);
        run.server.serve(updaterUrl, "the server's updater", someTime());
        run.server.answer(launcherUrl, HttpAnswer::notModified());
        QCOMPARE(run.playFromTheStart(), Ending::Deleted);
        QCOMPARE(readFile(inFolder(updater)), "the local updater");
    }

    void aNewerLauncherIsHandedOver()
    {
        writeFile(inFolder(launcher), "old launcher");
        placeStandIn();
        UpdateRun run(*window);
        run.server.answer(updaterUrl, HttpAnswer::notModified());
        run.server.answer(launcherUrl, HttpAnswer::ok("new launcher"));
        QCOMPARE(run.playFromTheStart(), Ending::Quit);
        QCOMPARE(recordOf(), ownProcessIdAsTheOnlyArgument());
        QCOMPARE(readFile(inFolder(waiting)), "new launcher");
        QCOMPARE(readFile(inFolder(launcher)), "old launcher");
        QCOMPARE(run.launcherCompletions(), 1);
        QCOMPARE(
            run.events.first(3),
            QStringList({ updaterUrl, launcherUrl, "launcherUpdateComplete" }));
    }

    void aStaleWaitingLauncherIsHandedOver_data()
    {
        QTest::addColumn<int>("status");
        QTest::newRow("the launcher is current") << 304;
        QTest::newRow("the launcher is gone from the server") << 404;
        QTest::newRow("the server is broken") << 500;
    }

    void aStaleWaitingLauncherIsHandedOver()
    {
        QFETCH(int, status);
        writeFile(inFolder(waiting), "stale");
        placeStandIn();
        UpdateRun run(*window);
        run.server.answer(updaterUrl, HttpAnswer::notModified());
        run.server.answer(launcherUrl, HttpAnswer::status(status));
        QCOMPARE(run.playFromTheStart(), Ending::Quit);
        QCOMPARE(recordOf(), ownProcessIdAsTheOnlyArgument());
        QCOMPARE(readFile(inFolder(waiting)), "stale");
    }

    void theManifestIsOnItsWayBeforeTheUpdaterStarts()
    {
        writeFile(inFolder(waiting), "waiting");
        placeStandIn("too-early");
        UpdateRun run(*window);
        answerNotModified(run);
        QStringList linesAtCompletion;
        connect(run.get(), &UpdatingProcedures::launcherUpdateComplete, this, [&] {
            linesAtCompletion = withSlashes(run.log.lines());
            // Only a start after this moment finds this stand-in.
            placeStandIn("in-time");
        });
        QCOMPARE(run.playFromTheStart(), Ending::Quit);
        QCOMPARE(recordOf("in-time"), ownProcessIdAsTheOnlyArgument());
        QVERIFY(!QFileInfo::exists(inFolder("too-early")));
        QCOMPARE(
            linesAtCompletion.constLast(), downloadLine("patch.ini", inFolder("Settings"), ""));
    }

    void withoutUpdaterTheNewLauncherKeepsWaiting()
    {
        UpdateRun run(*window);
        run.server.answer(updaterUrl, HttpAnswer::notModified());
        run.server.answer(launcherUrl, HttpAnswer::ok("new launcher"));
        QCOMPARE(run.playFromTheStart(), Ending::Deleted);
        QCOMPARE(run.launcherCompletions(), 1);
        QCOMPARE(readFile(inFolder(waiting)), "new launcher");
    }

    void anUpdaterThatCannotBeStartedStillEndsTheLauncher()
    {
        // Downloaded files may not be executed here.
        UpdateRun run(*window);
        run.server.answer(updaterUrl, HttpAnswer::ok("new updater"));
        run.server.answer(launcherUrl, HttpAnswer::ok("new launcher"));
        QCOMPARE(run.playFromTheStart(), Ending::Quit);
        QCOMPARE(readFile(inFolder(updater)), "new updater");
        QCOMPARE(readFile(inFolder(waiting)), "new launcher");
        QCOMPARE(run.launcherCompletions(), 1);
    }

    void failedDownloadsCompleteOnceWithoutHandOver_data()
    {
        QTest::addColumn<int>("updaterStatus");
        QTest::addColumn<int>("launcherStatus");
        QTest::newRow("no updater on the server") << 404 << 304;
        QTest::newRow("no launcher on the server") << 304 << 404;
        QTest::newRow("neither") << 404 << 404;
        QTest::newRow("a broken server") << 500 << 503;
        QTest::newRow("empty bodies") << 200 << 200;
    }

    void failedDownloadsCompleteOnceWithoutHandOver()
    {
        QFETCH(int, updaterStatus);
        QFETCH(int, launcherStatus);
        placeStandIn();
        UpdateRun run(*window);
        run.server.answer(updaterUrl, HttpAnswer::status(updaterStatus));
        run.server.answer(launcherUrl, HttpAnswer::status(launcherStatus));
        QCOMPARE(run.playFromTheStart(), Ending::Deleted);
        QCOMPARE(run.launcherCompletions(), 1);
        QVERIFY(updaterWasNeverStarted());
        QVERIFY(!QFileInfo::exists(inFolder(waiting)));
    }

    void aFlagThatIsSetBeforeTheUpdaterHasEndedCompletesTheStep()
    {
        writeFile(inFolder(waiting), "waiting");
        placeStandIn();
        UpdateRun run(*window);
        run->replaceLauncher();
        QCOMPARE(run.events, QStringList({ "launcherUpdateComplete" }));
        QVERIFY(run.waitForEnd());
        QCOMPARE(run.server.requestedPaths(), QStringList({ "/patch.ini" }));
        QVERIFY(updaterWasNeverStarted());
    }

    void aFlagThatIsSetAfterTheStepCompletesItAgain()
    {
        writeFile(inFolder(waiting), "waiting");
        placeStandIn();
        UpdateRun run(*window);
        run->replaceLauncher();
        run->replaceLauncher();
        run->replaceLauncher();
        QCOMPARE(run.events, QStringList(3, "launcherUpdateComplete"));
        QCOMPARE(
            withSlashes(run.log.linesStartingWith("true")),
            QStringList(3, downloadLine("patch.ini", inFolder("Settings"), "")));
        QVERIFY(run.waitForEnd());
        QVERIFY(updaterWasNeverStarted());
    }

    void anUpdaterThatEndsAfterTheStepStartsNoLauncherDownload()
    {
        UpdateRun run(*window);
        run.server.answer(updaterUrl, HttpAnswer::notModified());
        run.server.answer("/patch.ini", HttpAnswer());
        run->downloadUpdater();
        run->replaceLauncher();
        QTRY_COMPARE(run.launcherCompletions(), 2);
        QTRY_COMPARE(run.server.requestCount("/patch.ini"), 2);
        QCOMPARE(run.server.requestCount(launcherUrl), 0);
        run.server.shutDown();
        QVERIFY(run.waitForEnd());
        QCOMPARE(run.log.lines().filter(launcher + "\"").size(), 0);
    }

private:
    static QByteArray modifiedSince(const UpdateRun& run, int request)
    {
        return run.server.requests().at(request).header("If-Modified-Since");
    }
};

HALDEN_TEST_MAIN(tst_SelfUpdate)
#include "tst_selfupdate.moc"
