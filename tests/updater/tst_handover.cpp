#include "tests/support/applicationfolder.h"
#include "tests/support/httpsserver.h"
#include "tests/support/processes.h"
#include "tests/support/realmsini.h"
#include "tests/support/testmain.h"
#include "tests/support/timezone.h"
#include "tests/support/widgets.h"
#include "tests/updater/virtualdisplay.h"

#include <QDateTime>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QProcess>

#include <memory>

using TestSupport::readFile;
using TestSupport::ApplicationFolder::path;

namespace {

// Where the form has the label with the version.
const QRect versionLabel(30, 680, 221, 20);

const QDateTime longAgo = TestSupport::utc(QDate(2024, 5, 1), QTime(8, 0));
const QDateTime published = longAgo.addDays(1);

void placeProgram(const QString& source, const QString& name)
{
    const QString target = path(name);
    QFile::remove(target);
    if (!QFile::copy(source, target))
        qFatal("cannot place %s", qPrintable(name));
    QFile::setPermissions(
        target, QFileDevice::ReadOwner | QFileDevice::WriteOwner | QFileDevice::ExeOwner);
    QFile file(target);
    if (!file.open(QIODevice::Append)
        || !file.setFileTime(longAgo, QFileDevice::FileModificationTime))
        qFatal("cannot date %s", qPrintable(name));
}

bool isLauncherInPlace(const QString& program)
{
    return program == path("Halden-Launcher.exe");
}

QList<qint64> runningLaunchers()
{
    return TestSupport::processesOf(isLauncherInPlace);
}

void endLaunchers()
{
    TestSupport::endProcessesOf(isLauncherInPlace);
}

} // namespace

/// The launcher and the updater as players get them, and a server with a newer
/// launcher.
class tst_HandOver : public QObject {
    Q_OBJECT

private slots:
    void initTestCase()
    {
        display = std::make_unique<VirtualDisplay>();
        qputenv("DISPLAY", display->name().toUtf8());
        qputenv("QT_QPA_PLATFORM", "xcb");
        // Of the libraries behind that platform one hands strndup() a longer
        // length than there are bytes, as it may, and one leaks. The launcher's
        // own leaks are looked for wherever it runs without a screen.
        qputenv("ASAN_OPTIONS", "detect_leaks=0:detect_stack_use_after_return=1");
    }

    void init()
    {
        TestSupport::ApplicationFolder::clear();
        TestSupport::makeClientFolder("/home/player/client");
        TestSupport::writeRealmsIni(TestSupport::realmsIniWith(
            { { .name = "Halden", .path = "/home/player/client" } }, "realmid=1\n"));
        placeProgram(HALDEN_SHIPPED_UPDATER, "Halden-Launcher-Updater.exe");
        server = std::make_unique<TestSupport::HttpsServer>();
        server->listen();
        server->serve("/Halden-Launcher-Updater.exe", readFile(HALDEN_SHIPPED_UPDATER), longAgo);
    }

    void cleanup()
    {
        endLaunchers();
        server.reset();
    }

