#include "app/constants.h"
#include "tests/support/applicationfolder.h"
#include "tests/support/httpsserver.h"
#include "tests/support/mainwindowundertest.h"
#include "tests/support/modalanswers.h"
#include "tests/support/realmsini.h"
#include "tests/support/testmain.h"

#include <QComboBox>
#include <QDialog>
#include <QEvent>
#include <QLabel>
#include <QProgressBar>
#include <QPushButton>
#include <QSignalSpy>
#include <QTextBrowser>

using namespace TestSupport;

namespace {

/// Writes a log line whenever the entry buttons or the start button change, so
/// that the log tells their changes and the downloads in one order.
class ButtonReporter : public QObject {
    Q_OBJECT

public:
    explicit ButtonReporter(const MainWindowUnderTest& window)
    {
        window.button("RemoveClient")->installEventFilter(this);
        window.button("StartWoW")->installEventFilter(this);
    }

    /// What this object has written among `lines`.
    static QStringList reports(const QStringList& lines)
    {
        return lines.filter(" button ");
    }

protected:
    bool eventFilter(QObject* watched, QEvent* event) override
    {
        const auto* button = qobject_cast<QPushButton*>(watched);
        if (button && event->type() == QEvent::EnabledChange) {
            qDebug().noquote() << button->text() << "button"
                               << (button->isEnabled() ? "on" : "off");
        }
        return false;
    }
};

const QString entriesOff = "Client entfernen button off";
const QString entriesOn = "Client entfernen button on";
const QString startOff = "Start WoW button off";
const QString startOn = "Start WoW button on";

QString missingLine(const QString& library)
{
    return "\" lib: " + library + "is missing\"";
}

QString firstLibraryLine()
{
    const QString url = "QUrl(\"" + unencryptedDownloadBaseUrl + "ssleay32.dll\")";
    return QStringList{ url, url, url }.join("  versus  ");
}

void putLibraries(const QStringList& names)
{
    for (const QString& name : names)
        writeFile(ApplicationFolder::path(name), "MZ");
}

} // namespace

class tst_MainWindow_startup : public MainWindowTest {
    Q_OBJECT

private slots:
    void init()
    {
        MainWindowTest::init();
        writeRealmsIni(realmsIniWith({ { "Tarnwick" } }, "realmid=1\n"));
    }

    void logsTheConstruction_data()
    {
        QTest::addColumn<QStringList>("present");
        QTest::addColumn<QStringList>("lines");
        const QStringList all{ "ssleay32.dll", "libssl32.dll", "libeay32.dll" };
        QTest::newRow("all libraries") << all << QStringList{ "initer called", infoLine() };
        QTest::newRow("one missing") << all.first(2)
                                     << QStringList{ "initer called", missingLine("libeay32.dll"),
                                                     "we need some libs", infoLine() };
        QTest::newRow("none there") << QStringList()
                                    << QStringList{ "initer called",
                                                    missingLine("ssleay32.dll"),
                                                    firstLibraryLine(),
                                                    missingLine("libssl32.dll"),
                                                    missingLine("libeay32.dll"),
                                                    "we need some libs",
                                                    infoLine() };
    }

    void logsTheConstruction()
    {
        QFETCH(QStringList, present);
        QFETCH(QStringList, lines);
        putLibraries(present);
        const MainWindowUnderTest window;
        QCOMPARE(window.log.lines(), lines);
    }

    void fetchesNoMissingLibrary()
    {
        const MainWindowUnderTest window;
        QVERIFY(window.settle());
        QCOMPARE(window.log.linesStartingWith("Download File: "), QStringList());
        QCOMPARE(window.log.lines().filter(".dll").filter("ErrorNo"), QStringList());
    }

    void fetchesTheInfoTextBeforeTheStoreStarts()
    {
        ApplicationFolder::clear();
        QStringList linesAtTheQuestion;
        const MainWindowUnderTest window([&](const MainWindowUnderTest& half, QDialog* question) {
            linesAtTheQuestion = half.log.lines();
            question->reject();
        });
        QCOMPARE(linesAtTheQuestion.value(0), "initer called");
        QVERIFY(linesAtTheQuestion.contains(infoLine()));
    }

