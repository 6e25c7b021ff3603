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
#include <QFileInfo>
#include <QRegularExpression>

#include <algorithm>
#include <array>
#include <fcntl.h>
#include <memory>
#include <sys/stat.h>
#include <unistd.h>

using TestSupport::readFile;
using TestSupport::writeFile;

namespace {

enum Code { Done = 0, Nothing = 3, NotReplaced = 5, Refused = 6, Busy = 7 };

const QString launcherName = "Halden-Launcher.exe";
const QString waitingName = "Halden-Launcher.tmp";
const QString keptName = "Halden-Launcher.old";
const QString logName = "Halden-Launcher-Updater.log";
const QString shortenedLogName = "Halden-Launcher-Updater.log-new";
const QString exchanged = "new none none";
const QString oldAlone = "old none none";
const QString untouched = "old new none";
const QString elsewhere = "/home/player/elsewhere";

/// Longer than a log may become.
QByteArray longLog()
{
    return (QByteArray(99, '.') + '\n').repeated(3000);
}

} // namespace

/// What stands in the updater's way for a while or for good, by bad luck or by
/// somebody's doing.
class tst_UpdaterObstacles : public QObject {
    Q_OBJECT

private slots:
    void init()
    {
        QTest::failOnWarning(QRegularExpression(".*"));
        home = freshHome();
        QFile::remove(elsewhere);
    }

    void theKeptLauncherIsNeverLost_data()
    {
        QTest::addColumn<QByteArray>("waiting");
        QTest::newRow("a web page waits") << QByteArray("<!DOCTYPE html>");
        QTest::newRow("the same program waits") << unstartableProgram();
        QTest::newRow("another one that does not start waits") << unstartableProgram() + "2";
        QTest::newRow("a program for another processor waits") << foreignProgram();
    }

    /// In place is what does not start, by a run that was killed before it tried.
    void theKeptLauncherIsNeverLost()
    {
        QFETCH(QByteArray, waiting);
        home->placeLauncher(unstartableProgram());
        home->placeKept(UpdaterHome::oldLauncher());
        home->placeWaiting(waiting);
        QCOMPARE(run(), Refused);
        QCOMPARE(home->state(), oldAlone);
        QCOMPARE(home->startedVersion(), "old");
    }

    void whatDoesNotStartGivesWayToTheNextOne()
    {
        home->placeLauncher(unstartableProgram());
        home->placeKept(UpdaterHome::oldLauncher());
        QCOMPARE(run(), Done);
        QCOMPARE(home->state(), exchanged);
        QCOMPARE(starts(), QStringList("new"));
    }

    void newLauncherIsTriedThoughAWebPageWaits()
    {
        home->placeLauncher(UpdaterHome::newLauncher());
        home->placeKept(UpdaterHome::oldLauncher());
        home->placeWaiting("<!DOCTYPE html>");
        QCOMPARE(run(), Done);
        QCOMPARE(home->state(), exchanged);
        QCOMPARE(starts(), QStringList("new"));
    }

    /// Nothing can be put in place, but what stands there can be tried.
    void whatDoesNotStartIsTakenBackThoughNothingCanBeReplaced()
    {
        home->placeLauncher(unstartableProgram());
        home->placeKept(UpdaterHome::oldLauncher());
        QCOMPARE(run(Trace::fail("fsync", "EIO")), Refused);
        QCOMPARE(home->state(), untouched);
    }

    void unreadableKeptLauncherStays()
    {
        home->placeLauncher(unstartableProgram());
        home->placeKept(UpdaterHome::oldLauncher());
        QVERIFY(QFile::setPermissions(path(keptName), QFileDevice::WriteOwner));
        QCOMPARE(run(), NotReplaced);
        QVERIFY(QFile::exists(path(keptName)));
    }

    void logInTheWayIsLeftAlone_data()
    {
        QTest::addColumn<QString>("name");
        QTest::newRow("log") << logName;
        QTest::newRow("shortened log") << shortenedLogName;
    }

    void pipeInPlaceOfTheLogDoesNotHang_data()
    {
        logInTheWayIsLeftAlone_data();
    }

    void pipeInPlaceOfTheLogDoesNotHang()
    {
        QFETCH(QString, name);
        writeFile(path(logName), longLog());
        QFile::remove(path(name));
        QCOMPARE(mkfifo(qPrintable(path(name)), 0666), 0);
        QCOMPARE(run(), Done);
        QCOMPARE(home->state(), exchanged);
    }

