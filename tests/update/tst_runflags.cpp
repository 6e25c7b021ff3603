#include "core/signalboolhelperclass.h"
#include "tests/support/applicationfolder.h"
#include "tests/support/testmain.h"
#include "tests/update/updatefixture.h"
#include "tests/update/updaterun.h"

#include <QHash>
#include <QSignalSpy>

using namespace TestSupport;
using namespace UpdateFixture;

namespace {

/// A run that says whose signal it is just answering. The six flags are private,
/// but each one runs a slot of the run, and the slots log.
class ObservedRun : public UpdatingProcedures {
    Q_OBJECT

public:
    using UpdatingProcedures::UpdatingProcedures;

    SignalBoolHelperClass* flagBeingAnswered() const
    {
        return qobject_cast<SignalBoolHelperClass*>(sender());
    }
};

/// Finds the flags of a run while it goes on, by the line that is logged inside
/// the slot a flag has just run.
class FlagFinder {
public:
    explicit FlagFinder(ObservedRun* observed)
        : run(observed)
        , previous(qInstallMessageHandler(&FlagFinder::see))
    {
        current = this;
        QObject::connect(run, &ObservedRun::launcherUpdateComplete, &context, [this] {
            // The first completion comes from the step's own flag, another one
            // from a download of the launcher that ends later.
            note(
                flags.contains("launcherUpdateDone") ? "launcherDownloaded" : "launcherUpdateDone");
        });
    }

    ~FlagFinder()
    {
        qInstallMessageHandler(previous);
        current = nullptr;
    }

    FlagFinder(const FlagFinder&) = delete;
    FlagFinder& operator=(const FlagFinder&) = delete;

    SignalBoolHelperClass* flag(const QString& role) const
    {
        return flags.value(role);
    }

    QHash<QString, QPointer<SignalBoolHelperClass>> flags;
    QStringList lines;

private:
    static void see(QtMsgType, const QMessageLogContext&, const QString& line)
    {
        current->lines.append(line);
        if (!current->run)
            return;
        if (line.contains("/Halden-Launcher.exe"))
            current->note("updaterDownloaded");
        else if (line.contains("/patch.ini\")"))
            current->note("patchTestIniDownloaded");
        else if (line == "clientUpdateIsCalled")
            current->note("patchIniDownloaded");
        else if (line.startsWith("Client UpdateQueue size: "))
            current->note("clientFileDownloaded");
    }

    void note(const QString& role)
    {
        SignalBoolHelperClass* flag = run->flagBeingAnswered();
        if (flag && !flags.contains(role) && flags.key(flag).isEmpty())
            flags.insert(role, flag);
    }

    static inline FlagFinder* current = nullptr;
    QPointer<ObservedRun> run;
    /// Not the run: that would hide whose signal it is answering.
    QObject context;
    QtMessageHandler previous;
};

const QStringList allRoles{
    "launcherDownloaded", "updaterDownloaded",      "launcherUpdateDone",
    "patchIniDownloaded", "patchTestIniDownloaded", "clientFileDownloaded"
};

const QByteArray patchFileUrl = "/wow-client-patch/live//a.mpq";

} // namespace

class tst_RunFlags : public SeveredWindowTest {
    Q_OBJECT

private slots:
    void init()
    {
        SeveredWindowTest::init();
        setDeveloperMode(true);
        server = std::make_unique<HttpsServer>();
        server->answer(
            "/patch.ini", HttpAnswer::ok("numberOfFiles=1\nfile1=a.mpq\nfile1-hash=00\n"));
        server->answer(patchFileUrl, HttpAnswer());
        server->listen();
        run = new ObservedRun(window->get());
        finder = std::make_unique<FlagFinder>(run);
        QVERIFY2(playUntilThePatchFileHangs(), "not every flag came to light");
    }

    void cleanup()
    {
        server.reset();
        const bool ended = QTest::qWaitFor([this] { return run.isNull(); }, patience);
        finder.reset();
        QVERIFY2(ended, "the run does not end");
    }

