#include "tests/support/applicationfolder.h"
#include "tests/support/smalldisk.h"
#include "tests/support/systemcalls.h"
#include "tests/support/testmain.h"
#include "tests/updater/faults.h"
#include "tests/updater/updaterhome.h"

#include <QFile>
#include <QMap>
#include <QRandomGenerator>

#include <algorithm>
#include <array>
#include <functional>
#include <memory>
#include <utility>

namespace {

const QString exchanged = "new none none";
const QString oldAlone = "old none none";
const QString untouched = "old new none";
const QString traceFile = "/tmp/trace";

/// A state of the player's folder, and what an updater makes of it.
struct Scenario {
    const char* name;
    QString launcher;
    QString waiting;
    QString kept;
    /// Interference besides the kill.
    QStringList wrapper;
    QString outcome;
    /// What the next one makes of that, without interference.
    QString end = outcome;

    /// Whether one that does not start may stand in place for a while.
    bool isDoubtful() const
    {
        return (launcher != "old" && launcher != "new") || waiting.startsWith("unstartable");
    }
};

QList<Scenario> scenarios()
{
    const QStringList noLinks = Trace::fail(Trace::links(), "EPERM");
    const QStringList noStart = Trace::fail(Trace::starts(), "EAGAIN");
    return {
        { "exchange", "old", "new", "none", {}, exchanged },
        { "exchange over leftovers", "old", "new", "old", {}, exchanged },
        { "exchange without links", "old", "new", "none", noLinks, exchanged },
        { "program that does not start", "old", "unstartable", "none", {}, oldAlone },
        { "web page", "old", "page", "none", {}, oldAlone },
        { "same launcher", "old", "old", "none", {}, oldAlone },
        { "same launcher, date cannot be set", "old", "old", "none",
          Trace::fail("utimensat", "EPERM"), oldAlone },
        // An earlier run ended before it could start what it had put in place.
        { "untried program", "unstartable", "none", "old", {}, oldAlone },
        { "untried program, web page", "unstartable", "page", "old", {}, oldAlone },
        { "untried program, the same", "unstartable", "unstartable", "old", {}, oldAlone },
        { "untried program, foreign one", "unstartable", "foreign", "old", {}, oldAlone },
        { "untried program, another", "unstartable", "unstartable too", "old", {}, oldAlone },
        { "untried program, good one", "unstartable", "new", "old", {}, exchanged },
        { "untried launcher", "new", "none", "old", {}, exchanged },
        { "untried launcher, web page", "new", "page", "old", {}, exchanged },
        { "untried launcher, the same", "new", "new", "old", {}, exchanged },
        { "untried launcher, bad one", "new", "unstartable", "old", {}, oldAlone },
        { "launcher taken away", "none", "new", "old", {}, exchanged },
        { "bad moment for a start", "old", "new", "none", noStart, untouched, exchanged },
        { "the same without links", "old", "new", "none", Trace::both(noStart, noLinks), untouched,
          exchanged },
        { "old launcher that stays", "old", "new", "none",
          Trace::fail(Trace::removals(), "EPERM", 3), "new none old", exchanged },
    };
}

QByteArray contentOf(const QString& what)
{
    if (what == "foreign")
        return foreignProgram();
    if (what.startsWith("unstartable"))
        return unstartableProgram() + what.toUtf8();
    if (what == "page")
        return "<!DOCTYPE html>";
    return what == "old" ? UpdaterHome::oldLauncher() : UpdaterHome::newLauncher();
}

} // namespace

/// Whatever happens to an updater: a launcher that starts stands under its name
/// afterwards, and the next updater finishes the work.
class tst_UpdaterFaults : public QObject {
    Q_OBJECT

private slots:
    void initTestCase()
    {
        home = std::make_unique<UpdaterHome>(TestSupport::ApplicationFolder::path());
        if (TestSupport::hasSmallDisk())
            small = std::make_unique<UpdaterHome>("/small/Halden");
        ended = endedProcess();
        for (const Scenario& scenario : scenarios())
            killPoints.append(findKillPoints(scenario));
    }

