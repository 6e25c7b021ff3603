#include "tests/updater/updaterhome.h"

#include "tests/support/applicationfolder.h"
#include "tests/support/processes.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QProcessEnvironment>
#include <QTest>

#include <algorithm>
#include <tuple>
#include <utility>

using TestSupport::readFile;
using TestSupport::writeFile;

namespace {

constexpr auto notRunnable = QFileDevice::ReadOwner | QFileDevice::WriteOwner
    | QFileDevice::ReadGroup | QFileDevice::ReadOther;
constexpr auto runnable
    = notRunnable | QFileDevice::ExeOwner | QFileDevice::ExeGroup | QFileDevice::ExeOther;

void place(const QString& path, const QByteArray& content, QFileDevice::Permissions permissions)
{
    QFile::remove(path);
    writeFile(path, content);
    if (!QFile::setPermissions(path, permissions))
        qFatal("cannot set the permissions of %s", qPrintable(path));
}

QByteArray program(const char* path)
{
    QByteArray content = readFile(path);
    if (content.isEmpty())
        qFatal("there is no %s", path);
    return content;
}

} // namespace

UpdaterHome::UpdaterHome(QString where)
    : folder(std::move(where))
    , record("/tmp/starts-" + QString::number(qHash(folder)))
{
    QDir().mkpath(folder);
    place(path("Halden-Launcher-Updater.exe"), program(HALDEN_HASTY_UPDATER), runnable);
    reset();
}

QString UpdaterHome::path(const QString& name) const
{
    return folder + '/' + name;
}

QByteArray UpdaterHome::oldLauncher()
{
    static const QByteArray content = program(HALDEN_OLD_STANDIN);
    return content;
}

QByteArray UpdaterHome::newLauncher()
{
    static const QByteArray content = program(HALDEN_NEW_STANDIN);
    return content;
}

void UpdaterHome::reset() const
{
    // What an earlier test has left running would still write.
    std::ignore = starts();
    for (const QString& name : strangers() + QStringList{ "Halden-Launcher-Updater.log" })
        QFile::remove(path(name));
    QFile::remove(path("Halden-Launcher.old"));
    placeLauncher(oldLauncher());
    placeWaiting(newLauncher());
    QFile::remove(record);
}

void UpdaterHome::placeLauncher(const QByteArray& content) const
{
    place(path("Halden-Launcher.exe"), content, runnable);
}

void UpdaterHome::placeWaiting(const QByteArray& content) const
{
    place(path("Halden-Launcher.tmp"), content, notRunnable);
}

void UpdaterHome::placeKept(const QByteArray& content) const
{
    place(path("Halden-Launcher.old"), content, runnable);
}

void UpdaterHome::placeShippedUpdater() const
{
    place(path("Halden-Launcher-Updater.exe"), program(HALDEN_SHIPPED_UPDATER), runnable);
}

void UpdaterHome::start(
    QProcess& updater, const QStringList& arguments, const QStringList& wrapper) const
{
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert("HALDEN_STANDIN_RECORD", record);
    // A leak check does not work in a traced process.
    environment.insert("ASAN_OPTIONS", "detect_leaks=0");
    updater.setProcessEnvironment(environment);
    updater.setWorkingDirectory("/");
    QStringList command = wrapper;
    command += path("Halden-Launcher-Updater.exe");
    command += arguments;
    const QString first = command.takeFirst();
    updater.start(first, command);
    if (!updater.waitForStarted())
        qFatal("cannot start %s: %s", qPrintable(first), qPrintable(updater.errorString()));
}

UpdaterRun UpdaterHome::finish(QProcess& updater)
{
    if (updater.state() != QProcess::NotRunning && !updater.waitForFinished())
        qFatal("the updater does not end: %s", qPrintable(updater.errorString()));
    const bool ended = updater.exitStatus() == QProcess::NormalExit;
    return { ended ? updater.exitCode() : -1, QString::fromUtf8(updater.readAllStandardError()) };
}

