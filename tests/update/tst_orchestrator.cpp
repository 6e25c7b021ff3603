#include "core/settingshandler.h"
#include "tests/support/applicationfolder.h"
#include "tests/support/testmain.h"
#include "tests/support/timezone.h"
#include "tests/update/updatefixture.h"
#include "tests/update/updaterun.h"

#include <QDir>
#include <QDirIterator>
#include <QFileInfo>
#include <QMetaMethod>

using namespace TestSupport;
using namespace UpdateFixture;

namespace {

const QByteArray liveUrl = "/patch.ini";
const QByteArray testUrl = "/patchTest.ini";

QString client(const QString& relativePath)
{
    return ApplicationFolder::path("client/" + relativePath);
}

QString manifestDownload(const QString& name)
{
    return downloadLine(name, logged(SettingsHandler::getSettingsPath()), QString());
}

QString patchDownload(const QString& kind, const QString& name)
{
    return downloadLine(
        "wow-client-patch/" + kind + "//" + name,
        logged(
            SettingsHandler::getClientDataStoragePath() + '/' + kind + "/Data" + QDir::separator()),
        name);
}

/// Rows of a manifest with these missing files.
QStringList rowsOf(const QStringList& names)
{
    QStringList rows{ QString("numberOfFiles=%1").arg(names.size()) };
    for (int i = 0; i < names.size(); ++i) {
        rows.append(QString("file%1=%2").arg(i + 1).arg(names.at(i)));
        rows.append(QString("file%1-hash=00").arg(i + 1));
    }
    return rows;
}

QByteArray manifestOf(const QStringList& names)
{
    return rowsOf(names).join('\n').toUtf8();
}

/// The cache folders that a download needs; it makes none itself.
void makeCacheFolders()
{
    QDir().mkpath(cachePath("live/Data"));
    QDir().mkpath(cachePath("test/Data"));
}

QStringList leftOverTemporaryFiles()
{
    QStringList found;
    QDirIterator all(
        ApplicationFolder::path(), { "*-new" }, QDir::Files, QDirIterator::Subdirectories);
    while (all.hasNext())
        found.append(all.next());
    return found;
}

} // namespace

class tst_Orchestrator : public SeveredWindowTest {
    Q_OBJECT

private slots:
    void signalsAndSlotsInTheirOrder()
    {
        const QMetaObject& meta = UpdatingProcedures::staticMetaObject;
        QStringList methods;
        for (int i = meta.methodOffset(); i < meta.methodCount(); ++i) {
            const bool isSignal = meta.method(i).methodType() == QMetaMethod::Signal;
            methods.append((isSignal ? "signal " : "slot ") + meta.method(i).methodSignature());
        }
        QCOMPARE(
            methods,
            QStringList({ "signal launcherUpdateComplete()", "signal clientDownloadComplete()",
                          "signal clientUpdateComplete()", "slot replaceLauncher()",
                          "slot updatePatchIni()", "slot downloadNextFile()",
                          "slot copyPatchedFilesIntoClient()" }));
        QCOMPARE(meta.className(), "UpdatingProcedures");
    }

    void aNewRunDoesNothingByItself()
    {
        LogCapture log;
        const UpdatingProcedures run(window->get());
        QCOMPARE(run.parent(), nullptr);
        QVERIFY(log.lines().isEmpty());
    }

    void theCompletedSelfUpdateFetchesTheManifests()
    {
        UpdateRun run(*window);
        emit run->launcherUpdateComplete();
        QCOMPARE(run.log.lines(), QStringList({ manifestDownload("patch.ini") }));
        QVERIFY(run.waitForEnd());
    }

    void theCompletedDownloadsAreInstalledBeforeTheSignalReturns()
    {
        LogCapture log;
        UpdatingProcedures run(window->get());
        emit run.clientDownloadComplete();
        QCOMPARE(log.lines(), QStringList({ "now copy Data into Client" }));
    }

    void withoutDeveloperModeOnlyTheLiveManifestIsFetched()
    {
        setDeveloperMode(false);
        writeManifest("patchTest.ini", rowsOf({ "never" }));
        UpdateRun run(*window);
        run.server.answer(liveUrl, HttpAnswer::notModified());
        run->updatePatchIni();
        QVERIFY(run.waitForEnd());
        QCOMPARE(run.server.requestedPaths(), QStringList({ liveUrl }));
        QCOMPARE(
            run.log.lines(),
            QStringList({ manifestDownload("patch.ini"), "clientUpdateIsCalled" })
                + missingManifestLines("patch.ini") + closingLines());
        QVERIFY(!QFileInfo::exists(cachePath("test")));
    }

