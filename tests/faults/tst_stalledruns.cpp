#include "tests/faults/celltable.h"
#include "tests/faults/faultrows.h"
#include "tests/faults/launchercopy.h"
#include "tests/faults/logcheck.h"
#include "tests/support/applicationfolder.h"
#include "tests/support/mainwindowundertest.h"
#include "tests/support/testmain.h"

#include <QElapsedTimer>
#include <QPushButton>
#include <QTimer>

using namespace TestSupport;

namespace {

// The transfer's own limit lies between these two.
constexpr int leastSilence = 55'000;
constexpr int mostPatience = 240'000;

struct Stall {
    QString fault;
    /// What comes before the silence.
    std::function<HttpAnswer(Target)> answer;
    /// The server is silent before the handshake already.
    bool beforeHandshake = false;
    QString result = keptThenWhole;
};

QByteArray half(Target target)
{
    const QByteArray content = Targets::today(target);
    return content.left(content.size() / 2);
}

/// Takes longer than the limit and is never silent for as long.
HttpAnswer patientDrip(Target target)
{
    const QByteArray content = Targets::today(target);
    return HttpAnswer::announcing(content.size()).drip(content, content.size() / 14, 5'000);
}

const QList<Stall>& stalls()
{
    static const QList<Stall> all{
        { "no answer",
          [](Target) {
              return HttpAnswer();
          } },
        { "silence in the headers",
          [](Target) {
              return HttpAnswer().send("HTTP/1.1 200 OK\r\nContent-Le");
          } },
        { "silence in the body",
          [](Target target) {
              return HttpAnswer::announcing(20'050).send(half(target));
          } },
        { "silence in the handshake", [](Target) { return HttpAnswer(); }, true },
        { "drip of 70 seconds", patientDrip, false, whole },
    };
    return all;
}

/// One player whose server falls silent.
struct Case {
    Stall stall;
    Target target;
    std::unique_ptr<LauncherCopy> player;
    QElapsedTimer silence;
    /// How long it took to the end of the start, 0 before that.
    qint64 waited = 0;

    /// The hand-over ends the launcher; otherwise both runs come to their end.
    bool isHandedOver() const
    {
        return target == Target::Launcher && stall.result == whole;
    }

    bool hasEnded() const
    {
        return isHandedOver() ? !player->isRunning() : player->hasEndedBothRuns(1);
    }
};

} // namespace

/// A server that falls silent holds a run for as long as the transfer's limit
/// allows. All players wait at the same time, each with the executable in a
/// folder of its own.
class tst_StalledRuns : public QObject {
    Q_OBJECT

private slots:
    void initTestCase();
    void cell_data();
    void cell();
    void startButtonComesBack();

private:
    void begin(const Stall& stall, Target target);
    void beginAll(bool beforeHandshake);
    void beginWithWindow();
    void waitForAll();
    void stallInHandshake(Target hit, const std::function<void()>& start);
    void stallInAnswer(Target target, const HttpAnswer& answer, const std::function<void()>& start);

    HttpsServer server;
    std::vector<std::unique_ptr<HttpsServer>> silentServers;
    std::vector<std::unique_ptr<Case>> cases;
    std::unique_ptr<MainWindowUnderTest> window;
    CellTable cells;
};

/// Silence for the next requests of the target, until all of one start are
/// there; then everything is served again.
void tst_StalledRuns::stallInAnswer(
    Target target, const HttpAnswer& answer, const std::function<void()>& start)
{
    server.answer(Targets::requestPath(target), answer);
    const int before = server.requestCount(Targets::requestPath(target));
    start();
    QTRY_COMPARE_WITH_TIMEOUT(
        server.requestCount(Targets::requestPath(target)),
        before + Targets::requestsPerStart(target), mostPatience);
}

void tst_StalledRuns::stallInHandshake(Target hit, const std::function<void()>& start)
{
    silentServers.push_back(std::make_unique<HttpsServer>());
    HttpsServer& silent = *silentServers.back();
    const auto fallSilent = [this, &silent] {
        server.stopListening();
        silent.listenPlain(443);
    };
    int asked = 0;
    if (hit == Target::InfoText) {
        fallSilent();
    } else {
        const Target previous = Targets::before(hit);
        const auto answer = Targets::publishedFor(hit, previous, Targets::thisMorning());
        server.answer(Targets::requestPath(previous), [&, previous, answer](const HttpRequest& r) {
            if (++asked == Targets::requestsPerStart(previous)) {
                fallSilent();
                QTimer::singleShot(0, &server, &HttpsServer::release);
            }
            return HttpAnswer::held(answer(r));
        });
    }
    start();
    QTRY_COMPARE_WITH_TIMEOUT(
        silent.openConnections(), Targets::requestsPerStart(hit), mostPatience);
    silent.stopListening();
    server.listen();
}

void tst_StalledRuns::begin(const Stall& stall, Target target)
{
    const QString place = QString("/home/player/evening %1").arg(cases.size());
    cases.push_back(std::make_unique<Case>(
        Case{ stall, target, std::make_unique<LauncherCopy>(place), QElapsedTimer(), 0 }));
    Case& one = *cases.back();
    Targets::publishAllFor(target, server);
    const auto start = [&one] {
        one.silence.start();
        one.player->start();
    };
    if (stall.beforeHandshake)
        stallInHandshake(target, start);
    else
        stallInAnswer(target, stall.answer(target), start);
    Targets::publishAllFor(target, server);
}

/// All players share the server. The late targets come first: whoever goes on
/// while others are still about to begin asks for later targets than theirs.
void tst_StalledRuns::beginAll(bool beforeHandshake)
{
    const QList<Target> lateOnesFirst(Targets::all().rbegin(), Targets::all().rend());
    for (const Target target : lateOnesFirst) {
        for (const Stall& stall : stalls()) {
            if (stall.beforeHandshake == beforeHandshake)
                begin(stall, target);
        }
    }
}

/// The same with a window in this process, whose button can be looked at.
void tst_StalledRuns::beginWithWindow()
{
    layOutPlayer(ApplicationFolder::path(), ownClientFolder());
    Targets::publishAllFor(Target::PatchFile, server);
    const auto start = [this] {
        window = std::make_unique<MainWindowUnderTest>();
    };
    stallInAnswer(Target::PatchFile, HttpAnswer(), start);
}

void tst_StalledRuns::initTestCase()
{
    server.listen();
    // On their own, since they take the port from everybody.
    beginAll(true);
    waitForAll();
    beginWithWindow();
    QVERIFY(!window->button("StartWoW")->isEnabled());
    beginAll(false);
    waitForAll();
}

/// Nobody is started anew before the last one has ended: they share the server.
void tst_StalledRuns::waitForAll()
{
    const auto allHaveEnded = [this] {
        bool all = !window || window->endedRuns() == 2;
        for (const auto& one : cases) {
            if (one->waited == 0 && one->hasEnded())
                one->waited = one->silence.elapsed();
            all = all && one->waited > 0;
        }
        return all;
    };
    if (!QTest::qWaitFor(allHaveEnded, mostPatience))
        qWarning("somebody still waits; the rows say who");
}

void tst_StalledRuns::cell_data()
{
    QTest::addColumn<int>("number");
    int number = 0;
    for (const auto& one : cases)
        QTest::newRow(rowName(one->stall.fault, one->target).constData()) << number++;
}

void tst_StalledRuns::cell()
{
    QFETCH(int, number);
    Case& one = *cases.at(static_cast<std::size_t>(number));
    LauncherCopy& player = *one.player;
    QVERIFY2(one.hasEnded(), qPrintable(player.lastLines()));
    QVERIFY2(one.waited > leastSilence, "the launcher did not wait for the server");
    QString outcome = Targets::stateOfFile(one.target, player.launcherFolder());
    if (outcome != whole) {
        QStringList log = player.log();
        // The toolkit complains that nothing can be read from a cancelled reply.
        log.removeIf([](const QString& line) { return line.startsWith("QIODevice::read"); });
        QCOMPARE(LogCheck::wholeChain(log, player.launcherFolder()), QStringList());
        QCOMPARE(
            LogCheck::failures(
                log, Targets::url(one.target), "OperationCanceledError",
                Targets::requestsPerStart(one.target)),
            QStringList());
        Targets::publishAllFor(one.target, server);
        player.stop();
        player.start();
        // The newer launcher ends the start before the runs are over.
        QVERIFY2(
            one.target == Target::Launcher ? player.waitForExit() : player.waitForBothRuns(1),
            qPrintable(player.lastLines()));
        outcome += ", then " + Targets::stateOfFile(one.target, player.launcherFolder());
    }
    QCOMPARE(outcome, one.stall.result);
    cells.add(one.stall.fault, one.target, outcome);
}

void tst_StalledRuns::startButtonComesBack()
{
    QCOMPARE(window->endedRuns(), 2);
    QVERIFY(window->button("StartWoW")->isEnabled());
    window.reset();
}

HALDEN_TEST_MAIN(tst_StalledRuns)
#include "tst_stalledruns.moc"
