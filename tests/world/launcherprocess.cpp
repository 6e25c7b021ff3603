#include "tests/world/launcherprocess.h"

#include "tests/support/patience.h"
#include "tests/support/processes.h"
#include "tests/support/promptwait.h"
#include "tests/support/runlog.h"
#include "tests/world/player.h"

#include <QDir>
#include <QFile>
#include <QProcessEnvironment>

#include <utility>

using namespace TestSupport;

namespace {

// Characters. The test library cuts a message off behind the first thousand.
constexpr qsizetype reportedLog = 800;

QString asCaptured(const QString& line)
{
    return line.startsWith("ErrorNo:") ? "warning: " + line : line;
}

} // namespace

LauncherProcess::LauncherProcess(QString folder)
    : home(std::move(folder))
{
    QDir().mkpath(home);
    if (!QFile::exists(program()) && !QFile::copy(HALDEN_LAUNCHER_PROGRAM, program()))
        qFatal("cannot copy the launcher");
    QObject::connect(&process, &QProcess::readyReadStandardError, &process, [this] {
        while (process.canReadLine())
            lines.append(asCaptured(QString::fromUtf8(process.readLine().trimmed())));
    });
    process.setReadChannel(QProcess::StandardError);
    process.setWorkingDirectory(home);
}

LauncherProcess::~LauncherProcess()
{
    stop();
}

QString LauncherProcess::path(const QString& name) const
{
    return name.isEmpty() ? home : home + '/' + name;
}

QString LauncherProcess::program() const
{
    return path("Halden-Launcher");
}

void LauncherProcess::setVariable(const QString& name, const QString& value)
{
    QProcessEnvironment environment = process.processEnvironment();
    if (environment.isEmpty())
        environment = QProcessEnvironment::systemEnvironment();
    environment.insert(name, value);
    process.setProcessEnvironment(environment);
}

void LauncherProcess::start(const QStringList& wrapper)
{
    lines.clear();
    QStringList command = wrapper;
    command.append(program());
    process.start(command.constFirst(), command.mid(1));
    if (!process.waitForStarted())
        qFatal("cannot start the launcher: %s", qPrintable(process.errorString()));
}

void LauncherProcess::stop()
{
    // Not only the process that was started, which may be a tracer.
    endProcessesOf([this](const QString& path) { return path == program(); });
    process.waitForFinished();
}

void LauncherProcess::tell(const QByteArray& text)
{
    process.write(text);
}

qint64 LauncherProcess::processId() const
{
    return process.processId();
}

bool LauncherProcess::isRunning() const
{
    return process.state() != QProcess::NotRunning;
}

bool LauncherProcess::wasKilled() const
{
    return process.exitStatus() == QProcess::CrashExit;
}

int LauncherProcess::exitCode() const
{
    return process.exitCode();
}

bool LauncherProcess::hasEndedBothRuns(qsizetype copiesPerRun) const
{
    return RunLog::bothRunsHaveEnded(lines, copiesPerRun);
}

bool LauncherProcess::waitForBothRuns(qsizetype copiesPerRun)
{
    return waitFor([this, copiesPerRun] { return hasEndedBothRuns(copiesPerRun); });
}

bool LauncherProcess::waitForBothRuns(const Player& player)
{
    // The manifests come during the run.
    return waitFor([this, &player] {
        return RunLog::installingRuns(lines) == RunLog::runsPerStart
            && hasEndedBothRuns(player.copiesPerRun());
    });
}

bool LauncherProcess::waitForExit()
{
    return promptlyWaitFor([this] { return !isRunning(); }, patience);
}

bool LauncherProcess::waitForQuit()
{
    return waitForExit() && !wasKilled();
}

bool LauncherProcess::waitFor(const std::function<bool()>& condition) const
{
    return promptlyWaitFor([this, &condition] { return condition() || !isRunning(); }, patience)
        && condition();
}

QStringList LauncherProcess::log() const
{
    return lines;
}

qsizetype LauncherProcess::linesStartingWith(const QString& prefix) const
{
    return RunLog::linesStartingWith(lines, prefix);
}

qsizetype LauncherProcess::failedCopies() const
{
    return RunLog::failedCopies(lines);
}

QString LauncherProcess::lastLines() const
{
    const QString state = isRunning() ? "it runs"
        : wasKilled()                 ? "it was killed"
                                      : "it has ended, " + QString::number(exitCode());
    return state + ", the end of the launcher's log:\n" + lines.join('\n').right(reportedLog);
}