    void leavesTheWidgetsReady()
    {
        const MainWindowUnderTest window;
        QCOMPARE(
            window->styleSheet(),
            "MainWindow { border-image: url(:/images/ressources/background.jpg)"
            " 0 0 0 0 stretch stretch;}");
        QCOMPARE(window->parent(), nullptr);
        QVERIFY(!window->isVisible());
        QVERIFY(window.infoBrowser()->isHidden());
        QVERIFY(!window.infoBrowser()->openExternalLinks());
        QVERIFY(!window.button("StartWoW")->isHidden());
    }

    /// The display is hidden before the first download begins and shows it.
    void showsTheFirstDownloadUntilItEnds()
    {
        const MainWindowUnderTest window;
        QCOMPARE(window.downloadLabel()->text(), "Current Download: launcher.info");
        QVERIFY(!window.downloadLabel()->isHidden());
        QVERIFY(!window.progressBar()->isHidden());
        QVERIFY(window.settle());
        QVERIFY(window.downloadLabel()->isHidden());
        QVERIFY(window.progressBar()->isHidden());
    }

    void showsTheVersion_data()
    {
        QTest::addColumn<QString>("version");
        QTest::newRow("the launcher's") << launcherVersion;
        QTest::newRow("another") << "12.0-rc1";
        QTest::newRow("none") << "";
    }

    void showsTheVersion()
    {
        QFETCH(QString, version);
        QCoreApplication::setApplicationVersion(version);
        const MainWindowUnderTest window;
        QCOMPARE(window->findChild<QLabel*>("label_Version")->text(), "Version: " + version);
    }

    void initDownloadFinishedReturnsTrue()
    {
        const MainWindowUnderTest window;
        bool result = false;
        QVERIFY(QMetaObject::invokeMethod(
            window.get(), "initDownloadFinished", Q_RETURN_ARG(bool, result)));
        QVERIFY(result);
        QCOMPARE(window.startedInfoDownloads(), 2);
        QVERIFY(window.settle(12));
    }

    void aFailedInfoTextStillStartsTheUpdates()
    {
        const MainWindowUnderTest window;
        QVERIFY(window.settle(2));
        QCOMPARE(
            window.log.linesStartingWith("warning: ").constFirst(),
            "warning: ErrorNo:  QNetworkReply::ConnectionRefusedError for url:  \""
                + launcherInfoUrl + '"');
        QVERIFY(window.infoBrowser()->isHidden());
    }

    void oneUpdateStartsTwoRuns()
    {
        const MainWindowUnderTest window;
        QVERIFY(window.settle(2));
        emit window->update();
        QCOMPARE(window.startedRuns(), 4);
        QVERIFY(window.settle(4));
    }

    void theServerIsAskedByBothRuns()
    {
        HttpsServer server;
        server.listen();
        const MainWindowUnderTest window;
        QVERIFY(window.settle(2));
        QCOMPARE(server.requestCount("/alert"), 1);
        QCOMPARE(server.requestCount("/Halden-Launcher-Updater.exe"), 2);
        QCOMPARE(server.requestCount("/Halden-Launcher.exe"), 2);
        QCOMPARE(server.requestCount("/patch.ini"), 2);
        QCOMPARE(server.requests().size(), 7);
    }

    void asksForTheInfoText()
    {
        HttpsServer server;
        server.listen();
        const MainWindowUnderTest window;
        QVERIFY(window.settle(2));
        const HttpRequest request = server.requests().constFirst();
        QCOMPARE(request.method, "GET");
        QCOMPARE(request.path, "/alert");
        QCOMPARE(request.header("Host"), QUrl(launcherInfoUrl).host().toUtf8());
        QCOMPARE(request.header("If-Modified-Since"), "Sat, 01 Jan 2000 10:15:00 GMT");
        QCOMPARE(request.header("User-Agent"), "Tarnwick Launcher");
        QCOMPARE(request.tls, QSsl::TlsV1_2);
    }

    /// An older copy does not count: the time that is sent stays the same.
    void sendsTheFixedTimeForAnExistingInfoText()
    {
        writeFile(ApplicationFolder::path("launcher.info"), "yesterday's");
        HttpsServer server;
        server.listen();
        const MainWindowUnderTest window;
        QVERIFY(window.settle(2));
        QCOMPARE(
            server.requests().constFirst().header("If-Modified-Since"),
            "Sat, 01 Jan 2000 10:15:00 GMT");
    }