    void inDeveloperModeTheTestManifestComesFirst()
    {
        setDeveloperMode(true);
        UpdateRun run(*window);
        run.server.answer(liveUrl, HttpAnswer::notModified());
        run.server.answer(testUrl, HttpAnswer::notModified());
        run->updatePatchIni();
        QVERIFY(run.waitForEnd());
        QCOMPARE(run.server.requestedPaths(), QStringList({ testUrl, liveUrl }));
        QCOMPARE(
            run.log.lines(),
            QStringList({ "call download for patchTestIni", manifestDownload("patchTest.ini"),
                          manifestDownload("patch.ini"), "clientUpdateIsCalled" })
                + missingManifestLines("patch.ini")
                + QStringList({ "this is a dev-launcher", "now handling TestPatchIni" })
                + missingManifestLines("patchTest.ini") + closingLines());
    }

    void theLiveManifestWaitsForTheTestManifest()
    {
        setDeveloperMode(true);
        UpdateRun run(*window);
        run.server.answer(testUrl, HttpAnswer());
        run->updatePatchIni();
        QTRY_COMPARE(run.server.requestedPaths(), QStringList({ testUrl }));
        QVERIFY(run.log.linesStartingWith(manifestDownload("patch.ini")).isEmpty());
        run.server.shutDown();
        QVERIFY(run.waitForEnd());
        QCOMPARE(run.log.linesStartingWith(manifestDownload("patch.ini")).size(), 1);
    }

    void theTestRealmMarkDoesNotChooseTheManifest()
    {
        addRealm(client(""), true);
        UpdateRun run(*window);
        run->updatePatchIni();
        QVERIFY(run.waitForEnd());
        QCOMPARE(run.server.requestedPaths(), QStringList({ liveUrl }));
        QVERIFY(run.log.linesStartingWith("this is a dev-launcher").isEmpty());
    }

    void referenceTimesOfTheManifests_data()
    {
        QTest::addColumn<QByteArray>("timeZone");
        QTest::addColumn<bool>("present");
        QTest::addColumn<QByteArrayList>("times");
        const QByteArrayList own{ "Mon, 15 Jul 2024 21:30:05 GMT",
                                  "Sun, 14 Jul 2024 21:30:05 GMT" };
        const QByteArrayList fixed(2, "Sat, 01 Jan 2000 10:15:00 GMT");
        QTest::newRow("present at Greenwich") << QByteArray("UTC") << true << own;
        QTest::newRow("present five hours east") << QByteArray("TST-5") << true << own;
        QTest::newRow("present eight hours west") << QByteArray("TST8") << true << own;
        QTest::newRow("missing") << QByteArray("UTC") << false << fixed;
    }

    void referenceTimesOfTheManifests()
    {
        QFETCH(QByteArray, timeZone);
        QFETCH(bool, present);
        QFETCH(QByteArrayList, times);
        const TimeZone zone(timeZone);
        setDeveloperMode(true);
        if (present) {
            writeManifest("patch.ini", QStringList());
            writeManifest("patchTest.ini", QStringList());
            setModificationTime(settingsPath("patch.ini"), someTime());
            setModificationTime(settingsPath("patchTest.ini"), someTime().addDays(1));
        }
        UpdateRun run(*window);
        run->updatePatchIni();
        QVERIFY(run.waitForEnd());
        QCOMPARE(modifiedSince(run), times);
    }

    void theReferenceTimeOfAPatchFileIsItsCachedCopys()
    {
        writeManifest("patch.ini", rowsOf({ "known", "new" }));
        writeFile(cachePath("live/Data/known"), "old");
        setModificationTime(cachePath("live/Data/known"), someTime());
        UpdateRun run(*window);
        run->clientUpdate();
        QVERIFY(run.waitForEnd());
        QCOMPARE(
            modifiedSince(run),
            QByteArrayList({ "Sun, 14 Jul 2024 21:30:05 GMT", "Sat, 01 Jan 2000 10:15:00 GMT" }));
    }

    void theSettingsFolderIsMade()
    {
        QVERIFY(!QFileInfo::exists(ApplicationFolder::path("Settings")));
        UpdateRun run(*window);
        run.server.answer(liveUrl, HttpAnswer::ok("numberOfFiles=0\n"));
        run->updatePatchIni();
        QVERIFY(QFileInfo(ApplicationFolder::path("Settings")).isDir());
        QVERIFY(run.waitForEnd());
        QCOMPARE(readFile(settingsPath("patch.ini")), "numberOfFiles=0\n");
    }