    void theSixFlagsAreFreedWithTheRun()
    {
        QCOMPARE(finder->flags.size(), 6);
        for (const QString& role : allRoles) {
            const SignalBoolHelperClass* flag = finder->flag(role);
            QVERIFY2(flag && !flag->parent(), qPrintable(role));
        }
        server->shutDown();
        QTRY_VERIFY(run.isNull());
        for (const QString& role : allRoles)
            QVERIFY2(!finder->flag(role), qPrintable(role + " outlives its run"));
    }

    void everyWriteToAFlagOfTheSelfUpdateRunsIt_data()
    {
        QTest::addColumn<QString>("role");
        QTest::addColumn<bool>("value");
        for (const char* role :
             { "launcherDownloaded", "updaterDownloaded", "launcherUpdateDone" }) {
            QTest::addRow("%s set true", role) << role << true;
            QTest::addRow("%s set false", role) << role << false;
        }
    }

    void everyWriteToAFlagOfTheSelfUpdateRunsIt()
    {
        QFETCH(QString, role);
        QFETCH(bool, value);
        QSignalSpy completed(run, &UpdatingProcedures::launcherUpdateComplete);
        write(role, value);
        QCOMPARE(completed.size(), 1);
    }

    void everyWriteToAManifestsFlagRunsItsFetch_data()
    {
        QTest::addColumn<QString>("role");
        QTest::addColumn<bool>("value");
        QTest::addColumn<QString>("line");
        const QString live = downloadLine("patch.ini", ApplicationFolder::path("Settings"), "");
        const QString test = "call download for patchTestIni";
        QTest::newRow("test manifest set true")
            << "patchTestIniDownloaded" << true << "clientUpdateIsCalled";
        QTest::newRow("test manifest set false") << "patchTestIniDownloaded" << false << test;
        QTest::newRow("live manifest set true")
            << "patchIniDownloaded" << true << "clientUpdateIsCalled";
        QTest::newRow("live manifest set false") << "patchIniDownloaded" << false << live;
    }

    void everyWriteToAManifestsFlagRunsItsFetch()
    {
        QFETCH(QString, role);
        QFETCH(bool, value);
        QFETCH(QString, line);
        finder->lines.clear();
        write(role, value);
        QVERIFY(!finder->lines.isEmpty());
        const QStringList lines = withSlashes(finder->lines);
        QCOMPARE(lines.constFirst(), line);
        QCOMPARE(lines.count(line), 1);
    }

    void onlyTrueInThePatchFilesFlagFetchesTheNextFile()
    {
        finder->lines.clear();
        write("clientFileDownloaded", false);
        QCOMPARE(finder->lines, QStringList());
        write("clientFileDownloaded", true);
        QCOMPARE(finder->lines.filter("Client UpdateQueue size: ").size(), 1);
    }

private:
    void write(const QString& role, bool value)
    {
        value ? finder->flag(role)->setTrue() : finder->flag(role)->setFalse();
    }

    /// Plays the run up to its first patch file, with two downloads of the
    /// launcher: the later one ends when the step is over, and only then the
    /// flag of these downloads comes to light.
    bool playUntilThePatchFileHangs()
    {
        run->downloadUpdater();
        const auto launcherAsked = [this] {
            return finder->flags.contains("updaterDownloaded");
        };
        if (!QTest::qWaitFor(launcherAsked, patience))
            return false;
        run->replaceLauncher();
        return QTest::qWaitFor(
            [this] { return finder->flags.size() == 6 && server->requestCount(patchFileUrl) > 0; },
            patience);
    }

    std::unique_ptr<HttpsServer> server;
    std::unique_ptr<FlagFinder> finder;
    QPointer<ObservedRun> run;
};

HALDEN_TEST_MAIN(tst_RunFlags)
#include "tst_runflags.moc"
