#include "tests/support/applicationfolder.h"
#include "tests/support/reporter.h"
#include "tests/support/testmain.h"
#include "tests/support/timezone.h"
#include "updater/exitcode.h"

#include <QDateTime>
#include <QDir>
#include <QFile>
#include <QProcess>

#include <string>

#include <windows.h>

using namespace TestSupport;
using Updater::ExitCode;

namespace {

const QString launcher = "Halden-Launcher.exe";
const QString waiting = "Halden-Launcher.tmp";
const QString kept = "Halden-Launcher.old";
const QString updaterName = "Halden-Launcher-Updater.exe";

/// As players have it, with an umlaut and a blank.
QString folder()
{
    return "C:/users/Jörg Müller/AppData/Local/Programs/Halden Launcher";
}

QString path(const QString& name)
{
    return folder() + '/' + name;
}

QString report()
{
    return path("starts.txt");
}

/// Programs that run alike and are not the same to the byte.
QByteArray program(const QByteArray& mark)
{
    return readFile(HALDEN_REPORTER_PROGRAM) + mark;
}

void place(const QString& name, const QByteArray& content)
{
    QFile::remove(path(name));
    writeFile(path(name), content);
}

QString started()
{
    QStringList all;
    const auto starts = reportedStarts(report());
    for (const QStringList& start : starts)
        all.append(start.join('|'));
    return all.join('\n');
}

/// One start of the new launcher, in its own folder and without arguments.
QString oneStart()
{
    return path(launcher) + '|' + folder();
}

QByteArray updaterLog()
{
    return readFile(path("Halden-Launcher-Updater.log"));
}

QDateTime dateOf(const QString& name)
{
    return QFileInfo(path(name)).lastModified();
}

void setDate(const QString& name, const QDateTime& date)
{
    QFile file(path(name));
    QVERIFY(file.open(QIODevice::ReadWrite));
    QVERIFY(file.setFileTime(date, QFileDevice::FileModificationTime));
}

/// Id of a process that has come and gone.
qint64 endedProcess()
{
    QProcess process;
    process.start(path(updaterName), QStringList());
    process.waitForStarted();
    const qint64 id = process.processId();
    process.waitForFinished();
    return id;
}

/// A file as a virus scanner or a slow process has it: open, for nobody to replace.
class HeldFile {
public:
    explicit HeldFile(const QString& file)
        : handle(CreateFileW(
            reinterpret_cast<const wchar_t*>(QDir::toNativeSeparators(file).utf16()), GENERIC_READ,
            FILE_SHARE_READ, nullptr, OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr))
    {
        if (handle == INVALID_HANDLE_VALUE)
            qFatal("cannot open %s", qPrintable(file));
    }
    ~HeldFile()
    {
        CloseHandle(handle);
    }
    HeldFile(const HeldFile&) = delete;
    HeldFile& operator=(const HeldFile&) = delete;

private:
    HANDLE handle;
};

std::wstring native(const QString& file)
{
    return QDir::toNativeSeparators(file).toStdWString();
}

/// Shared with everybody; Windows starts nothing that is open for writing.
class FileBeingWritten {
public:
    explicit FileBeingWritten(const QString& file)
        : handle(CreateFileW(
            native(file).c_str(), GENERIC_WRITE,
            FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr, OPEN_EXISTING,
            FILE_ATTRIBUTE_NORMAL, nullptr))
    {
        if (handle == INVALID_HANDLE_VALUE)
            qFatal("cannot open %s", qPrintable(file));
    }
    ~FileBeingWritten()
    {
        CloseHandle(handle);
    }
    FileBeingWritten(const FileBeingWritten&) = delete;
    FileBeingWritten& operator=(const FileBeingWritten&) = delete;

private:
    HANDLE handle;
};

/// The name under which updaters exclude each other in the folder.
std::wstring lockName()
{
    HANDLE opened = CreateFileW(
        native(folder()).c_str(), 0, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE,
        nullptr, OPEN_EXISTING, FILE_FLAG_BACKUP_SEMANTICS, nullptr);
    BY_HANDLE_FILE_INFORMATION data{};
    if (GetFileInformationByHandle(opened, &data) == FALSE)
        qFatal("cannot look at the folder");
    CloseHandle(opened);
    const auto hexadecimal = [](DWORD number) {
        return QString("%1").arg(number, 8, 16, QChar('0'));
    };
    return QString("Global\\Halden-Launcher-Updater-%1-%2%3")
        .arg(
            hexadecimal(data.dwVolumeSerialNumber), hexadecimal(data.nFileIndexHigh),
            hexadecimal(data.nFileIndexLow))
        .toStdWString();
}

void makeReadOnly(const QString& name)
{
    if (SetFileAttributesW(native(path(name)).c_str(), FILE_ATTRIBUTE_READONLY) == FALSE)
        qFatal("cannot make %s read-only", qPrintable(name));
}

} // namespace

