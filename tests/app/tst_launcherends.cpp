#include "app/constants.h"
#include "tests/support/applicationfolder.h"
#include "tests/support/httpsserver.h"
#include "tests/support/promptwait.h"
#include "tests/support/realmsini.h"
#include "tests/support/reporter.h"
#include "tests/support/testmain.h"

#include <QDir>
#include <QFile>
#include <QProcess>
#include <QProcessEnvironment>
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
class Launcher {
public:
    explicit Launcher(const QString& name)
        : folder(ApplicationFolder::path(name))
    {
        QDir().mkpath(folder);
        if (!QFile::copy(HALDEN_TEST_LAUNCHER, path("Halden-Launcher")))
            qFatal("cannot copy %s", HALDEN_TEST_LAUNCHER);
        process.setWorkingDirectory(folder);
        process.setReadChannel(QProcess::StandardError);
        QObject::connect(&process, &QProcess::readyReadStandardError, &process, [this] {
            while (process.canReadLine())
                lines.append(QString::fromUtf8(process.readLine().trimmed()));
        });
    }
    ~Launcher()
    {
        process.kill();
        process.waitForFinished();
    }
    Launcher(const Launcher&) = delete;
    Launcher& operator=(const Launcher&) = delete;

    QString path(const QString& name) const
    {
        return folder + '/' + name;
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

    void start(const QString& preloaded, const QMap<QString, QString>& variables = {})
    {
        QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
        environment.insert("LD_PRELOAD", preloaded);
        // The sanitizers' own library would rather come first.
        environment.insert(
            "ASAN_OPTIONS", environment.value("ASAN_OPTIONS") + ":verify_asan_link_order=0");
        for (auto variable = variables.begin(); variable != variables.end(); ++variable)
            environment.insert(variable.key(), variable.value());
        process.setProcessEnvironment(environment);
        process.start(path("Halden-Launcher"), QStringList());
    }

    void closeWindow()
    {
        process.write("x");
    }

    qsizetype downloadsStarted() const
    {
        return lines.filter(QRegularExpression("^true QUrl")).size();
    }

    bool waitForEnd()
    {
        return promptlyWaitFor(
            [this] { return process.state() == QProcess::NotRunning; }, patience);
    }

    /// "" after an ordinary end.
    QString whatIsWrong() const
    {
        const bool ordinary = process.state() == QProcess::NotRunning
            && process.exitStatus() == QProcess::NormalExit && process.exitCode() == 0;
        if (ordinary)
            return {};
        return QString("state %1, exit status %2, exit code %3, last lines:\n")
                   .arg(process.state())
                   .arg(process.exitStatus())
                   .arg(process.exitCode())
            + lines.mid(std::max<qsizetype>(0, lines.size() - 10)).join('\n');
    }

    QProcess process;

private:
    QString folder;
    QStringList lines;
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
    void closeSoon(Launcher& launcher);

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
    launcher.start(
        QString(HALDEN_HELD_HANDSHAKE) + ' ' + HALDEN_WINDOW_CLOSER,
        { { "HALDEN_HELD_MARK", mark } });
    QVERIFY2(
        promptlyWaitFor([&mark] { return QFile::exists(mark); }, patience),
        qPrintable(launcher.whatIsWrong()));
    launcher.closeWindow();
    QVERIFY2(launcher.waitForEnd(), qPrintable(launcher.whatIsWrong()));
    QCOMPARE(launcher.whatIsWrong(), QString());
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
    for (Launcher& launcher : launchers) {
        QVERIFY2(launcher.waitForEnd(), qPrintable(launcher.whatIsWrong()));
        QCOMPARE(launcher.whatIsWrong(), QString());
    }
}

void tst_LauncherEnds::bringAboutTheEnd(Launcher& launcher, Moment moment)
{
    if (moment != Moment::FirstStart)
        launcher.placeRealm();
    if (moment == Moment::HandOver)
        launcher.placeUpdater();
    launcher.start(HALDEN_WINDOW_CLOSER);
    if (moment == Moment::HandOver)
        return;
    // One start makes five downloads, and two of the manifest, before the patch file's.
    const int downloads = moment == Moment::Body ? 9 : chance.bounded(1, 9);
    QVERIFY2(
        promptlyWaitFor([&] { return launcher.downloadsStarted() >= downloads; }, patience),
        qPrintable(launcher.whatIsWrong()));
    if (moment == Moment::FirstStart)
        launcher.closeWindow();
    closeSoon(launcher);
}

/// Within the next milliseconds, whatever happens meanwhile.
void tst_LauncherEnds::closeSoon(Launcher& launcher)
{
    QTimer::singleShot(
        chance.bounded(30), &launcher.process, [&launcher] { launcher.closeWindow(); });
}

HALDEN_TEST_MAIN(tst_LauncherEnds)
#include "tst_launcherends.moc"
