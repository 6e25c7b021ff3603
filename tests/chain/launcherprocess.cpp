#include "tests/chain/launcherprocess.h"

#include "tests/chain/player.h"
#include "tests/support/applicationfolder.h"

#include <QFile>
#include <QTest>

#include <algorithm>

using TestSupport::ApplicationFolder::path;

namespace {

constexpr int patienceInMilliseconds = 120'000;

} // namespace

LauncherProcess::LauncherProcess(QStringList wrapper)
{
    const QString program = path("Halden-Launcher");
    if (!QFile::exists(program) && !QFile::copy(HALDEN_LAUNCHER_PROGRAM, program))
        qFatal("cannot copy the launcher");
    QObject::connect(&process, &QProcess::readyReadStandardError, &process, [this] {
        while (process.canReadLine())
            log.append(QString::fromUtf8(process.readLine().trimmed()));
    });
    process.setReadChannel(QProcess::StandardError);
    process.setWorkingDirectory(path());
    wrapper.append(program);
    const QString first = wrapper.takeFirst();
    process.start(first, wrapper);
    if (!process.waitForStarted())
        qFatal("cannot start the launcher: %s", qPrintable(process.errorString()));
}

LauncherProcess::~LauncherProcess()
{
    process.kill();
    process.waitForFinished();
}

qint64 LauncherProcess::processId() const
{
    return process.processId();
}

bool LauncherProcess::waitForBothRuns(const Player& player)
{
    return QTest::qWaitFor(
               [this, &player] {
                   return bothRunsHaveEnded(player) || process.state() == QProcess::NotRunning;
               },
               patienceInMilliseconds)
        && bothRunsHaveEnded(player);
}

bool LauncherProcess::waitForQuit()
{
    return process.waitForFinished(patienceInMilliseconds)
        && process.exitStatus() == QProcess::NormalExit;
}

int LauncherProcess::exitCode() const
{
    return process.exitCode();
}

qsizetype LauncherProcess::linesStartingWith(const QString& prefix) const
{
    return std::count_if(
        log.begin(), log.end(), [&prefix](const QString& line) { return line.startsWith(prefix); });
}

qsizetype LauncherProcess::failedCopies() const
{
    // The name plates of removals have nothing to copy; they say so in their folder.
    return std::count_if(log.begin(), log.end(), [](const QString& line) {
        return line.startsWith("copy of file") && !line.contains("/halden-vacant");
    });
}

QString LauncherProcess::lastLines() const
{
    return "the launcher's last lines:\n"
        + log.mid(std::max<qsizetype>(0, log.size() - 60)).join('\n');
}

bool LauncherProcess::bothRunsHaveEnded(const Player& player) const
{
    return linesStartingWith("now copy Data into Client") == 2
        && linesStartingWith("could not write file") + failedCopies()
        == 2LL * player.copiesPerRun();
}