/// The updater at work as on a player's machine. The program in the launcher's
/// place reports its starts.
class tst_Exchange : public QObject {
    Q_OBJECT

private slots:
    void init()
    {
        QDir(folder()).removeRecursively();
        place(updaterName, readFile(HALDEN_HASTY_UPDATER));
        place(launcher, program("old"));
        place(waiting, program("new"));
        place(launcher + ".report", report().toUtf8());
    }

    void cleanup()
    {
        QTRY_VERIFY(!isRunning(launcher));
    }

    void exchangesWhenTheLauncherHasEnded()
    {
        QCOMPARE(run(endedProcess()), ExitCode::Done);
        QCOMPARE(readFile(path(launcher)), program("new"));
        QTRY_COMPARE(started(), oneStart());
        QVERIFY(!QFile::exists(path(waiting)));
        QVERIFY(!QFile::exists(path("Halden-Launcher.old")));
        QCOMPARE(updaterLog().count("put the newer launcher in place\n"), 1);
    }

    void waitsForTheLauncher()
    {
        QProcess running;
        startLauncher(running);
        QProcess updater;
        start(updater, running.processId());
        const QByteArray id = QByteArray::number(running.processId());
        QTRY_VERIFY(updaterLog().contains("waiting for process " + id + '\n'));
        QCOMPARE(readFile(path(launcher)), program("old"));
        running.kill();
        QVERIFY(running.waitForFinished());
        QCOMPARE(finish(updater), ExitCode::Done);
        QCOMPARE(readFile(path(launcher)), program("new"));
    }

    void givesUpOnALauncherThatStays()
    {
        QProcess running;
        startLauncher(running);
        QCOMPARE(run(running.processId()), ExitCode::GaveUpWaiting);
        QCOMPARE(readFile(path(launcher)), program("old"));
        QCOMPARE(readFile(path(waiting)), program("new"));
        running.kill();
        QVERIFY(running.waitForFinished());
    }

    void anotherProgramWithThatIdIsNotWaitedFor()
    {
        QCOMPARE(run(QCoreApplication::applicationPid()), ExitCode::Done);
        QVERIFY(updaterLog().contains(" is another program; the launcher has ended\n"));
        QTRY_COMPARE(started(), oneStart());
    }

    void usageTouchesNothing_data()
    {
        QTest::addColumn<QStringList>("arguments");
        QTest::newRow("nothing") << QStringList();
        QTest::newRow("no number") << QStringList("launcher");
        QTest::newRow("two") << QStringList({ "1", "2" });
    }

    void usageTouchesNothing()
    {
        QFETCH(QStringList, arguments);
        QProcess updater;
        updater.start(path(updaterName), arguments);
        QCOMPARE(finish(updater), ExitCode::Usage);
        QCOMPARE(readFile(path(launcher)), program("old"));
        QCOMPARE(readFile(path(waiting)), program("new"));
    }