    void aNewerManifestIsTheOneThatIsReconciled()
    {
        writeManifest("patch.ini", rowsOf({ "old" }));
        UpdateRun run(*window);
        run.server.answer(liveUrl, HttpAnswer::ok(manifestOf({ "new" })));
        run->updatePatchIni();
        QVERIFY(run.waitForEnd());
        QCOMPARE(
            run.server.requestedPaths(), QStringList({ liveUrl, "/wow-client-patch/live//new" }));
    }

    void emptyQueuesAreInstalledAtOnce()
    {
        UpdateRun run(*window);
        run->clientUpdate();
        QCOMPARE(run.log.lines().mid(3), closingLines());
        QCOMPARE(run.events, QStringList({ "clientUpdateComplete", "clientDownloadComplete" }));
        QVERIFY2(run.get(), "the deletion is deferred");
        QVERIFY(run.waitForEnd());
    }

    void filesAreFetchedOneAtATimeLiveBeforeTest()
    {
        setDeveloperMode(true);
        makeCacheFolders();
        writeManifest("patch.ini", rowsOf({ "L1", "L2", "L3" }));
        writeManifest("patchTest.ini", rowsOf({ "T1", "T2" }));
        UpdateRun run(*window);
        run.server.answerAnythingElse(
            [](const HttpRequest& request) { return HttpAnswer::ok(request.path); });
        run->clientUpdate();
        QVERIFY(run.waitForEnd());
        QCOMPARE(downloadPhase(run), fiveDownloads());
        const QString path = "/wow-client-patch/";
        QCOMPARE(
            run.server.requestedPaths(),
            QStringList({ path + "live//L1", path + "live//L2", path + "live//L3",
                          path + "test//T1", path + "test//T2" }));
        QCOMPARE(readFile(cachePath("live/Data/L3")), "/wow-client-patch/live//L3");
        QCOMPARE(readFile(cachePath("test/Data/T2")), "/wow-client-patch/test//T2");
    }

    void theNextFileWaitsForTheOneBefore()
    {
        writeManifest("patch.ini", rowsOf({ "L1", "L2" }));
        UpdateRun run(*window);
        run.server.answerAnythingElse([](const HttpRequest&) { return HttpAnswer(); });
        run->clientUpdate();
        QTRY_COMPARE(run.server.requestedPaths(), QStringList({ "/wow-client-patch/live//L1" }));
        QVERIFY(run.log.linesStartingWith(patchDownload("live", "L2")).isEmpty());
        run.server.shutDown();
        QVERIFY(run.waitForEnd());
        QCOMPARE(run.log.linesStartingWith(patchDownload("live", "L2")).size(), 1);
    }

    void aWholeRun()
    {
        addRealm(ApplicationFolder::path("client"));
        QVERIFY(QDir().mkpath(client("Data")));
        makeCacheFolders();
        UpdateRun run(*window);
        run.server.answer(liveUrl, HttpAnswer::ok(manifestOf({ "a.mpq" })));
        run.server.answer("/wow-client-patch/live//a.mpq", HttpAnswer::ok("content"));
        QCOMPARE(run.playFromTheStart(), Ending::Deleted);
        QCOMPARE(
            run.events,
            QStringList({ "/Halden-Launcher-Updater.exe", "/Halden-Launcher.exe",
                          "launcherUpdateComplete", liveUrl, "/wow-client-patch/live//a.mpq",
                          "clientUpdateComplete", "clientDownloadComplete" }));
        QCOMPARE(readFile(cachePath("live/Data/a.mpq")), "content");
        QCOMPARE(readFile(client("Data/a.mpq")), "content");
    }

    void aSecondRunFetchesNothingButWhatItMust()
    {
        makeCacheFolders();
        writeManifest(
            "patch.ini",
            QStringList{ "numberOfFiles=1", "file1=a.mpq", "file1-hash=" + md5("content") });
        writeFile(cachePath("live/Data/a.mpq"), "content");
        UpdateRun run(*window);
        run.server.answerAnythingElse([](const HttpRequest&) { return HttpAnswer::notModified(); });
        QCOMPARE(run.playFromTheStart(), Ending::Deleted);
        QCOMPARE(
            run.server.requestedPaths(),
            QStringList({ "/Halden-Launcher-Updater.exe", "/Halden-Launcher.exe", liveUrl }));
    }

