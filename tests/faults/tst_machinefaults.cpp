#include "tests/faults/celltable.h"
#include "tests/faults/faultrows.h"
#include "tests/faults/faultyevening.h"
#include "tests/faults/launchercopy.h"
#include "tests/faults/logcheck.h"
#include "tests/support/applicationfolder.h"
#include "tests/support/systemcalls.h"
#include "tests/support/testmain.h"
#include "tests/support/timezone.h"
#include "tests/update/updatefixture.h"

using namespace TestSupport;

namespace {

QString dated(Target target)
{
    // The newer launcher is asked for with the date of the one at hand.
    return target == Target::Launcher ? ApplicationFolder::path("Halden-Launcher.exe")
                                      : Targets::localPath(target);
}

QStringList withClock(const QString& shift)
{
    // What counts seconds from the start must not be told another time. A launcher
    // with sanitizers insists on being loaded before anything else.
    return { "env", "FAKETIME_DONT_FAKE_MONOTONIC=1", "FAKETIME=" + shift,
             "ASAN_OPTIONS=verify_asan_link_order=0", QString("LD_PRELOAD=") + HALDEN_FAKETIME };
}

QStringList withoutDescriptorFor(const QString& path)
{
    return Trace::fail("openat", "EMFILE") + QStringList{ "--trace-path=" + path };
}

/// Connections are made in threads of their own, which are traced as well.
QStringList withoutSockets()
{
    return Trace::fail("socket", "EMFILE") + QStringList{ "--follow-forks" };
}

} // namespace

/// The machine's clock is years away, or it has no descriptors left.
class tst_MachineFaults : public QObject {
    Q_OBJECT

private slots:
    void fileDates_data();
    void fileDates();
    void executable_data();
    void executable();

private:
    CellTable cells;
};

void tst_MachineFaults::fileDates_data()
{
    QTest::addColumn<QString>("fault");
    QTest::addColumn<Target>("target");
    QTest::addColumn<int>("year");
    QTest::addColumn<QString>("result");
    for (const Target target : Targets::all()) {
        const bool goesByDate = target != Target::InfoText && target != Target::PatchFile;
        const QString ahead = "files dated years ahead";
        const QString behind = "files dated years behind";
        QTest::newRow(rowName(ahead, target).constData())
            << ahead << target << 2099 << (goesByDate ? keptForGood : whole);
        QTest::newRow(rowName(behind, target).constData()) << behind << target << 1985 << whole;
    }
}

void tst_MachineFaults::fileDates()
{
    QFETCH(QString, fault);
    QFETCH(Target, target);
    QFETCH(int, year);
    QFETCH(QString, result);
    FaultyEvening evening(target);
    UpdateFixture::setModificationTime(dated(target), utc(QDate(year, 6, 1), QTime(12, 0)));
    QCOMPARE(evening.play(), result);
    cells.add(fault, target, result);
}

void tst_MachineFaults::executable_data()
{
    QTest::addColumn<QString>("fault");
    QTest::addColumn<Target>("target");
    QTest::addColumn<QStringList>("wrapper");
    QTest::addColumn<QString>("said");
    const QString place = "/home/player/evening";
    for (const Target target : Targets::all()) {
        const QString temporary = place + "/launcher/" + Targets::relativePath(target) + "-new";
        const auto row
            = [target](const QString& fault, const QStringList& wrapper, const QString& said) {
                  QTest::newRow(rowName(fault, target).constData())
                      << fault << target << wrapper << said;
              };
        const QString untrusted = "warning: ErrorNo:  QNetworkReply::SslHandshakeFailedError";
        row("clock years ahead", withClock("+20y"), untrusted);
        row("clock years behind", withClock("-20y"), untrusted);
        row("no descriptor left for the \"-new\" file", withoutDescriptorFor(temporary),
            "Could not open " + temporary.section('/', -1) + " for writing: Too many open files");
        row("no descriptor left for a connection", withoutSockets(), "warning: ErrorNo:  ");
    }
}

void tst_MachineFaults::executable()
{
    QFETCH(QString, fault);
    QFETCH(Target, target);
    QFETCH(QStringList, wrapper);
    QFETCH(QString, said);
    HttpsServer server;
    server.listen();
    Targets::publishAllFor(target, server);
    LauncherCopy player("/home/player/evening");
    player.start(wrapper);
    QVERIFY2(player.waitForBothRuns(1), qPrintable(player.lastLines()));
    QVERIFY2(
        player.linesStartingWith(said) >= Targets::requestsPerStart(target),
        qPrintable(player.lastLines()));
    QCOMPARE(LogCheck::wholeChain(player.log(), player.launcherFolder()), QStringList());
    player.stop();
    QCOMPARE(Targets::stateOfFile(target, player.launcherFolder()), "kept");
    player.start();
    // The newer launcher ends the start before the runs are over.
    QVERIFY2(
        target == Target::Launcher ? player.waitForExit() : player.waitForBothRuns(1),
        qPrintable(player.lastLines()));
    QCOMPARE(Targets::stateOfFile(target, player.launcherFolder()), whole);
    cells.add(fault, target, keptThenWhole);
}

HALDEN_TEST_MAIN(tst_MachineFaults)
#include "tst_machinefaults.moc"