    /// Somebody listens, so that it can be opened.
    void pipeWithAReaderIsNoLog()
    {
        QCOMPARE(mkfifo(qPrintable(path(logName)), 0666), 0);
        const int reader = open(qPrintable(path(logName)), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
        QVERIFY(reader >= 0);
        const UpdaterRun result = home->run(endedProcess());
        std::array<char, 64> text{};
        QCOMPARE(read(reader, text.data(), text.size()), 0);
        close(reader);
        QCOMPARE(result.code, Done);
        QVERIFY2(result.message.contains("started the launcher\n"), qPrintable(result.message));
    }

    void logInTheWayIsLeftAlone()
    {
        QFETCH(QString, name);
        writeFile(path(logName), longLog());
        QFile::remove(path(name));
        writeFile(elsewhere, longLog());
        QVERIFY(QFile::link(elsewhere, path(name)));
        QCOMPARE(run(), Done);
        QCOMPARE(readFile(elsewhere), longLog());
        QCOMPARE(home->state(), exchanged);
    }

    void momentIsWrongForAStart_data()
    {
        QTest::addColumn<QString>("error");
        QTest::newRow("no process is left") << "EAGAIN";
        QTest::newRow("no memory is left") << "ENOMEM";
    }

    void momentIsWrongForAStart()
    {
        QFETCH(QString, error);
        QCOMPARE(run(Trace::fail(Trace::starts(), error, 1, 3)), Done);
        QCOMPARE(home->state(), exchanged);
        QCOMPARE(starts(), QStringList("new"));
    }

    void momentStaysWrongForAStart_data()
    {
        momentIsWrongForAStart_data();
    }

    void momentStaysWrongForAStart()
    {
        QFETCH(QString, error);
        QCOMPARE(run(Trace::fail(Trace::starts(), error)), NotReplaced);
        QCOMPARE(home->logged("put the old launcher back"), 1);
        QCOMPARE(home->state(), untouched);
        verifyItIsMadeUpFor();
    }

    void programThatIsBeingWrittenIsNotThrownAway()
    {
        {
            QFile writer(path(waitingName));
            QVERIFY(writer.open(QIODevice::Append));
            QCOMPARE(run(), NotReplaced);
        }
        QCOMPARE(home->logLines().filter(": Text file busy").size(), 2);
        QCOMPARE(home->state(), untouched);
        verifyItIsMadeUpFor();
    }

    /// Without a second name for the new launcher it stays where it is.
    void momentStaysWrongForAStartAndTheDiskIsFull()
    {
        HALDEN_NEEDS_SMALL_DISK();
        const UpdaterHome small("/small/Halden");
        const FullDisk disk("/small");
        const QStringList noSecondName = Trace::fail(Trace::links(), "EPERM", 2);
        QCOMPARE(
            small
                .run(
                    endedProcess(),
                    Trace::both(Trace::fail(Trace::starts(), "EAGAIN"), noSecondName))
                .code,
            NotReplaced);
        QCOMPARE(small.state(), "new none old");
        QCOMPARE(small.run(endedProcess()).code, Done);
        QCOMPARE(small.state(), exchanged);
    }

    /// It waits nowhere else then, so that it does not hand itself over.
    void momentStaysWrongForAStartAndTheOldOneCannotBePutBack()
    {
        const QStringList heldInPlace = Trace::fail(Trace::renames(), "EACCES", 4);
        QCOMPARE(
            run(Trace::both(Trace::fail(Trace::starts(), "EAGAIN"), heldInPlace)), NotReplaced);
        QCOMPARE(home->state(), "new none old");
        QCOMPARE(home->strangers(), QStringList());
        verifyItIsMadeUpFor();
    }

    void sameLauncherTakesThePlaceWhereTheDateCannotBeSet()
    {
        home->placeWaiting(UpdaterHome::oldLauncher());
        const QDateTime date = longAgo();
        setDate(launcherName, date);
        setDate(waitingName, date.addSecs(3600));
        QCOMPARE(run(Trace::fail("utimensat", "EPERM")), Nothing);
        QCOMPARE(home->state(), oldAlone);
        QCOMPARE(dateOf(launcherName), date.addSecs(3600));
        QCOMPARE(starts(), QStringList("old"));
    }

    /// Then starting it again would go on for ever.
    void serverThatIgnoresDatesCausesNoEndlessStarts()
    {
        setDate(launcherName, longAgo());
        const QList<int> expected{ 1, 1, 2, 2 };
        for (const int count : expected) {
            home->placeWaiting(UpdaterHome::oldLauncher());
            setDate(waitingName, dateOf(launcherName).addSecs(7));
            QCOMPARE(run(), Nothing);
            QCOMPARE(home->starts().size(), count);
        }
    }

    void secondRefusalInARowLetsThePlayerPlay()
    {
        const QStringList held = Trace::fail(Trace::renames(), "EACCES", 1, 5);
        setDate(launcherName, longAgo());
        const QDateTime downloaded = longAgo().addDays(3);
        setDate(waitingName, downloaded);
        QCOMPARE(run(held), NotReplaced);
        QCOMPARE(home->state(), untouched);
        QCOMPARE(starts(), QStringList());
        QCOMPARE(run(held), NotReplaced);
        QCOMPARE(home->state(), oldAlone);
        QCOMPARE(starts(), QStringList("old"));
        // The server keeps back what cannot be put in place.
        QCOMPARE(dateOf(launcherName), downloaded);
        QCOMPARE(home->strangers(), QStringList());
    }

    /// Should the launcher hand over again at once, that is the first one again.
    void refusalsCauseNoEndlessStarts()
    {
        const QStringList held = Trace::fail(Trace::renames(), "EACCES", 1, 5);
        const QList<int> expected{ 0, 1, 1, 2, 2 };
        for (const int count : expected) {
            home->placeWaiting(UpdaterHome::newLauncher());
            QCOMPARE(run(held), NotReplaced);
            QCOMPARE(home->starts().size(), count);
        }
    }

    void readOnlyFolderLetsThePlayerPlay_data()
    {
        QTest::addColumn<bool>("log");
        QTest::newRow("with a log") << true;
        QTest::newRow("without a log") << false;
    }

    /// What waits cannot be removed, so each of the two updaters of a launcher that
    /// hands over again is one too many.
    void readOnlyFolderLetsThePlayerPlay()
    {
        QFETCH(bool, log);
        if (log)
            writeFile(path(logName), "");
        const ReadOnlyFolder folder(TestSupport::ApplicationFolder::path());
        const QList<int> expected{ 0, 1, 1, 2 };
        for (int launcher = 0; launcher < 4; ++launcher) {
            const qint64 id = 70'000 + launcher;
            QCOMPARE(home->run(id).code, NotReplaced);
            QCOMPARE(home->run(id).code, NotReplaced);
            QCOMPARE(home->starts().size(), expected.at(launcher));
            QCOMPARE(home->state(), untouched);
        }
        QCOMPARE(starts().constFirst(), "old");
    }

    void bothUpdatersOfOneLauncherRefuseOnce()
    {
        const QStringList held = Trace::fail(Trace::renames(), "EACCES", 1, 5);
        const qint64 id = endedProcess();
        for (int n = 0; n < 2; ++n) {
            QCOMPARE(home->run(id, held).code, NotReplaced);
            QCOMPARE(home->state(), untouched);
        }
        QCOMPARE(starts(), QStringList());
    }

    void exchangeBetweenRefusalsBreaksTheRow()
    {
        const QStringList held = Trace::fail(Trace::renames(), "EACCES", 1, 5);
        QCOMPARE(run(held), NotReplaced);
        QCOMPARE(run(), Done);
        home->placeWaiting(UpdaterHome::oldLauncher());
        QCOMPARE(run(held), NotReplaced);
        QCOMPARE(home->state(), "new old none");
        QCOMPARE(starts(), QStringList("new"));
    }

    void nobodyElsesRightsAreKept()
    {
        QCOMPARE(chmod(qPrintable(path(waitingName)), 07666), 0);
        QCOMPARE(run(), Done);
        struct stat status { };
        QCOMPARE(stat(qPrintable(path(launcherName)), &status), 0);
        QCOMPARE(status.st_mode & ALLPERMS, mode_t{ 0775 });
    }

    void launcherHearsEverySignal()
    {
        const QString program = "import os, signal, sys;"
                                "signal.pthread_sigmask(signal.SIG_BLOCK, range(1, 32));"
                                "signal.signal(signal.SIGINT, signal.SIG_IGN);"
                                "os.execv(sys.argv[1], sys.argv[1:])";
        QCOMPARE(run({ "python3", "-c", program }), Done);
        QCOMPARE(home->starts().size(), 1);
        QVERIFY2(
            !home->starts().constFirst().contains("deaf"), qPrintable(home->starts().constFirst()));
    }

    void goesOnWithoutAnyoneToTell_data()
    {
        QTest::addColumn<bool>("open");
        QTest::newRow("nobody reads") << true;
        QTest::newRow("nothing is open") << false;
    }

    /// Neither log nor standard error.
    void goesOnWithoutAnyoneToTell()
    {
        QFETCH(bool, open);
        QVERIFY(QDir().mkpath(path(logName)));
        const QString script = "import os, signal, sys;"
                               "signal.signal(signal.SIGPIPE, signal.SIG_DFL);"
                               "read, write = os.pipe(); os.close(read); os.dup2(write, 2);"
                               "os.execv(sys.argv[1], sys.argv[1:])";
        const QStringList nobodyReads{ "python3", "-c", script };
        const QStringList closed{ "sh", "-c", R"(exec "$0" "$@" <&- >&- 2>&-)" };
        QCOMPARE(run(open ? nobodyReads : closed), Done);
        QCOMPARE(home->state(), exchanged);
        QCOMPARE(starts(), QStringList("new"));
        QVERIFY(QDir().rmdir(path(logName)));
    }

    void oldLauncherThatStaysStartsNothingTwice()
    {
        // The first removals make room for it, and there is nothing yet.
        QCOMPARE(run(Trace::fail(Trace::removals(), "EPERM", 3)), Done);
        QCOMPARE(home->state(), "new none old");
        QCOMPARE(run(Trace::fail(Trace::removals(), "EPERM")), Nothing);
        QCOMPARE(starts(), QStringList("new"));
        home->placeWaiting(UpdaterHome::oldLauncher());
        QCOMPARE(run(), Done);
        QCOMPARE(home->state(), oldAlone);
    }

    void folderWithoutLocksIsNoObstacle_data()
    {
        QTest::addColumn<QString>("error");
        QTest::newRow("wants a file open for writing") << "EBADF";
        QTest::newRow("has no locks left") << "ENOLCK";
        QTest::newRow("does not know locks") << "EOPNOTSUPP";
    }

    void folderWithoutLocksIsNoObstacle()
    {
        QFETCH(QString, error);
        RunningLauncher launcher(path(launcherName));
        const QString id = QString::number(launcher.id());
        std::array<QProcess, 4> updaters;
        for (QProcess& updater : updaters)
            home->start(updater, { id }, Trace::fail("flock", error));
        QTRY_COMPARE(home->logged("waiting for process " + id), 4);
        launcher.end();
        QList<int> codes;
        for (QProcess& updater : updaters)
            codes.append(UpdaterHome::finish(updater).code);
        std::sort(codes.begin(), codes.end());
        QCOMPARE(codes.takeFirst(), Done);
        for (const int code : codes)
            QVERIFY2(code == Busy || code == Nothing, qPrintable(QString::number(code)));
        QCOMPARE(home->state(), exchanged);
        QCOMPARE(starts(), QStringList("new"));
    }

    void folderWithoutAnyLockIsNoObstacle()
    {
        const QStringList neither
            = Trace::both(Trace::fail("flock", "EBADF"), Trace::fail("bind", "EACCES"));
        QCOMPARE(run(neither), Done);
        QCOMPARE(home->state(), exchanged);
        QCOMPARE(home->logged("went on without a lock: lock the folder: Permission denied"), 1);
    }

private:
    QString path(const QString& name) const
    {
        return home->path(name);
    }

    /// By another launcher each time.
    int run(const QStringList& wrapper = {}) const
    {
        static qint64 last = 0;
        qint64 id = endedProcess();
        while (id == last)
            id = endedProcess();
        last = id;
        return home->run(id, wrapper).code;
    }

    /// Their versions.
    QStringList starts() const
    {
        QStringList versions = home->starts();
        for (QString& start : versions)
            start = start.section(' ', 0, 0);
        return versions;
    }

    static QDateTime longAgo()
    {
        return TestSupport::utc(QDate(2024, 5, 1), QTime(8, 0));
    }

    QDateTime dateOf(const QString& name) const
    {
        return QFileInfo(path(name)).lastModified();
    }

    void setDate(const QString& name, const QDateTime& date) const
    {
        QFile file(path(name));
        QVERIFY(file.open(QIODevice::Append));
        QVERIFY(file.setFileTime(date, QFileDevice::FileModificationTime));
    }

    void verifyItIsMadeUpFor()
    {
        QCOMPARE(starts(), QStringList());
        QCOMPARE(run(), Done);
        QCOMPARE(home->state(), exchanged);
        QCOMPARE(starts(), QStringList("new"));
    }

    std::unique_ptr<UpdaterHome> home;
};

HALDEN_TEST_MAIN(tst_UpdaterObstacles)
#include "tst_updaterobstacles.moc"