    void updateRunsItsSlotsInOrder()
    {
        const MainWindowUnderTest window;
        QVERIFY(window.settle(2));
        const qsizetype before = window.log.lines().size();
        const ButtonReporter reporter(window);
        emit window->update();
        const QStringList lines = window.log.lines().sliced(before);
        QCOMPARE(lines, (QStringList{ runLine(), runLine(), entriesOff, startOff }));
    }

    void switchesTheButtonsBackStepByStep()
    {
        const MainWindowUnderTest window;
        const ButtonReporter reporter(window);
        QVERIFY(window.settle(2));
        const QStringList lines = window.log.lines();
        QCOMPARE(
            ButtonReporter::reports(lines),
            (QStringList{ entriesOff, startOff, entriesOn, startOn }));
        QVERIFY2(
            lines.indexOf(entriesOn) < lines.indexOf("clientUpdateIsCalled"),
            "The entry buttons waited for the client update");
        QVERIFY2(
            lines.indexOf(startOn) > lines.indexOf("now copy Data into Client"),
            "The start button came back before a client was installed");
    }

    /// Connections pile up: n checks mean n + 1 runs for one update().
    void everyCheckAddsItsConnections_data()
    {
        QTest::addColumn<int>("furtherChecks");
        QTest::addColumn<int>("runsOfTheStart");
        QTest::addColumn<int>("runsOfOneUpdate");
        // The n information texts that arrive are shown n times each, and every
        // time n + 1 runs are started.
        QTest::newRow("the constructor's alone") << 0 << 1 * 1 * 2 << 2;
        QTest::newRow("one more") << 1 << 2 * 2 * 3 << 3;
        QTest::newRow("two more") << 2 << 3 * 3 * 4 << 4;
    }

    void everyCheckAddsItsConnections()
    {
        QFETCH(int, furtherChecks);
        QFETCH(int, runsOfTheStart);
        QFETCH(int, runsOfOneUpdate);
        const MainWindowUnderTest window;
        for (int i = 0; i < furtherChecks; ++i)
            QVERIFY(QMetaObject::invokeMethod(window.get(), "runInit"));
        QCOMPARE(window.log.lines().count("initer called"), 1 + furtherChecks);
        QVERIFY(window.settle(runsOfTheStart));
        emit window->update();
        QCOMPARE(window.startedRuns(), runsOfTheStart + runsOfOneUpdate);
        QVERIFY(window.settle(runsOfTheStart + runsOfOneUpdate));
    }

    void runInitRepeatsTheStoresStart()
    {
        HttpsServer server;
        server.listen();
        const MainWindowUnderTest window;
        QVERIFY(window.settle(2));
        QVERIFY(QFile::remove(realmsIniPath()));
        // No information text arrives meanwhile, which would refresh the window too.
        server.answer("/alert", HttpAnswer());
        const ModalAnswers answers({ [](QDialog* dialog) {
            writeRealmsIni(realmsIniWith({ { "New" } }, "realmid=1\n"));
            dialog->reject();
        } });
        window->runInit();
        QCOMPARE(answers.opened(), 1);
        QCOMPARE(window.selector()->currentText(), "New");
        QVERIFY2(!window.button("StartWoW")->isHidden(), "The window does not know the new entry");
        QTRY_COMPARE(server.requestCount("/alert"), 2);
        server.shutDown();
        // The second text has been connected twice, and each showing starts three runs.
        QVERIFY(window.settle(2 + 2 * 3));
    }

    void initIsNeverEmitted()
    {
        const MainWindowUnderTest window;
        const QSignalSpy spy(window.get(), SIGNAL(init()));
        window->runInit();
        QVERIFY(window.settle(12));
        QCOMPARE(spy.count(), 0);
    }

    void aDownloadThatOutlivesTheWindowIsWritten()
    {
        HttpsServer server;
        server.answer("/alert", HttpAnswer::ok("news"));
        server.listen();
        const LogCapture log;
        {
            const MainWindow window;
        }
        QTRY_COMPARE(readFile(ApplicationFolder::path("launcher.info")), "news");
        QCOMPARE(log.lines().count(runLine()), 0);
    }
};

HALDEN_TEST_MAIN(tst_MainWindow_startup)
#include "tst_mainwindow_startup.moc"