    void aRunThatFailsAtOneStageGoesOn_data()
    {
        QTest::addColumn<QByteArray>("stage");
        QTest::addColumn<HttpAnswer>("answer");
        const QList<QPair<const char*, QByteArray>> stages{
            { "updater", "/Halden-Launcher-Updater.exe" },
            { "launcher", "/Halden-Launcher.exe" },
            { "manifest", liveUrl },
            { "patch file", "/wow-client-patch/live//a.mpq" }
        };
        const QByteArray torso = "half of";
        const QList<QPair<const char*, HttpAnswer>> answers{
            { "404", HttpAnswer::status(404, "an error page") },
            { "403", HttpAnswer::status(403, "an error page") },
            { "500", HttpAnswer::status(500, "an error page") },
            { "503", HttpAnswer::status(503) },
            { "an empty body", HttpAnswer::ok(QByteArray()) },
#ifndef Q_OS_WIN // Wine can lose the news of a reset
            { "reset at once", HttpAnswer().reset() },
            { "reset in the body", HttpAnswer::announcing(1000).send(torso).reset() },
#endif
            { "cut short", HttpAnswer::announcing(1000).send(torso).close() },
            { "closed without an answer", HttpAnswer().close() },
            { "rubbish", HttpAnswer().send("rubbish\r\n\r\n").close() }
        };
        for (const auto& [stageName, stage] : stages) {
            for (const auto& [answerName, answer] : answers)
                QTest::addRow("%s: %s", stageName, answerName) << stage << answer;
        }
    }

    void aRunThatFailsAtOneStageGoesOn()
    {
        QFETCH(QByteArray, stage);
        QFETCH(HttpAnswer, answer);
        layOutOldFiles();
        UpdateRun run(*window);
        run.server.answerAnythingElse([](const HttpRequest&) { return HttpAnswer::notModified(); });
        run.server.answer(stage, answer);
        QCOMPARE(run.playFromTheStart(), Ending::Deleted);
        QVERIFY2(run.server.requestCount(stage) >= 1, "the stage was never reached");
        QCOMPARE(run.launcherCompletions(), 1);
        QCOMPARE(run.downloadCompletions(), 1);
        QCOMPARE(run.clientCompletions(), 1);
        verifyOldFiles();
    }

    void aServerThatCannotBeUsedFailsEveryStage_data()
    {
        QTest::addColumn<QString>("trouble");
        QTest::newRow("refused") << "refused";
        QTest::newRow("an expired certificate") << "expired";
        QTest::newRow("a certificate of an unknown authority") << "unknown authority";
        QTest::newRow("a certificate for another host") << "other host";
    }

    void aServerThatCannotBeUsedFailsEveryStage()
    {
        QFETCH(QString, trouble);
        layOutOldFiles();
        UpdateRun run(*window);
        run.server.shutDown();
        const CertificateAuthority stranger;
        const std::unique_ptr<HttpsServer> server = unusableServer(trouble, stranger);
        QCOMPARE(run.playFromTheStart(), Ending::Deleted);
        QCOMPARE(run.log.linesStartingWith("true").size(), 4);
        QCOMPARE(run.log.linesStartingWith("warning: ErrorNo: ").size(), 4);
        QCOMPARE(run.launcherCompletions(), 1);
        QCOMPARE(run.clientCompletions(), 1);
        verifyOldFiles();
    }

    void aFailedTestManifestLeavesTheLiveChainGoingOn()
    {
        setDeveloperMode(true);
        makeCacheFolders();
        writeManifest("patchTest.ini", rowsOf({ "T1" }));
        UpdateRun run(*window);
        run.server.answer(testUrl, HttpAnswer::status(500, "an error page"));
        run.server.answer(liveUrl, HttpAnswer::ok(manifestOf({ "L1" })));
        run->updatePatchIni();
        QVERIFY(run.waitForEnd());
        QCOMPARE(
            run.server.requestedPaths(),
            QStringList(
                { testUrl, liveUrl, "/wow-client-patch/live//L1", "/wow-client-patch/test//T1" }));
        QCOMPARE(run.clientCompletions(), 1);
    }

    void aFailedFileLeavesTheOthersComing()
    {
        makeCacheFolders();
        writeManifest("patch.ini", rowsOf({ "L1", "L2", "L3" }));
        UpdateRun run(*window);
        run.server.answerAnythingElse([](const HttpRequest&) { return HttpAnswer::ok("new"); });
#ifdef Q_OS_WIN // Wine can lose the news of a reset
        run.server.answer("/wow-client-patch/live//L2", HttpAnswer().close());
#else
        run.server.answer("/wow-client-patch/live//L2", HttpAnswer().reset());
#endif
        run->clientUpdate();
        QVERIFY(run.waitForEnd());
        QCOMPARE(readFile(cachePath("live/Data/L1")), "new");
        QVERIFY(!QFileInfo::exists(cachePath("live/Data/L2")));
        QCOMPARE(readFile(cachePath("live/Data/L3")), "new");
    }

