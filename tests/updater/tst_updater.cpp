#include "tests/support/applicationfolder.h"
#include "tests/support/smalldisk.h"
#include "tests/support/systemcalls.h"
#include "tests/support/testmain.h"
#include "tests/support/timezone.h"
#include "tests/updater/faults.h"
#include "tests/updater/updaterhome.h"

#include <QDateTime>
#include <QDir>
#include <QFile>
#include <QRegularExpression>

#include <algorithm>
#include <fcntl.h>
#include <memory>
#include <numeric>
#include <sys/file.h>
#include <unistd.h>
#include <vector>

using TestSupport::readFile;
using TestSupport::writeFile;

namespace {

enum Code { Done = 0, Usage = 2, Nothing = 3, GaveUp = 4, NotReplaced = 5, Refused = 6, Busy = 7 };

const QString exchanged = "new none none";
const QString untouched = "old new none";
const QStringList noStarts;

QStringList oneStart(const QString& version)
{
    const QString folder = TestSupport::sandboxApplicationFolder();
    return { version + " arguments=0 leader=1 folder=" + folder };
}

QDateTime dateOf(const QString& path)
{
    return QFileInfo(path).lastModified();
}

void setDate(const QString& path, const QDateTime& date)
{
    QFile file(path);
    QVERIFY(file.open(QIODevice::Append));
    QVERIFY(file.setFileTime(date, QFileDevice::FileModificationTime));
}

} // namespace

/// The updater as a program, in a player's folder.
class tst_Updater : public QObject {
    Q_OBJECT

private slots:
    void init()
    {
        QTest::failOnWarning(QRegularExpression(".*"));
        home = freshHome();
    }

    void exchangesOnceTheLauncherHasEnded()
    {
        RunningLauncher launcher(path("Halden-Launcher.exe"));
        const QString id = QString::number(launcher.id());
        QProcess updater;
        home->start(updater, { id });
        QTRY_COMPARE(home->logged("waiting for process " + id), 1);
        QCOMPARE(home->state(), untouched);
        launcher.end();
        QCOMPARE(UpdaterHome::finish(updater).code, Done);
        QCOMPARE(home->state(), exchanged);
        QCOMPARE(home->startedVersion(), "new");
        QCOMPARE(home->starts(), oneStart("new"));
        QCOMPARE(home->strangers(), QStringList());
    }

    void saysNothingWhenAllIsWell()
    {
        const UpdaterRun run = home->run(endedProcess());
        QCOMPARE(run.code, Done);
        QCOMPARE(run.message, QString());
    }

    void badArgumentsAreRefused_data()
    {
        QTest::addColumn<QStringList>("arguments");
        QTest::newRow("none") << QStringList();
        QTest::newRow("empty") << QStringList{ "" };
        QTest::newRow("a word") << QStringList{ "launcher" };
        QTest::newRow("zero") << QStringList{ "0" };
        QTest::newRow("negative") << QStringList{ "-1" };
        QTest::newRow("an option") << QStringList{ "--help" };
        QTest::newRow("too large") << QStringList{ "4294967296" };
        QTest::newRow("two") << QStringList{ "1", "2" };
    }

    void badArgumentsAreRefused()
    {
        QFETCH(QStringList, arguments);
        const QByteArray before = everything();
        QProcess updater;
        home->start(updater, arguments);
        const UpdaterRun run = UpdaterHome::finish(updater);
        QCOMPARE(run.code, Usage);
        QVERIFY2(run.message.startsWith("Halden-Launcher-Updater: usage error: "), "no message");
        QCOMPARE(home->logLines().filter("usage error: ").size(), 1);
        QCOMPARE(everything(), before);
        QCOMPARE(home->starts(), noStarts);
    }