    void killedAtEveryStateChange_data()
    {
        addKillPoints();
    }

    void killedAtEveryStateChange()
    {
        QFETCH(int, scenario);
        QFETCH(int, call);
        QCOMPARE(
            killAndFinish(scenarios().at(scenario), killPoints.at(scenario).at(call)), QString());
    }

    void failsAtEveryStateChange_data()
    {
        addKillPoints();
    }

    /// Once, and from there on for good.
    void failsAtEveryStateChange()
    {
        QFETCH(int, scenario);
        QFETCH(int, call);
        const SystemCall point = killPoints.at(scenario).at(call);
        const QString once = failAndFinish(
            scenarios().at(scenario), Trace::fail(point.name, "EIO", point.ordinal, point.ordinal));
        QCOMPARE(once, QString());
        const QString forGood = failAndFinish(
            scenarios().at(scenario), Trace::fail(point.name, "EACCES", point.ordinal));
        QCOMPARE(forGood, QString());
    }

    void exchangesUnderRandomFaults()
    {
        constexpr quint32 seed = 20240501;
        QRandomGenerator random(seed);
        QMap<QString, int> count;
        QList<std::pair<QString, Exchange>> possible = faults;
        if (!TestSupport::hasSmallDisk())
            possible.removeIf([](const auto& fault) { return fault.first == "full disk"; });
        for (int round = 0; round < HALDEN_EXCHANGES; ++round) {
            const auto& [name, exchange] = possible.at(random.bounded(possible.size()));
            const QString wrong = exchange(random);
            QVERIFY2(
                wrong.isEmpty(),
                qPrintable(QString("round %1, %2: %3").arg(round).arg(name, wrong)));
            ++count[name];
        }
        QCOMPARE(count.size(), possible.size());
        if (possible.size() != faults.size())
            QSKIP("only the full disk, which needs a small disk of its own");
    }

private:
    using Exchange = std::function<QString(QRandomGenerator&)>;

    void addKillPoints() const
    {
        QTest::addColumn<int>("scenario");
        QTest::addColumn<int>("call");
        for (int n = 0; n < scenarios().size(); ++n) {
            for (int call = 0; call < killPoints.at(n).size(); call += HALDEN_SWEEP_STEP) {
                const SystemCall point = killPoints.at(n).at(call);
                QTest::addRow(
                    "%s, at %s %d", scenarios().at(n).name, qPrintable(point.name), point.ordinal)
                    << n << call;
            }
        }
    }

    static void arrange(const UpdaterHome& where, const Scenario& scenario)
    {
        where.reset();
        where.placeLauncher(contentOf(scenario.launcher));
        where.placeWaiting(contentOf(scenario.waiting));
        if (scenario.launcher == "none")
            QFile::remove(where.path("Halden-Launcher.exe"));
        if (scenario.waiting == "none")
            QFile::remove(where.path("Halden-Launcher.tmp"));
        if (scenario.kept != "none")
            where.placeKept(contentOf(scenario.kept));
    }

    /// Everything that a run nobody disturbs changes, and its end.
    QList<SystemCall> findKillPoints(const Scenario& scenario)
    {
        arrange(*home, scenario);
        const QStringList tracer = Trace::record(Trace::stateChanging(), traceFile);
        home->run(ended, Trace::both(tracer, scenario.wrapper));
        if (home->state() != scenario.outcome)
            qFatal("%s: %s", scenario.name, qPrintable(home->state()));
        QList<SystemCall> calls = Trace::recordedChanges(traceFile);
        // One interference at a time with one call.
        const QString interference = scenario.wrapper.join(' ');
        calls.removeIf([&](const SystemCall& call) { return interference.contains(call.name); });
        return calls;
    }