UpdaterRun UpdaterHome::run(qint64 id, const QStringList& wrapper) const
{
    QProcess updater;
    start(updater, { QString::number(id) }, wrapper);
    return finish(updater);
}

QString UpdaterHome::launcher() const
{
    return whichIs("Halden-Launcher.exe");
}

QString UpdaterHome::waiting() const
{
    return whichIs("Halden-Launcher.tmp");
}

QString UpdaterHome::kept() const
{
    return whichIs("Halden-Launcher.old");
}

QString UpdaterHome::state() const
{
    return launcher() + ' ' + waiting() + ' ' + kept();
}

QString UpdaterHome::startedVersion() const
{
    QProcess process;
    process.start(path("Halden-Launcher.exe"), { "version" });
    const bool ended = process.waitForFinished() && process.exitStatus() == QProcess::NormalExit;
    return ended ? QString::fromUtf8(process.readAllStandardOutput().trimmed()) : QString();
}

QStringList UpdaterHome::strangers() const
{
    const QStringList known{ "Halden-Launcher.exe", "Halden-Launcher.tmp", "Halden-Launcher.old",
                             "Halden-Launcher-Updater.exe", "Halden-Launcher-Updater.log" };
    QStringList found;
    const QStringList names = QDir(folder).entryList(
        QDir::AllEntries | QDir::Hidden | QDir::System | QDir::NoDotAndDotDot);
    for (const QString& name : names) {
        if (!known.contains(name) && path(name) != QCoreApplication::applicationFilePath())
            found.append(name);
    }
    return found;
}

QFileDevice::Permissions UpdaterHome::launcherPermissions() const
{
    return QFile::permissions(path("Halden-Launcher.exe"));
}

QStringList UpdaterHome::starts() const
{
    if (!QTest::qWaitFor([this] { return !somethingIsRunning(); }))
        qFatal("a launcher or an updater does not end");
    return QString::fromUtf8(readFile(record)).split('\n', Qt::SkipEmptyParts);
}

QStringList UpdaterHome::logLines() const
{
    return QString::fromUtf8(readFile(path("Halden-Launcher-Updater.log")))
        .split('\n', Qt::SkipEmptyParts);
}

qsizetype UpdaterHome::logged(const QString& end) const
{
    const QStringList lines = logLines();
    return std::count_if(
        lines.begin(), lines.end(), [&end](const QString& line) { return line.endsWith(end); });
}

/// Also one whose file has been replaced since. For a moment after its start a
/// launcher still passes for the updater that has started it.
bool UpdaterHome::somethingIsRunning() const
{
    const auto isOurs = [this](const QString& program) {
        return program.startsWith(path("Halden-Launcher"));
    };
    return !TestSupport::processesOf(isOurs).isEmpty();
}

QString UpdaterHome::whichIs(const QString& name) const
{
    if (!QFileInfo::exists(path(name)))
        return "none";
    const QByteArray content = readFile(path(name));
    if (content == oldLauncher())
        return "old";
    return content == newLauncher() ? "new" : "other";
}

std::unique_ptr<UpdaterHome> freshHome()
{
    TestSupport::ApplicationFolder::clear();
    return std::make_unique<UpdaterHome>(TestSupport::ApplicationFolder::path());
}

RunningLauncher::RunningLauncher(const QString& program)
{
    process.start(program, { "stay" });
    if (!process.waitForStarted())
        qFatal("cannot start %s: %s", qPrintable(program), qPrintable(process.errorString()));
    processId = process.processId();
}

RunningLauncher::~RunningLauncher()
{
    process.kill();
    process.waitForFinished();
}

qint64 RunningLauncher::id() const
{
    return processId;
}

void RunningLauncher::end()
{
    process.closeWriteChannel();
    if (!process.waitForFinished())
        qFatal("the launcher does not end");
}

qint64 endedProcess()
{
    QProcess process;
    process.start("true");
    process.waitForStarted();
    const qint64 id = process.processId();
    if (!process.waitForFinished())
        qFatal("a process does not end");
    return id;
}