    void idOfNoLauncherCountsAsEnded_data()
    {
        QTest::addColumn<qint64>("id");
        QTest::newRow("a process that is gone") << endedProcess();
        QTest::newRow("this test") << QCoreApplication::applicationPid();
        QTest::newRow("the first process") << qint64(1);
        QTest::newRow("beyond all processes") << qint64(4'000'000'000);
    }

    void idOfNoLauncherCountsAsEnded()
    {
        QFETCH(qint64, id);
        QCOMPARE(home->run(id).code, Done);
        QCOMPARE(home->state(), exchanged);
        QCOMPARE(home->starts(), oneStart("new"));
    }

    void launcherOfAnotherFolderCountsAsEnded()
    {
        const UpdaterHome other("/home/player/other");
        const RunningLauncher launcher(other.path("Halden-Launcher.exe"));
        QCOMPARE(home->run(launcher.id()).code, Done);
        QCOMPARE(
            home->logged(QString("process %1 is another program; the launcher has ended")
                             .arg(launcher.id())),
            1);
        QCOMPARE(home->state(), exchanged);
        QCOMPARE(other.state(), untouched);
    }

    void givesUpOnALauncherThatStays_data()
    {
        QTest::addColumn<QStringList>("wrapper");
        QTest::newRow("as it is") << QStringList();
        QTest::newRow("on a system without process descriptors")
            << Trace::fail("pidfd_open", "ENOSYS");
    }

    void givesUpOnALauncherThatStays()
    {
        QFETCH(QStringList, wrapper);
        RunningLauncher launcher(path("Halden-Launcher.exe"));
        const QByteArray before = everything();
        QCOMPARE(home->run(launcher.id(), wrapper).code, GaveUp);
        QCOMPARE(everything(), before);
        launcher.end();
        QCOMPARE(home->run(launcher.id(), wrapper).code, Done);
        QCOMPARE(home->state(), exchanged);
        QCOMPARE(home->starts(), oneStart("new"));
    }

    void waitsWithoutProcessDescriptors()
    {
        RunningLauncher launcher(path("Halden-Launcher.exe"));
        const QString id = QString::number(launcher.id());
        QProcess updater;
        home->start(updater, { id }, Trace::fail("pidfd_open", "ENOSYS"));
        QTRY_COMPARE(home->logged("waiting for process " + id), 1);
        QCOMPARE(home->state(), untouched);
        launcher.end();
        QCOMPARE(UpdaterHome::finish(updater).code, Done);
        QCOMPARE(home->state(), exchanged);
    }

    /// It still runs from the file that it was started from.
    void waitsForALauncherThatHasBeenReplaced()
    {
        RunningLauncher launcher(path("Halden-Launcher.exe"));
        home->placeLauncher(UpdaterHome::oldLauncher());
        QCOMPARE(home->run(launcher.id()).code, GaveUp);
        QCOMPARE(home->state(), untouched);
    }

    void newLauncherMayBeRunByWhoeverMayReadIt_data()
    {
        QTest::addColumn<int>("before");
        QTest::addColumn<int>("after");
        QTest::newRow("everybody") << 0x6044 << 0x7055;
        QTest::newRow("the group") << 0x6040 << 0x7050;
        QTest::newRow("the owner") << 0x6000 << 0x7000;
        QTest::newRow("nobody may write") << 0x4044 << 0x5055;
        QTest::newRow("done already") << 0x7055 << 0x7055;
        QTest::newRow("everybody may write") << 0x6066 << 0x7075;
    }

    void newLauncherMayBeRunByWhoeverMayReadIt()
    {
        QFETCH(int, before);
        QFETCH(int, after);
        QVERIFY(QFile::setPermissions(
            path("Halden-Launcher.tmp"), QFileDevice::Permissions(ownerAsUser(before))));
        QCOMPARE(home->run(endedProcess()).code, Done);
        QCOMPARE(int(home->launcherPermissions()), ownerAsUser(after));
    }

    void newLauncherKeepsItsDate()
    {
        const QDateTime date = TestSupport::utc(QDate(2024, 5, 1), QTime(8, 0));
        setDate(path("Halden-Launcher.tmp"), date);
        QCOMPARE(home->run(endedProcess()).code, Done);
        QCOMPARE(dateOf(path("Halden-Launcher.exe")), date);
    }

    void whatIsNoProgramIsRefused_data()
    {
        QTest::addColumn<QByteArray>("content");
        QTest::addColumn<QString>("reason");
        QTest::newRow("empty") << QByteArray() << "is empty";
        QTest::newRow("web page") << QByteArray("<!DOCTYPE html>\n<html>") << "is a web page";
        QTest::newRow("text") << QByteArray("502 Bad Gateway\n") << "is no program for this system";
        QTest::newRow("script") << QByteArray("#!/bin/sh\n") << "is no program for this system";
        QTest::newRow("cut program") << UpdaterHome::newLauncher().chopped(1) << "is cut short";
        QTest::newRow("for another processor")
            << foreignProgram() << "is a program for another processor";
    }

    void whatIsNoProgramIsRefused()
    {
        QFETCH(QByteArray, content);
        QFETCH(QString, reason);
        home->placeWaiting(content);
        QCOMPARE(home->run(endedProcess()).code, Refused);
        QCOMPARE(home->logged("refused Halden-Launcher.tmp, which " + reason), 1);
        verifyOldLauncherStandsAlone();
    }

    void linkIsRefused()
    {
        QVERIFY(QFile::remove(path("Halden-Launcher.tmp")));
        const QString target = "/home/player/elsewhere";
        writeFile(target, UpdaterHome::newLauncher());
        QVERIFY(QFile::link(target, path("Halden-Launcher.tmp")));
        QCOMPARE(home->run(endedProcess()).code, Refused);
        verifyOldLauncherStandsAlone();
        QCOMPARE(readFile(target), UpdaterHome::newLauncher());
    }

    void folderIsRefusedAndLeftAlone()
    {
        QVERIFY(QFile::remove(path("Halden-Launcher.tmp")));
        writeFile(path("Halden-Launcher.tmp/precious"), "content");
        QCOMPARE(home->run(endedProcess()).code, Refused);
        QCOMPARE(readFile(path("Halden-Launcher.tmp/precious")), "content");
        QCOMPARE(home->launcher(), "old");
        QCOMPARE(home->starts(), noStarts);
        QVERIFY(QDir(path("Halden-Launcher.tmp")).removeRecursively());
    }

    void programThatDoesNotStartIsTakenBack()
    {
        const QDateTime date = TestSupport::utc(QDate(2024, 5, 1), QTime(8, 0));
        setDate(path("Halden-Launcher.exe"), date);
        home->placeWaiting(unstartableProgram());
        QCOMPARE(home->run(endedProcess()).code, Refused);
        QCOMPARE(home->logged("put the old launcher back"), 1);
        QCOMPARE(dateOf(path("Halden-Launcher.exe")), date);
        verifyOldLauncherStandsAlone();
    }

    /// A copy with today's date would never be updated again.
    void copyThatIsTakenBackKeepsItsDate()
    {
        const QDateTime date = TestSupport::utc(QDate(2024, 5, 1), QTime(8, 0));
        setDate(path("Halden-Launcher.exe"), date);
        home->placeWaiting(unstartableProgram());
        QCOMPARE(home->run(endedProcess(), Trace::fail(Trace::links(), "EPERM")).code, Refused);
        QCOMPARE(dateOf(path("Halden-Launcher.exe")), date);
        verifyOldLauncherStandsAlone();
    }

    void sameLauncherIsStartedOnceMoreWithANewerDate_data()
    {
        QTest::addColumn<int>("hours");
        QTest::addColumn<int>("dateMovesBy");
        QTest::addColumn<QStringList>("starts");
        // A newer date lets the server answer 304 from now on; an older one
        // would let it send what is in place already.
        QTest::newRow("later download") << 5 << 5 << oneStart("old");
        QTest::newRow("earlier download") << -5 << 0 << noStarts;
    }

    void sameLauncherIsStartedOnceMoreWithANewerDate()
    {
        QFETCH(int, hours);
        QFETCH(int, dateMovesBy);
        QFETCH(QStringList, starts);
        const QDateTime date = TestSupport::utc(QDate(2024, 5, 1), QTime(8, 0));
        home->placeWaiting(UpdaterHome::oldLauncher());
        setDate(path("Halden-Launcher.exe"), date);
        setDate(path("Halden-Launcher.tmp"), date.addSecs(qint64{ hours } * 3600));
        QCOMPARE(home->run(endedProcess()).code, Nothing);
        QCOMPARE(home->logged("Halden-Launcher.tmp was the launcher in place"), 1);
        QCOMPARE(dateOf(path("Halden-Launcher.exe")), date.addSecs(qint64{ dateMovesBy } * 3600));
        verifyOldLauncherStandsAlone(starts);
    }

    void sameSizeIsNotTheSameLauncher()
    {
        QByteArray program = UpdaterHome::oldLauncher();
        program.back() = static_cast<char>(program.back() + 1);
        QCOMPARE(program.size(), UpdaterHome::oldLauncher().size());
        home->placeWaiting(program);
        QCOMPARE(home->run(endedProcess()).code, Done);
        QCOMPARE(readFile(path("Halden-Launcher.exe")), program);
    }

    void nothingIsDoneWithoutAWaitingLauncher()
    {
        QVERIFY(QFile::remove(path("Halden-Launcher.tmp")));
        QCOMPARE(home->run(endedProcess()).code, Nothing);
        verifyOldLauncherStandsAlone();
    }

    void missingLauncherIsReplacedAllTheSame()
    {
        QVERIFY(QFile::remove(path("Halden-Launcher.exe")));
        QCOMPARE(home->run(endedProcess()).code, Done);
        QCOMPARE(home->state(), exchanged);
        QCOMPARE(home->starts(), oneStart("new"));
    }

    void startedTwiceItExchangesOnce_data()
    {
        QTest::addColumn<int>("updaters");
        for (int n = 0; n < 10; ++n)
            QTest::addRow("two, round %d", n) << 2;
        QTest::newRow("eight") << 8;
    }

    void startedTwiceItExchangesOnce()
    {
        QFETCH(int, updaters);
        RunningLauncher launcher(path("Halden-Launcher.exe"));
        const QString id = QString::number(launcher.id());
        std::vector<QProcess> processes(static_cast<std::size_t>(updaters));
        for (QProcess& process : processes)
            home->start(process, { id });
        QTRY_COMPARE(home->logged("waiting for process " + id), updaters);
        launcher.end();
        QList<int> codes;
        for (QProcess& process : processes) {
            const UpdaterRun run = UpdaterHome::finish(process);
            QCOMPARE(run.message, QString());
            codes.append(run.code);
        }
        QCOMPARE(codes.count(Done), 1);
        QCOMPARE(codes.count(Done) + codes.count(Nothing) + codes.count(Busy), updaters);
        QCOMPARE(home->state(), exchanged);
        QCOMPARE(home->starts(), oneStart("new"));
    }

    void lateUpdaterLooksWhatIsLeft_data()
    {
        QTest::addColumn<bool>("waits");
        QTest::addColumn<int>("code");
        QTest::addColumn<QStringList>("starts");
        QTest::newRow("all is done") << false << int(Busy) << noStarts;
        QTest::newRow("a launcher waits") << true << int(Done) << oneStart("new");
    }

    /// The other one may be clearing away when there is something new to do.
    void lateUpdaterLooksWhatIsLeft()
    {
        QFETCH(bool, waits);
        QFETCH(int, code);
        QFETCH(QStringList, starts);
        QProcess late;
        {
            const LockHolder other(TestSupport::ApplicationFolder::path());
            home->start(late, { QString::number(endedProcess()) });
            QTRY_COMPARE(home->logged("another updater is at work"), 1);
            QCOMPARE(home->state(), untouched);
            if (!waits)
                QVERIFY(QFile::remove(path("Halden-Launcher.tmp")));
        }
        const UpdaterRun run = UpdaterHome::finish(late);
        QCOMPARE(run.code, code);
        QCOMPARE(run.message, QString());
        QCOMPARE(home->starts(), starts);
    }

    /// Whoever may read the folder can hold its lock.
    void lockThatIsNeverReleasedDelaysOnly()
    {
        const LockHolder other(TestSupport::ApplicationFolder::path());
        QCOMPARE(home->run(endedProcess()).code, Done);
        QCOMPARE(home->logged("went on without the lock, which is held for too long"), 1);
        QCOMPARE(home->state(), exchanged);
        QCOMPARE(home->starts(), oneStart("new"));
    }

    /// The system takes the lock back from the dead.
    void killedUpdaterHoldsUpNobody()
    {
        home->placeShippedUpdater();
        QProcess first;
        QProcess second;
        {
            const ReadOnlyFolder folder(TestSupport::ApplicationFolder::path());
            start(first);
            QTRY_VERIFY(first.peek(10'000).contains("trying again: "));
            start(second);
            QTRY_VERIFY(second.peek(10'000).contains("another updater is at work"));
            first.kill();
            UpdaterHome::finish(first);
        }
        QCOMPARE(UpdaterHome::finish(second).code, Done);
        QCOMPARE(home->state(), exchanged);
        QCOMPARE(home->starts(), oneStart("new"));
    }

    void readOnlyFolderIsLeftAsItIs()
    {
        {
            const ReadOnlyFolder folder(TestSupport::ApplicationFolder::path());
            const UpdaterRun run = home->run(endedProcess());
            QCOMPARE(run.code, NotReplaced);
            QVERIFY2(run.message.contains(": Permission denied\n"), qPrintable(run.message));
            QCOMPARE(home->state(), untouched);
            QCOMPARE(home->startedVersion(), "old");
            QCOMPARE(home->starts(), noStarts);
        }
        QCOMPARE(home->run(endedProcess()).code, Done);
        QCOMPARE(home->state(), exchanged);
    }

    void fullDiskDoesNotMatter()
    {
        HALDEN_NEEDS_SMALL_DISK();
        const UpdaterHome small("/small/Halden");
        const FullDisk disk("/small");
        QCOMPARE(small.run(endedProcess()).code, Done);
        QCOMPARE(small.state(), exchanged);
        QCOMPARE(small.starts().size(), 1);
    }

    void fullDiskWithoutLinksLeavesEverything()
    {
        HALDEN_NEEDS_SMALL_DISK();
        const UpdaterHome small("/small/Halden");
        {
            const FullDisk disk("/small");
            const QStringList noLinks = Trace::fail(Trace::links(), "EPERM");
            const UpdaterRun run = small.run(endedProcess(), noLinks);
            QCOMPARE(run.code, NotReplaced);
            QVERIFY2(run.message.contains(": No space left on device\n"), qPrintable(run.message));
            QCOMPARE(small.state(), untouched);
            QCOMPARE(small.strangers(), QStringList());
        }
        QCOMPARE(small.run(endedProcess()).code, Done);
        QCOMPARE(small.state(), exchanged);
    }

    void heldFileIsTriedAgain()
    {
        QCOMPARE(
            home->run(endedProcess(), Trace::fail(Trace::renames(), "EBUSY", 1, 3)).code, Done);
        QCOMPARE(home->state(), exchanged);
        QCOMPARE(home->starts(), oneStart("new"));
        // Said once, not at every attempt.
        QCOMPARE(home->logLines().filter("trying again: ").size(), 1);
        QCOMPARE(home->logLines().filter(": Device or resource busy").size(), 1);
    }

    void fileThatStaysHeldIsGivenUp()
    {
        const QStringList held = Trace::fail(Trace::renames(), "EBUSY");
        QCOMPARE(home->run(endedProcess(), held).code, NotReplaced);
        QCOMPARE(home->state(), untouched);
        QCOMPARE(home->strangers(), QStringList());
        QCOMPARE(home->starts(), noStarts);
        QCOMPARE(home->logLines().filter("gave up: ").size(), 1);
        QCOMPARE(home->run(endedProcess()).code, Done);
    }

    /// Another copy of the launcher runs, and somebody reads the file.
    void launcherInUseIsReplaced()
    {
        const RunningLauncher user(path("Halden-Launcher.exe"));
        QFile reader(path("Halden-Launcher.exe"));
        QVERIFY(reader.open(QIODevice::ReadOnly));
        QCOMPARE(home->run(endedProcess()).code, Done);
        QCOMPARE(home->state(), exchanged);
        QCOMPARE(reader.readAll(), UpdaterHome::oldLauncher());
    }

    void leftoversOfAKilledRunAreSettled_data()
    {
        QTest::addColumn<QString>("before");
        QTest::addColumn<int>("code");
        QTest::addColumn<QString>("after");
        QTest::addColumn<QStringList>("starts");
        QTest::newRow("copy made") << "old new old" << int(Done) << exchanged << oneStart("new");
        QTest::newRow("not started yet")
            << "new none old" << int(Done) << exchanged << oneStart("new");
        QTest::newRow("a still newer one waits")
            << "old new new" << int(Done) << exchanged << oneStart("new");
        QTest::newRow("launcher taken away")
            << "none none old" << int(Nothing) << "old none none" << noStarts;
        QTest::newRow("launcher taken away, new one waits")
            << "none new old" << int(Done) << exchanged << oneStart("new");
        QTest::newRow("waiting one taken away")
            << "old none old" << int(Nothing) << "old none none" << noStarts;
        QTest::newRow("the same one waits")
            << "new new old" << int(Done) << exchanged << oneStart("new");
    }

    void leftoversOfAKilledRunAreSettled()
    {
        QFETCH(QString, before);
        QFETCH(int, code);
        QFETCH(QString, after);
        QFETCH(QStringList, starts);
        arrange(before);
        writeFile(path("Halden-Launcher.old-new"), "half a copy");
        QCOMPARE(home->state(), before);
        QCOMPARE(home->run(endedProcess()).code, code);
        QCOMPARE(home->state(), after);
        QCOMPARE(home->strangers(), QStringList());
        QCOMPARE(home->starts(), starts);
    }

    void unstartedProgramIsTakenBackLater()
    {
        arrange("other none old");
        QCOMPARE(home->run(endedProcess()).code, Refused);
        verifyOldLauncherStandsAlone();
    }

    void logTellsWhatWasDoneAndWhen_data()
    {
        QTest::addColumn<QByteArray>("zone");
        QTest::addColumn<QString>("offset");
        QTest::newRow("Greenwich") << QByteArray("UTC") << "+00:00";
        QTest::newRow("east") << QByteArray("EAST-2") << "+02:00";
        QTest::newRow("west, half an hour") << QByteArray("WEST+3:30") << "-03:30";
    }

    void logTellsWhatWasDoneAndWhen()
    {
        QFETCH(QByteArray, zone);
        QFETCH(QString, offset);
        const QDateTime before = QDateTime::currentDateTimeUtc();
        home->run(endedProcess(), { "env", "TZ=" + zone });
        const QDateTime after = QDateTime::currentDateTimeUtc();
        static const QRegularExpression form(R"(^(\d{4}-\d\d-\d\dT\d\d:\d\d:\d\d\.\d{3}))"
                                             R"(([+-]\d\d:\d\d) \[\d+\] ([a-z].*)$)");
        QStringList messages;
        const QStringList lines = home->logLines();
        for (const QString& line : lines) {
            const QRegularExpressionMatch match = form.match(line);
            QVERIFY2(match.hasMatch(), qPrintable(line));
            QCOMPARE(match.captured(2), offset);
            const QDateTime time
                = QDateTime::fromString(match.captured(1) + offset, Qt::ISODateWithMs);
            QVERIFY2(time >= before && time <= after, qPrintable(line));
            messages.append(match.captured(3));
        }
        QCOMPARE(messages.size(), 4);
        QVERIFY(messages.at(0).startsWith("waiting for process "));
        QVERIFY(messages.at(1).endsWith(" has ended"));
        QCOMPARE(
            messages.mid(2),
            (QStringList{ "put the newer launcher in place", "started the launcher" }));
    }

    void logIsBounded_data()
    {
        QTest::addColumn<int>("lines");
        QTest::newRow("just too long") << 2621;
        QTest::newRow("far too long") << 50'000;
    }

    void logIsBounded()
    {
        QFETCH(int, lines);
        QByteArray text;
        for (int n = 1; n <= lines; ++n)
            text += QByteArray::number(n).rightJustified(99, '.') + '\n';
        writeFile(path("Halden-Launcher-Updater.log"), text);
        QCOMPARE(home->run(endedProcess()).code, Done);
        const QStringList kept = home->logLines();
        const qint64 size = QFileInfo(path("Halden-Launcher-Updater.log")).size();
        QVERIFY2(size > 131'000 && size < 132'000, qPrintable(QString::number(size)));
        QCOMPARE(kept.first().size(), 99);
        QCOMPARE(kept.at(kept.size() - 5).right(6), QString::number(lines).rightJustified(6, '.'));
        QVERIFY(kept.last().endsWith("started the launcher"));
        QCOMPARE(home->strangers(), QStringList());
    }

    void logThatFitsIsKept()
    {
        const QByteArray text = QByteArray(99, '.') + '\n';
        writeFile(path("Halden-Launcher-Updater.log"), text.repeated(2600));
        QCOMPARE(home->run(endedProcess()).code, Done);
        QCOMPARE(home->logLines().size(), 2604);
    }

    /// What the tests above have been spared.
    void shippedUpdaterWaitsAMinute()
    {
        home->placeShippedUpdater();
        RunningLauncher launcher(path("Halden-Launcher.exe"));
        QProcess updater;
        home->start(
            updater, { QString::number(launcher.id()) }, Trace::record("?poll,ppoll", "/tmp/poll"));
        const auto limit = [] {
            static const QRegularExpression form(R"(POLLIN\}\], 1, (\d+|\{tv_sec=\d+))");
            return form.match(readFile("/tmp/poll")).captured(1).remove("{tv_sec=");
        };
        QTRY_VERIFY(readFile("/tmp/poll").contains("POLLIN"));
        launcher.end();
        QCOMPARE(UpdaterHome::finish(updater).code, Done);
        QVERIFY2(QStringList({ "60000", "60" }).contains(limit()), qPrintable(limit()));
    }

    void shippedUpdaterTriesForAQuarterOfAMinute()
    {
        home->placeShippedUpdater();
        const QString sleeps = "?nanosleep,clock_nanosleep";
        QStringList tracer = Trace::record(sleeps, "/tmp/sleeps");
        tracer = Trace::both(tracer, Trace::skip(sleeps));
        const ReadOnlyFolder folder(TestSupport::ApplicationFolder::path());
        QCOMPARE(home->run(endedProcess(), tracer).code, NotReplaced);
        const QList<double> pauses = pausesIn("/tmp/sleeps");
        QVERIFY(std::is_sorted(pauses.begin(), pauses.end()));
        const double total = std::accumulate(pauses.begin(), pauses.end(), 0.0);
        QVERIFY2(total >= 15 && total < 30, qPrintable(QString::number(total)));
        QVERIFY2(pauses.size() >= 8 && pauses.first() <= 0.1, "the pauses do not grow");
    }

private:
    QString path(const QString& name) const
    {
        return home->path(name);
    }

    /// Its log is read from standard error.
    void start(QProcess& updater) const
    {
        home->start(updater, { QString::number(endedProcess()) });
        updater.setReadChannel(QProcess::StandardError);
    }

    /// Content and permissions of both launchers.
    QByteArray everything() const
    {
        QByteArray all;
        for (const QString name : { "Halden-Launcher.exe", "Halden-Launcher.tmp" }) {
            all += readFile(path(name));
            all += QByteArray::number(int(QFile::permissions(path(name))), 16);
            all += dateOf(path(name)).toString(Qt::ISODateWithMs).toUtf8();
        }
        return all + home->kept().toUtf8();
    }

    /// `state()` the other way round.
    void arrange(const QString& state)
    {
        const QStringList words = state.split(' ');
        const auto program = [](const QString& word) {
            if (word == "other")
                return unstartableProgram();
            return word == "old" ? UpdaterHome::oldLauncher() : UpdaterHome::newLauncher();
        };
        home->placeLauncher(program(words.at(0)));
        home->placeWaiting(program(words.at(1)));
        home->placeKept(program(words.at(2)));
        if (words.at(0) == "none")
            QVERIFY(QFile::remove(path("Halden-Launcher.exe")));
        if (words.at(1) == "none")
            QVERIFY(QFile::remove(path("Halden-Launcher.tmp")));
    }

    /// And a second run finds nothing more to do.
    void verifyOldLauncherStandsAlone(const QStringList& starts = noStarts)
    {
        QCOMPARE(home->state(), "old none none");
        QCOMPARE(home->startedVersion(), "old");
        QCOMPARE(home->strangers(), QStringList());
        QCOMPARE(home->starts(), starts);
        QCOMPARE(home->run(endedProcess()).code, Nothing);
        QCOMPARE(home->state(), "old none none");
    }

    /// What the toolkit calls owner and user is the same to the file system.
    static int ownerAsUser(int permissions)
    {
        return (permissions & 0x7077) | ((permissions & 0x7000) >> 4);
    }

    static QList<double> pausesIn(const QString& trace)
    {
        static const QRegularExpression form(R"(\{tv_sec=(\d+), tv_nsec=(\d+)\})");
        QList<double> seconds;
        const QList<SystemCall> calls = Trace::recorded(trace);
        for (const SystemCall& call : calls) {
            const QRegularExpressionMatch match = form.match(call.text);
            seconds.append(match.captured(1).toDouble() + match.captured(2).toDouble() / 1e9);
        }
        return seconds;
    }

    std::unique_ptr<UpdaterHome> home;
};

HALDEN_TEST_MAIN(tst_Updater)
#include "tst_updater.moc"