    /// Empty when all is well, as with all that follow.
    static QString wrongWithLauncher(const UpdaterHome& where)
    {
        const QString version = where.launcher();
        if (version != "old" && version != "new")
            return "the launcher in place: " + version;
        const QString started = where.startedVersion();
        return started == version ? QString() : "the launcher calls itself \"" + started + '"';
    }

    QString finish(const UpdaterHome& where, const QString& outcome = exchanged) const
    {
        const UpdaterRun run = where.run(ended);
        if (run.code != 0 && run.code != 3 && run.code != 6)
            return QString("the second run ends with %1").arg(run.code);
        if (where.state() != outcome)
            return "after the second run: " + where.state();
        if (!where.strangers().isEmpty())
            return "left over: " + where.strangers().join(' ');
        return wrongWithLauncher(where);
    }

    /// A new launcher is started once; a second time only if the first updater
    /// was killed before it could note that it had done so.
    static QString
    wrongWithStarts(const UpdaterHome& where, const QString& outcome, qsizetype atMost)
    {
        const qsizetype starts = where.starts().filter("new ").size();
        const bool due = outcome == exchanged;
        if (due ? starts >= 1 && starts <= atMost : starts == 0)
            return {};
        return QString("%1 newer launchers were started").arg(starts);
    }

    QString killAndFinish(const Scenario& scenario, const SystemCall& call)
    {
        arrange(*home, scenario);
        const QStringList killer = Trace::both(Trace::killBefore(call), scenario.wrapper);
        if (home->run(ended, killer).code != -1)
            return "the updater was not killed";
        QString wrong = wrongWithSafety(scenario);
        if (!wrong.isEmpty())
            return wrong;
        const QString unfinished = finish(*home, scenario.end);
        return unfinished.isEmpty() ? wrongWithStarts(*home, scenario.end, 2) : unfinished;
    }

    /// A program that does not start may stand there until the second run, as long
    /// as there is one to go back to.
    QString wrongWithSafety(const Scenario& scenario) const
    {
        const bool isSafe = scenario.isDoubtful() && home->kept() == "old";
        return isSafe ? QString() : wrongWithLauncher(*home);
    }

    /// Which launcher wins depends on what has failed; one does, and nothing is left.
    QString failAndFinish(const Scenario& scenario, const QStringList& failure)
    {
        arrange(*home, scenario);
        if (home->run(ended, Trace::both(failure, scenario.wrapper)).code < 0)
            return "the updater did not end by itself";
        QString wrong = wrongWithSafety(scenario);
        if (!wrong.isEmpty())
            return wrong;
        const UpdaterRun second = home->run(ended);
        const QStringList ends{ exchanged, oldAlone };
        if (!ends.contains(home->state()) || !home->strangers().isEmpty())
            return QString("the second run ends with %1, %2").arg(second.code).arg(home->state());
        wrong = wrongWithLauncher(*home);
        const qsizetype starts = home->starts().size();
        return starts > 2 ? QString("%1 launchers were started").arg(starts) : wrong;
    }

    QString finishAfter(const UpdaterHome& where, const UpdaterRun& run, int code) const
    {
        if (run.code != code)
            return QString("the first run ends with %1: %2").arg(run.code).arg(run.message);
        QString wrong = wrongWithLauncher(where);
        return wrong.isEmpty() ? finishedOnce(where) : wrong;
    }

    QString finishedOnce(const UpdaterHome& where) const
    {
        const QString unfinished = finish(where);
        return unfinished.isEmpty() ? wrongWithStarts(where, exchanged, 1) : unfinished;
    }

    QString killed(QRandomGenerator& random)
    {
        const int scenario = random.bounded(int(killPoints.size()));
        const QList<SystemCall>& calls = killPoints.at(scenario);
        return killAndFinish(scenarios().at(scenario), calls.at(random.bounded(int(calls.size()))));
    }

