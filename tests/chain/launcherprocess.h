#pragma once

#include <QProcess>
#include <QString>
#include <QStringList>

class Player;

/// The launcher's executable, running as a player's copy in the application
/// folder, and its log as it comes in on the standard error stream.
class LauncherProcess {
public:
    /// Starts it. `wrapper` is a program with arguments that starts the launcher
    /// in its own place, prlimit for example.
    explicit LauncherProcess(QStringList wrapper = {});
    /// Ends it the hard way if it still runs.
    ~LauncherProcess();
    LauncherProcess(const LauncherProcess&) = delete;
    LauncherProcess& operator=(const LauncherProcess&) = delete;

    qint64 processId() const;
    /// Waits until both update runs have logged a copy, successful or not, for
    /// every file that this player's manifests list: nothing happens after that.
    bool waitForBothRuns(const Player& player);
    /// Waits until the launcher has quit by itself.
    bool waitForQuit();
    int exitCode() const;

    /// Number of log lines that begin like this.
    qsizetype linesStartingWith(const QString& prefix) const;
    /// Files that could not be copied into a client; the log's own words for it
    /// are the wrong way round. What removals need for their sake does not count.
    qsizetype failedCopies() const;
    /// For the message of a failed check.
    QString lastLines() const;

private:
    bool bothRunsHaveEnded(const Player& player) const;

    QProcess process;
    QStringList log;
};