    void windowThatComesBackShowsTheNewerVersion()
    {
        const QImage older = pictureOf(HALDEN_LAUNCHER_PROGRAM);
        const QImage newer = pictureOf(HALDEN_NEWER_LAUNCHER_PROGRAM);
        QVERIFY2(older != newer, "the two versions look alike");

        publish(HALDEN_NEWER_LAUNCHER_PROGRAM);
        placeProgram(HALDEN_LAUNCHER_PROGRAM, "Halden-Launcher.exe");
        QProcess launcher;
        startLauncher(launcher);
        QTRY_COMPARE_WITH_TIMEOUT(launcher.state(), QProcess::NotRunning, 60'000);
        QCOMPARE(launcher.exitStatus(), QProcess::NormalExit);
        QCOMPARE(launcher.exitCode(), 0);

        QTRY_COMPARE_WITH_TIMEOUT(display->picture(versionLabel), newer, 60'000);
        QCOMPARE(readFile(path("Halden-Launcher.exe")), readFile(HALDEN_NEWER_LAUNCHER_PROGRAM));
        QCOMPARE(runningLaunchers().size(), 1);
        verifyItStays();
        QTRY_COMPARE(leftovers(), QStringList());
        QCOMPARE(updaterLog().count("started the launcher\n"), 1);
    }

    /// It was published with a later date. The player need not start it twice.
    void sameLauncherComesBackAndStays()
    {
        publish(HALDEN_LAUNCHER_PROGRAM);
        handOverTheSameLauncher();
        QTRY_COMPARE_WITH_TIMEOUT(runningLaunchers().size(), 1, 60'000);
        verifyItStays();
        QCOMPARE(leftovers(), QStringList());
        QCOMPARE(updaterLog().count("started the launcher again\n"), 1);
        QVERIFY(QFileInfo(path("Halden-Launcher.exe")).lastModified() > published);
    }

    /// It sends the same launcher at every start.
    void serverThatIgnoresDatesCausesNoEndlessStarts()
    {
        server->answer(
            "/Halden-Launcher.exe",
            TestSupport::HttpAnswer::ok(readFile(HALDEN_LAUNCHER_PROGRAM), {}));
        handOverTheSameLauncher();
        QTRY_COMPARE_WITH_TIMEOUT(
            updaterLog().count("Halden-Launcher.tmp was the launcher in place\n"), 2, 60'000);
        QTRY_COMPARE(runningUpdaters(), 0);
        QCOMPARE(runningLaunchers(), QList<qint64>());
        QCOMPARE(leftovers(), QStringList());
        QCOMPARE(updaterLog().count("started the launcher again\n"), 1);
    }

private:
    static QByteArray updaterLog()
    {
        return readFile(path("Halden-Launcher-Updater.log"));
    }

    void handOverTheSameLauncher()
    {
        placeProgram(HALDEN_LAUNCHER_PROGRAM, "Halden-Launcher.exe");
        QProcess launcher;
        startLauncher(launcher);
        QTRY_COMPARE_WITH_TIMEOUT(launcher.state(), QProcess::NotRunning, 60'000);
        QCOMPARE(launcher.exitStatus(), QProcess::NormalExit);
    }

    void startLauncher(QProcess& launcher)
    {
        launcher.setStandardErrorFile(QProcess::nullDevice());
        launcher.start(path("Halden-Launcher.exe"), QStringList());
        QVERIFY(launcher.waitForStarted());
    }

    void publish(const QString& program)
    {
        server->serve("/Halden-Launcher.exe", readFile(program), published);
    }

    /// How this program shows its version when nothing is handed over.
    QImage pictureOf(const QString& program)
    {
        server->answer("/Halden-Launcher.exe", TestSupport::HttpAnswer::notModified());
        placeProgram(program, "Halden-Launcher.exe");
        QProcess launcher;
        startLauncher(launcher);
        QImage picture = display->settledPicture(versionLabel);
        endLaunchers();
        launcher.waitForFinished();
        display->waitUntilBlank(versionLabel);
        server->forgetRequests();
        return picture;
    }

    /// It has asked for a newer launcher, has got none, and goes on to the
    /// manifest, in both update runs.
    void verifyItStays()
    {
        const QList<qint64> launchers = runningLaunchers();
        QTRY_COMPARE_WITH_TIMEOUT(server->requestCount("/Halden-Launcher.exe"), 4, 60'000);
        QTRY_COMPARE_WITH_TIMEOUT(manifestRequestsOfTheSecondLauncher(), 2, 60'000);
        QCOMPARE(runningLaunchers(), launchers);
    }

    /// Each launcher asks for a newer one twice, and its runs overtake each other.
    qsizetype manifestRequestsOfTheSecondLauncher() const
    {
        const QString request = "/Halden-Launcher.exe";
        const QStringList paths = server->requestedPaths();
        qsizetype third = paths.indexOf(request);
        for (int n = 0; n < 2; ++n)
            third = paths.indexOf(request, third + 1);
        return paths.mid(third).count("/patch.ini");
    }

    static QStringList leftovers()
    {
        return QDir(path()).entryList({ "*.tmp", "*.old*", "*-new" });
    }

    static qsizetype runningUpdaters()
    {
        return TestSupport::processesOf([](const QString& program) {
                   return program.endsWith("/Halden-Launcher-Updater.exe");
               })
            .size();
    }

    std::unique_ptr<VirtualDisplay> display;
    std::unique_ptr<TestSupport::HttpsServer> server;
};

HALDEN_TEST_MAIN(tst_HandOver)
#include "tst_handover.moc"