    void twoRunsSideBySideBothEnd()
    {
        makeCacheFolders();
        UpdateRun run(*window);
        run.server.answer(liveUrl, HttpAnswer::ok(manifestOf({ "L1", "L2" })));
        run.server.answer("/wow-client-patch/live//L1", HttpAnswer::ok("one"));
        run.server.answer("/wow-client-patch/live//L2", HttpAnswer::ok("two"));
        QPointer<UpdatingProcedures> other = new UpdatingProcedures(window->get());
        other->downloadUpdater();
        run->downloadUpdater();
        QTRY_VERIFY(other.isNull());
        QVERIFY(run.waitForEnd());
        QCOMPARE(readFile(cachePath("live/Data/L1")), "one");
        QCOMPARE(readFile(cachePath("live/Data/L2")), "two");
        QCOMPARE(leftOverTemporaryFiles(), QStringList());
    }

private:
    static QStringList missingManifestLines(const QString& name)
    {
        return { QString("\"https://download.tarnwick.example/\" \"%1\"").arg(name),
                 QString("patchfile does not exist at:  \"%1\"")
                     .arg(logged(SettingsHandler::getSettingsPath() + QDir::separator() + name)) };
    }

    static QStringList closingLines()
    {
        return { "Client UpdateQueue size:  0", "now emit clientDownloadComplete",
                 "now copy Data into Client" };
    }

    /// The log of the download phase without the answers' own lines.
    static QStringList downloadPhase(const UpdateRun& run)
    {
        QStringList lines = run.log.lines();
        lines = lines.mid(lines.lastIndexOf("Case4: File Download") + 4);
        lines.removeAll("got an answer");
        return lines;
    }

    static QStringList fiveDownloads()
    {
        const QString size = "Client UpdateQueue size:  ";
        return QStringList({ size + "3", patchDownload("live", "L1"), size + "2",
                             patchDownload("live", "L2"), size + "1", patchDownload("live", "L3"),
                             size + "0", patchDownload("test", "T1"), size + "0",
                             patchDownload("test", "T2") })
            + closingLines();
    }

    static QByteArrayList modifiedSince(const UpdateRun& run)
    {
        QByteArrayList times;
        const QList<HttpRequest> requests = run.server.requests();
        for (const HttpRequest& request : requests)
            times.append(request.header("If-Modified-Since"));
        return times;
    }

    /// A launcher that has run before: every target is there, and the manifest
    /// asks for a newer patch file than the cache holds.
    static void layOutOldFiles()
    {
        addRealm(ApplicationFolder::path("client"));
        QVERIFY(QDir().mkpath(client("Data")));
        writeFile(ApplicationFolder::path("Halden-Launcher-Updater.exe"), "old updater");
        writeManifest("patch.ini", rowsOf({ "a.mpq" }));
        writeFile(cachePath("live/Data/a.mpq"), "old patch");
    }

    static void verifyOldFiles()
    {
        QCOMPARE(readFile(ApplicationFolder::path("Halden-Launcher-Updater.exe")), "old updater");
        QVERIFY(!QFileInfo::exists(ApplicationFolder::path("Halden-Launcher.tmp")));
        QCOMPARE(readFile(settingsPath("patch.ini")), manifestOf({ "a.mpq" }) + '\n');
        QCOMPARE(readFile(cachePath("live/Data/a.mpq")), "old patch");
        QCOMPARE(leftOverTemporaryFiles(), QStringList());
        QVERIFY2(readFile(client("Data/a.mpq")) == "old patch", "the cached file is installed");
    }

    /// Null where nobody is to listen.
    static std::unique_ptr<HttpsServer>
    unusableServer(const QString& trouble, const CertificateAuthority& stranger)
    {
        if (trouble == "refused")
            return nullptr;
        ServerCertificate certificate;
        if (trouble == "expired")
            certificate = trustedAuthority().issue(communityHosts(), Validity::expired());
        else if (trouble == "unknown authority")
            certificate = stranger.issue(communityHosts());
        else
            certificate = trustedAuthority().issue({ "elsewhere.example" });
        auto server = std::make_unique<HttpsServer>(certificate);
        server->listen();
        return server;
    }
};

HALDEN_TEST_MAIN(tst_Orchestrator)
#include "tst_orchestrator.moc"
