#include "tests/faults/launchercopy.h"

#include "tests/faults/target.h"
#include "tests/support/applicationfolder.h"
#include "tests/support/patience.h"
#include "tests/support/promptwait.h"

#include <QDir>
#include <QDirIterator>
#include <QFile>

#include <algorithm>
#include <csignal>

namespace {

const QString programName = "Halden-Launcher";

/// The launcher's warnings as a captured log marks them.
QString asCaptured(const QString& line)
{
    return line.startsWith("ErrorNo:") ? "warning: " + line : line;
}

} // namespace

LauncherCopy::LauncherCopy(const QString& folder)
    : place(folder)
{
    QDir(place).removeRecursively();
    layOutPlayer(launcherFolder(), clientFolder());
    if (!QFile::copy(HALDEN_LAUNCHER_PROGRAM, program()))
        qFatal("cannot copy the launcher");
    QObject::connect(&process, &QProcess::readyReadStandardError, &process, [this] {
        while (process.canReadLine())
            lines.append(asCaptured(QString::fromUtf8(process.readLine().trimmed())));
    });
    process.setReadChannel(QProcess::StandardError);
    process.setWorkingDirectory(launcherFolder());
}

LauncherCopy::~LauncherCopy()
{
    stop();
}

QString LauncherCopy::launcherFolder() const
{
    return place + "/launcher";
}

QString LauncherCopy::clientFolder() const
{
    return place + "/client";
}

QString LauncherCopy::program() const
{
    return launcherFolder() + '/' + programName;
}

void LauncherCopy::start(const QStringList& wrapper)
{
    lines.clear();
    QStringList command = wrapper;
    command.append(program());
    process.start(command.constFirst(), command.mid(1));
    if (!process.waitForStarted())
        qFatal("cannot start the launcher: %s", qPrintable(process.errorString()));
}

bool LauncherCopy::hasEndedBothRuns(int copiesPerRun) const
{
    const auto copies
        = linesStartingWith("could not write file") + linesStartingWith("copy of file");
    return linesStartingWith("now copy Data into Client") == 2 && copies == 2LL * copiesPerRun;
}

bool LauncherCopy::waitForBothRuns(int copiesPerRun)
{
    return waitUntil(
               [this, copiesPerRun] { return hasEndedBothRuns(copiesPerRun) || !isRunning(); })
        && hasEndedBothRuns(copiesPerRun);
}

bool LauncherCopy::waitForExit()
{
    return waitUntil([this] { return !isRunning(); });
}

void LauncherCopy::stop()
{
    // Not only the process that was started, which may be a tracer.
    const QStringList processes = QDir("/proc").entryList({ "[1-9]*" }, QDir::Dirs);
    for (const QString& id : processes) {
        if (QFile::symLinkTarget("/proc/" + id + "/exe") == program())
            ::kill(id.toInt(), SIGKILL);
    }
    process.waitForFinished();
}

bool LauncherCopy::isRunning() const
{
    return process.state() != QProcess::NotRunning;
}

bool LauncherCopy::wasKilled() const
{
    return process.exitStatus() == QProcess::CrashExit;
}

int LauncherCopy::exitCode() const
{
    return process.exitCode();
}

QStringList LauncherCopy::log() const
{
    return lines;
}

qsizetype LauncherCopy::linesStartingWith(const QString& prefix) const
{
    return std::count_if(lines.begin(), lines.end(), [&prefix](const QString& line) {
        return line.startsWith(prefix);
    });
}

QString LauncherCopy::lastLines() const
{
    const auto first = std::max<qsizetype>(0, lines.size() - 40);
    const QString state = isRunning() ? "it runs"
        : wasKilled()                 ? "it was killed"
                                      : "it has ended, " + QString::number(exitCode());
    return state + ", the launcher's last lines:\n" + lines.mid(first).join('\n');
}

QMap<QString, QByteArray> LauncherCopy::tree() const
{
    QMap<QString, QByteArray> found;
    QDirIterator entry(
        place, QDir::AllEntries | QDir::Hidden | QDir::System | QDir::NoDotAndDotDot,
        QDirIterator::Subdirectories);
    while (entry.hasNext()) {
        const QFileInfo file = entry.nextFileInfo();
        QByteArray content = file.isDir() ? "folder" : TestSupport::readFile(file.filePath());
        // Where the player lives stands in the realm list.
        content.replace(place.toUtf8(), "PLACE");
        if (file.fileName() != programName)
            found.insert(QDir(place).relativeFilePath(file.filePath()), content);
    }
    return found;
}

bool LauncherCopy::waitUntil(const std::function<bool()>& condition) const
{
    return TestSupport::promptlyWaitFor(condition, TestSupport::patience);
}