    void whatIsNoProgramIsRefused_data()
    {
        QTest::addColumn<QByteArray>("content");
        QTest::newRow("empty") << QByteArray();
        QTest::newRow("web page") << QByteArray("<!DOCTYPE html>\n<html>");
        QTest::newRow("text") << QByteArray("502 Bad Gateway\n");
        QTest::newRow("cut program") << readFile(HALDEN_REPORTER_PROGRAM).left(5'000);
        QTest::newRow("program for Linux") << readFile("C:/usr/bin/true");
    }

    void whatIsNoProgramIsRefused()
    {
        QFETCH(QByteArray, content);
        place(waiting, content);
        QCOMPARE(run(endedProcess()), ExitCode::RefusedFile);
        QCOMPARE(readFile(path(launcher)), program("old"));
        QVERIFY(!QFile::exists(path(waiting)));
        QCOMPARE(started(), QString());
    }

    void theSameLauncherIsStartedOnceMoreWithItsNewerDate()
    {
        const QDateTime date = utc(QDate(2024, 5, 1), QTime(8, 0));
        place(waiting, program("old"));
        setDate(launcher, date);
        setDate(waiting, date.addSecs(3600));
        QCOMPARE(run(endedProcess()), ExitCode::NothingToDo);
        QVERIFY(!QFile::exists(path(waiting)));
        QCOMPARE(dateOf(launcher), date.addSecs(3600));
        QTRY_COMPARE(started(), oneStart());
    }

    void readOnlyFilesAreReplaced_data()
    {
        QTest::addColumn<QString>("name");
        QTest::newRow("launcher") << launcher;
        QTest::newRow("newer launcher") << waiting;
    }

    void readOnlyFilesAreReplaced()
    {
        QFETCH(QString, name);
        makeReadOnly(name);
        QCOMPARE(run(endedProcess()), ExitCode::Done);
        QCOMPARE(readFile(path(launcher)), program("new"));
        QVERIFY(!QFile::exists(path(kept)));
        QTRY_COMPARE(started(), oneStart());
    }

    void whatIsNoProgramAndReadOnlyIsRefused()
    {
        place(waiting, "502 Bad Gateway\n");
        makeReadOnly(waiting);
        QCOMPARE(run(endedProcess()), ExitCode::RefusedFile);
        QVERIFY(!QFile::exists(path(waiting)));
    }

    /// What does not start was put in place by a run that was killed.
    void theKeptLauncherIsNeverLost_data()
    {
        QTest::addColumn<QByteArray>("content");
        QTest::newRow("a web page waits") << QByteArray("<!DOCTYPE html>");
        QTest::newRow("the same waits") << QByteArray("no program");
    }

    void theKeptLauncherIsNeverLost()
    {
        QFETCH(QByteArray, content);
        place(launcher, "no program");
        place(kept, program("old"));
        place(waiting, content);
        QCOMPARE(run(endedProcess()), ExitCode::RefusedFile);
        QCOMPARE(readFile(path(launcher)), program("old"));
        QVERIFY(!QFile::exists(path(waiting)));
    }

    void aProgramThatIsBeingWrittenIsNotThrownAway()
    {
        {
            const FileBeingWritten scanned(path(waiting));
            QCOMPARE(run(endedProcess()), ExitCode::CouldNotReplace);
        }
        QVERIFY2(
            updaterLog().contains("trying again: start Halden-Launcher.exe: "),
            updaterLog().constData());
        // It is not replaced either while it is open, so that both launchers stay.
        QCOMPARE(readFile(path(launcher)), program("new"));
        QCOMPARE(readFile(path(kept)), program("old"));
        QCOMPARE(run(endedProcess()), ExitCode::Done);
        QVERIFY(!QFile::exists(path(waiting)));
        QVERIFY(!QFile::exists(path(kept)));
        QTRY_COMPARE(started(), oneStart());
    }

    void theSecondRefusalInARowLetsThePlayerPlay()
    {
        setDate(waiting, dateOf(launcher).addSecs(3600));
        const QDateTime downloaded = dateOf(waiting);
        {
            const HeldFile scanned(path(launcher));
            QCOMPARE(run(endedProcess()), ExitCode::CouldNotReplace);
            QCOMPARE(started(), QString());
            QCOMPARE(run(endedProcess()), ExitCode::CouldNotReplace);
        }
        QTRY_COMPARE(started(), oneStart());
        QCOMPARE(readFile(path(launcher)), program("old"));
        QCOMPARE(dateOf(launcher), downloaded);
        QVERIFY(!QFile::exists(path(waiting)));
    }

    void aLockThatIsNeverReleasedDelaysOnly()
    {
        HANDLE mutex = CreateMutexW(nullptr, TRUE, lockName().c_str());
        QVERIFY(mutex != nullptr);
        const ExitCode code = run(endedProcess());
        CloseHandle(mutex);
        QVERIFY(updaterLog().contains("another updater is at work\n"));
        QCOMPARE(code, ExitCode::Done);
        QTRY_COMPARE(started(), oneStart());
    }

    void aLockOfAnotherKindIsNoObstacle()
    {
        HANDLE event = CreateEventW(nullptr, TRUE, FALSE, lockName().c_str());
        QVERIFY(event != nullptr);
        const ExitCode code = run(endedProcess());
        CloseHandle(event);
        QVERIFY(updaterLog().contains("went on without a lock: "));
        QCOMPARE(code, ExitCode::Done);
        QTRY_COMPARE(started(), oneStart());
    }

    /// As on disks that some programs make out of memory.
    void aSystemThatTellsNoPathsMakesNoProcessTheLauncher()
    {
        place(updaterName, readFile(HALDEN_PATHLESS_UPDATER));
        QCOMPARE(run(QCoreApplication::applicationPid()), ExitCode::Done);
        QVERIFY(updaterLog().contains(" is another program; the launcher has ended\n"));
        QTRY_COMPARE(started(), oneStart());
    }

    void aSystemThatTellsNoPathsStillTellsTheLauncher()
    {
        place(updaterName, readFile(HALDEN_PATHLESS_UPDATER));
        QProcess running;
        startLauncher(running);
        QCOMPARE(run(running.processId()), ExitCode::GaveUpWaiting);
        running.kill();
        QVERIFY(running.waitForFinished());
    }

    void theNewLauncherKeepsItsDate()
    {
        const QDateTime date = utc(QDate(2024, 5, 1), QTime(8, 0));
        setDate(waiting, date);
        QCOMPARE(run(endedProcess()), ExitCode::Done);
        QCOMPARE(dateOf(launcher), date);
        QTRY_COMPARE(started(), oneStart());
    }

    /// Its other name is no way around that either.
    void aLauncherThatIsOpenElsewhereStays()
    {
        {
            const HeldFile scanned(path(launcher));
            QCOMPARE(run(endedProcess()), ExitCode::CouldNotReplace);
        }
        QCOMPARE(readFile(path(launcher)), program("old"));
        QCOMPARE(readFile(path(waiting)), program("new"));
        QVERIFY2(
            updaterLog().contains("trying again: rename Halden-Launcher.old-new to "),
            updaterLog().constData());
        QCOMPARE(run(endedProcess()), ExitCode::Done);
        QTRY_COMPARE(started(), oneStart());
        QVERIFY(!QFile::exists(path("Halden-Launcher.old-new")));
    }

    void twoUpdatersExchangeOnce()
    {
        QProcess running;
        startLauncher(running);
        QProcess first;
        QProcess second;
        start(first, running.processId());
        start(second, running.processId());
        QTRY_COMPARE(updaterLog().count("waiting for process "), 2);
        running.kill();
        QVERIFY(running.waitForFinished());
        QList<ExitCode> codes{ finish(first), finish(second) };
        QVERIFY2(codes.removeOne(ExitCode::Done), qPrintable(updaterLog()));
        // The other one comes at the same time or too late.
        QVERIFY2(
            codes.constFirst() == ExitCode::AnotherHasDoneIt
                || codes.constFirst() == ExitCode::NothingToDo,
            updaterLog().constData());
        QTRY_COMPARE(started(), oneStart());
        QCOMPARE(updaterLog().count("started the launcher\n"), 1);
    }

private:
    /// A launcher that stays until it is killed.
    static void startLauncher(QProcess& running)
    {
        running.start(path(launcher), QStringList("--stay"));
        QVERIFY(running.waitForStarted());
    }

    static void start(QProcess& updater, qint64 id)
    {
        updater.start(path(updaterName), QStringList(QString::number(id)));
        QVERIFY(updater.waitForStarted());
    }

    static ExitCode finish(QProcess& updater)
    {
        if (!QTest::qWaitFor(
                [&updater] { return updater.state() == QProcess::NotRunning; }, patience)
            || updater.exitStatus() != QProcess::NormalExit)
            qFatal("the updater does not end");
        return ExitCode(updater.exitCode());
    }

    static ExitCode run(qint64 id)
    {
        QProcess updater;
        start(updater, id);
        return finish(updater);
    }
};

HALDEN_TEST_MAIN(tst_Exchange)
#include "tst_exchange.moc"
