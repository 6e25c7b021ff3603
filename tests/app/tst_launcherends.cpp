#include "app/constants.h"
#include "tests/support/applicationfolder.h"
#include "tests/support/httpsserver.h"
#include "tests/support/reporter.h"
#include "tests/support/testmain.h"
#include "tests/world/launcherprocess.h"

#include <QFile>
#include <QRandomGenerator>
#include <QTimer>

#include <array>

using namespace TestSupport;

namespace {

const QByteArray patchFile = "/wow-client-patch/live//patch-h.MPQ";

/// When a launcher ends.
enum class Moment { HandOver, Connecting, Body, FirstStart };

/// The launcher as players get it, in a folder of its own. Windows are closed
/// through a preloaded library, since this platform has nobody to click on them.
class Launcher : public LauncherProcess {
public:
    explicit Launcher(const QString& name)
        : LauncherProcess(ApplicationFolder::path(name))
    {
    }

    void placeRealm() const
    {
        writeFile(path("Settings/realms.ini"), "[realms]\nsize=1\n1-realmName=Tarnwick\n");
    }

    /// A newer launcher and the updater that takes it from there.
    void placeUpdater() const
    {
        placeReporter(path("Halden-Launcher-Updater.exe"), path("updater.txt"));
        writeFile(path("Halden-Launcher.tmp"), "newer");
    }

    void startWith(const QString& preloaded)
    {
        setVariable("LD_PRELOAD", preloaded);
        // The sanitizers' own library would rather come first.
        setVariable(
            "ASAN_OPTIONS", qEnvironmentVariable("ASAN_OPTIONS") + ":verify_asan_link_order=0");
        start();
    }

    void closeWindow()
    {
        tell("x");
    }

    qsizetype downloadsStarted() const
    {
        return linesStartingWith("true QUrl");
    }

    /// Within the next milliseconds, whatever happens meanwhile.
    void closeWindowAfter(int milliseconds)
    {
        QTimer::singleShot(milliseconds, &context, [this] { closeWindow(); });
    }

    bool hasEndedWithoutError()
    {
        return waitForQuit() && exitCode() == 0;
    }

private:
    QObject context;
};

int roundsOfEnds()
{
    constexpr int inEveryTestRun = 2;
    const int wanted = qEnvironmentVariableIntValue("HALDEN_ROUNDS_OF_ENDS");
    return wanted > 0 ? wanted : inEveryTestRun;
}

} // namespace

Q_DECLARE_METATYPE(Moment)

/// Network threads are at work whenever the launcher ends, and must not be caught
/// in the middle of what is cleaned up.
class tst_LauncherEnds : public QObject {
    Q_OBJECT

private slots:
    void initTestCase();
    void init();
    void aThreadInAHandshakeDoesNotMatter();
    void atAnyMoment_data();
    void atAnyMoment();

private:
    void bringAboutTheEnd(Launcher& launcher, Moment moment);

    HttpsServer server;
    QRandomGenerator chance;
};

void tst_LauncherEnds::initTestCase()
{
    server.answer("/alert", HttpAnswer::ok("<b>Willkommen</b>"));
    for (const char* own : { "/Halden-Launcher.exe", "/Halden-Launcher-Updater.exe" })
        server.answer(own, HttpAnswer::notModified());
    server.answer(
        "/patch.ini",
        HttpAnswer::ok("[General]\nnumberOfFiles=1\nfile1=patch-h.MPQ\nfile1-hash=never\n"));
    constexpr qsizetype size = 4 << 20;
    server.answer(patchFile, HttpAnswer::announcing(size).drip(QByteArray(size, 'p'), 16'384, 1));
    server.listen();
}

void tst_LauncherEnds::init()
{
    ApplicationFolder::clear();
    server.forgetRequests();
}

/// The thread is on its way to the information text.
void tst_LauncherEnds::aThreadInAHandshakeDoesNotMatter()
{
    Launcher launcher("launcher");
    launcher.placeRealm();
    const QString mark = launcher.path("held");
    launcher.setVariable("HALDEN_HELD_MARK", mark);
    launcher.startWith(QString(HALDEN_HELD_HANDSHAKE) + ' ' + HALDEN_WINDOW_CLOSER);
    QVERIFY2(
        launcher.waitFor([&mark] { return QFile::exists(mark); }),
        qPrintable(launcher.lastLines()));
    launcher.closeWindow();
    QVERIFY2(launcher.hasEndedWithoutError(), qPrintable(launcher.lastLines()));
}

void tst_LauncherEnds::atAnyMoment_data()
{
    QTest::addColumn<Moment>("moment");
    QTest::addColumn<quint32>("seed");
    for (int round = 0; round < roundsOfEnds(); ++round) {
        const auto row = [round](const char* name, Moment moment) {
            QTest::addRow("%s, %d", name, round) << moment << quint32(round);
        };
        row("handed over", Moment::HandOver);
        row("closed while connecting", Moment::Connecting);
        row("closed in a body", Moment::Body);
        row("closed behind the first start's dialog", Moment::FirstStart);
    }
}

/// Four at a time, so that the threads get in each other's way.
void tst_LauncherEnds::atAnyMoment()
{
    QFETCH(Moment, moment);
    QFETCH(quint32, seed);
    chance.seed(seed);
    std::array<Launcher, 4> launchers{ Launcher("a"), Launcher("b"), Launcher("c"), Launcher("d") };
    for (Launcher& launcher : launchers)
        bringAboutTheEnd(launcher, moment);
    for (Launcher& launcher : launchers)
        QVERIFY2(launcher.hasEndedWithoutError(), qPrintable(launcher.lastLines()));
}

void tst_LauncherEnds::bringAboutTheEnd(Launcher& launcher, Moment moment)
{
    if (moment != Moment::FirstStart)
        launcher.placeRealm();
    if (moment == Moment::HandOver)
        launcher.placeUpdater();
    launcher.startWith(HALDEN_WINDOW_CLOSER);
    if (moment == Moment::HandOver)
        return;
    // One start makes five downloads, and two of the manifest, before the patch file's.
    const int downloads = moment == Moment::Body ? 9 : chance.bounded(1, 9);
    QVERIFY2(
        launcher.waitFor([&] { return launcher.downloadsStarted() >= downloads; }),
        qPrintable(launcher.lastLines()));
    if (moment == Moment::FirstStart)
        launcher.closeWindow();
    launcher.closeWindowAfter(chance.bounded(30));
}

HALDEN_TEST_MAIN(tst_LauncherEnds)
#include "tst_launcherends.moc"
