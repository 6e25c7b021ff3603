#include "tests/publisher/fleet/pushfixture.h"
#include "tests/support/applicationfolder.h"
#include "tests/support/certificateauthority.h"
#include "tests/support/patience.h"
#include "tests/support/systemcalls.h"
#include "tests/support/testmain.h"

#include <QElapsedTimer>
#include <QFile>
#include <QProcess>
#include <QProcessEnvironment>
#include <QRandomGenerator>

using namespace TestSupport;
using namespace PushFixture;
using Publisher::ExitCode;

namespace {

const QString shelf = "/run/cuts/";

/// Stands for rclone, counts how often it is started, and kills who starts it: before
/// it does anything, or while it does.
void layOutKiller()
{
    const QString path = shelf + "bin/rclone";
    writeFile(path, R"sh(#!/bin/bash
cd /run/cuts || exit 1
exec 9>>lock
flock 9
count=$(($(<count) + 1))
echo "$count" >count
exec 9>&-
if [ "$count" = "$(<before)" ]; then
    kill -KILL "$PPID"
    exit 1
fi
[ "$count" != "$(<during)" ] || (kill -KILL "$PPID") &
exec /usr/bin/rclone "$@"
)sh");
    QFile::setPermissions(path, QFile::ReadOwner | QFile::ExeOwner);
}

/// Starts a push under a wrapper and waits until it has ended, for so long at most.
void startPush(
    QProcess& process, const QStringList& wrapper, const QStringList& line, int milliseconds)
{
    const QStringList command = wrapper + QStringList{ HALDEN_PUBLISH } + line;
    process.setProcessChannelMode(QProcess::MergedChannels);
    // Looking for leaks is a tracer's work too, and a program can have one only.
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert("ASAN_OPTIONS", environment.value("ASAN_OPTIONS") + ":detect_leaks=0");
    process.setProcessEnvironment(environment);
    process.start(command.first(), command.mid(1));
    process.waitForFinished(milliseconds);
}

/// Of a push that goes to one folder of this machine, all that it does itself.
QStringList lineToOneFolder(const Fleet& fleet)
{
    return pushLine(fleet, { "--pause", "0", "--without", "birch" });
}

/// How many moments; each takes two pushes.
int momentsToTry()
{
    constexpr int few = 8;
    const int wanted = qEnvironmentVariableIntValue("HALDEN_MOMENTS");
    return wanted > 0 ? wanted : few;
}

struct Cut {
    QByteArray before = "0";
    QByteArray during = "0";
};

/// Whether the push has been cut off.
bool pushUpTo(const Cut& cut, const Fleet& fleet)
{
    writeFile(shelf + "count", "0\n");
    writeFile(shelf + "before", cut.before + '\n');
    writeFile(shelf + "during", cut.during + '\n');
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert("PATH", shelf + "bin:" + environment.value("PATH"));
    QProcess process;
    process.setProcessEnvironment(environment);
    process.setProcessChannelMode(QProcess::MergedChannels);
    process.start(HALDEN_PUBLISH, pushLine(fleet, { "--pause", "0" }));
    if (!process.waitForFinished(patience))
        qFatal("a push does not end");
    if (process.exitStatus() == QProcess::NormalExit && process.exitCode() != 0)
        qFatal("%s", process.readAll().constData());
    return process.exitStatus() == QProcess::CrashExit;
}

} // namespace
Q_DECLARE_METATYPE(Cut)
Q_DECLARE_METATYPE(SystemCall)

/// The push is killed at everything that it does to its servers, one after the other.
class tst_PushCuts : public QObject {
    Q_OBJECT

private slots:
    void initTestCase()
    {
        trustedCertificate();
        layOutKiller();
        layOut();
        fleet.start();
        pushWell(fleet);
        moveOn();
        release("2");
        keepServers(fleet);
        QElapsedTimer time;
        time.start();
        QVERIFY(!pushUpTo({}, fleet));
        wholePush = static_cast<int>(time.elapsed());
        steps = readFile(shelf + "count").trimmed().toInt();
        // Listing, asking, copying, laying beside, moving, dating, at two servers.
        QVERIFY2(steps > 20, qPrintable(QString::number(steps)));
    }

    void serversAreWholeWheneverThePushDies_data()
    {
        // Two steps in a row are the same for two servers.
        QTest::addColumn<Cut>("cut");
        for (int step = 1; step <= steps; ++step) {
            const QByteArray number = QByteArray::number(step);
            if (step % 2 == 1)
                QTest::addRow("before step %d", step) << Cut{ .before = number };
            else
                QTest::addRow("during step %d", step) << Cut{ .during = number };
        }
    }

    void serversAreWholeWheneverThePushDies()
    {
        QFETCH(Cut, cut);
        putBack(fleet);
        Watcher watcher(fleet, "Halden-Launcher.exe");
        QVERIFY(pushUpTo(cut, fleet));
        watcher.stop();
        QCOMPARE(watcher.broken(), QStringList());
        finishCutPush();
    }

    void serversAreWholeWhateverCallIsTheLast_data()
    {
        QTest::addColumn<SystemCall>("call");
        putBack(fleet);
        const QString record = shelf + "calls";
        // In a folder of this machine it puts files in place itself; all else does rclone.
        QProcess process;
        startPush(
            process, Trace::record(Trace::renames(), record), lineToOneFolder(fleet), patience);
        QCOMPARE(process.exitCode(), 0);
        const QList<SystemCall> calls = Trace::recordedChanges(record);
        // Manifest, text and two programs are exchanged.
        QVERIFY(calls.size() >= 3);
        for (const SystemCall& call : calls)
            QTest::addRow("%s %d", qPrintable(call.name), call.ordinal) << call;
    }

    void serversAreWholeWhateverCallIsTheLast()
    {
        QFETCH(SystemCall, call);
        putBack(fleet);
        QProcess process;
        startPush(process, Trace::killBefore(call), lineToOneFolder(fleet), patience);
        QCOMPARE(process.exitStatus(), QProcess::CrashExit);
        finishCutPush();
    }

    void serversAreWholeAtAnyMoment_data()
    {
        QTest::addColumn<int>("milliseconds");
        QRandomGenerator chance(2026);
        for (int n = 0; n < momentsToTry(); ++n) {
            const int moment = chance.bounded(wholePush);
            QTest::addRow("%d: after %d ms", n, moment) << moment;
        }
    }

    void serversAreWholeAtAnyMoment()
    {
        QFETCH(int, milliseconds);
        putBack(fleet);
        QProcess process;
        startPush(process, {}, pushLine(fleet, { "--pause", "0" }), milliseconds);
        process.kill();
        process.waitForFinished(patience);
        finishCutPush();
    }

private:
    /// What players may see by then, and what the next push makes of it.
    void finishCutPush() const
    {
        for (const QString& name : fleet.names())
            QCOMPARE(brokenOn(fleet, name), QStringList());
        const CommandRun finished = push(fleet, { "--pause", "0" });
        QVERIFY2(finished.code == ExitCode::Fine, qPrintable(all(finished)));
        for (const QString& name : fleet.names()) {
            QCOMPARE(differenceFromTree(name), QString());
            for (const char* file : { "patch.ini", "Halden-Launcher.exe" })
                QCOMPARE(dateOf(name, file), dateOf("alder", file));
        }
    }

    Fleet fleet{ 2 };
    /// How often a push that nobody cuts off starts rclone, and its milliseconds.
    int steps = 0;
    int wholePush = 0;
};

HALDEN_TEST_MAIN(tst_PushCuts)
#include "tst_pushcuts.moc"