    QString killedTwice(QRandomGenerator& random)
    {
        arrange(*home, scenarios().constFirst());
        for (int n = 0; n < 2; ++n) {
            const QList<SystemCall>& calls = killPoints.first();
            // The second run may have less to do and get past the place.
            home->run(ended, Trace::killBefore(calls.at(random.bounded(int(calls.size())))));
            QString wrong = wrongWithLauncher(*home);
            if (!wrong.isEmpty())
                return wrong;
        }
        const QString unfinished = finish(*home);
        return unfinished.isEmpty() ? wrongWithStarts(*home, exchanged, 3) : unfinished;
    }

    QString readOnly(QRandomGenerator&)
    {
        home->reset();
        UpdaterRun run;
        {
            const ReadOnlyFolder folder(TestSupport::ApplicationFolder::path());
            run = home->run(ended);
        }
        return finishAfter(*home, run, 5);
    }

    QString diskFull(QRandomGenerator& random)
    {
        small->reset();
        UpdaterRun run;
        // Where files can have two names, the exchange needs no room at all.
        const bool links = random.bounded(2) == 0;
        {
            const FullDisk disk("/small");
            run = small->run(ended, links ? QStringList() : Trace::fail(Trace::links(), "EPERM"));
        }
        return finishAfter(*small, run, links ? 0 : 5);
    }

    QString held(QRandomGenerator& random)
    {
        home->reset();
        // Five attempts, each of which ends with the first refusal.
        const int first = random.bounded(1, 3);
        const int refusals = random.bounded(1, 8);
        const QString error = random.bounded(2) == 0 ? "EBUSY" : "EACCES";
        UpdaterRun run;
        {
            const RunningLauncher user(home->path("Halden-Launcher.exe"));
            run = home->run(
                ended, Trace::fail(Trace::renames(), error, first, first + refusals - 1));
        }
        return finishAfter(*home, run, refusals < 5 ? 0 : 5);
    }

    QString twice(QRandomGenerator&)
    {
        home->reset();
        RunningLauncher launcher(home->path("Halden-Launcher.exe"));
        const QString id = QString::number(launcher.id());
        std::array<QProcess, 2> updaters;
        for (QProcess& updater : updaters)
            home->start(updater, { id });
        launcher.end();
        const int one = UpdaterHome::finish(updaters[0]).code;
        const int other = UpdaterHome::finish(updaters[1]).code;
        if (std::min(one, other) != 0 || (std::max(one, other) != 3 && std::max(one, other) != 7))
            return QString("the updaters end with %1 and %2").arg(one).arg(other);
        return finishedOnce(*home);
    }

    QString reusedId(QRandomGenerator& random)
    {
        home->reset();
        const QString other = "/tmp/other-program";
        if (!QFile::exists(other))
            QFile::copy(HALDEN_OLD_STANDIN, other);
        const RunningLauncher user(other);
        const QList<qint64> ids{ user.id(), QCoreApplication::applicationPid(), 1 };
        const UpdaterRun run = home->run(ids.at(random.bounded(3)));
        return finishAfter(*home, run, 0);
    }

    std::unique_ptr<UpdaterHome> home;
    std::unique_ptr<UpdaterHome> small;
    qint64 ended = 0;
    /// For each scenario.
    QList<QList<SystemCall>> killPoints;
    const QList<std::pair<QString, Exchange>> faults{
        { "killed",
          [this](auto& random) {
              return killed(random);
          } },
        { "killed twice",
          [this](auto& random) {
              return killedTwice(random);
          } },
        { "read-only folder",
          [this](auto& random) {
              return readOnly(random);
          } },
        { "full disk",
          [this](auto& random) {
              return diskFull(random);
          } },
        { "held open",
          [this](auto& random) {
              return held(random);
          } },
        { "started twice",
          [this](auto& random) {
              return twice(random);
          } },
        { "reused id",
          [this](auto& random) {
              return reusedId(random);
          } },
    };
};

HALDEN_TEST_MAIN(tst_UpdaterFaults)
#include "tst_updaterfaults.moc"
