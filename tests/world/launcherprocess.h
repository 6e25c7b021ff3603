#pragma once

#include "tests/support/applicationfolder.h"

#include <QProcess>
#include <QString>
#include <QStringList>

#include <functional>

class Player;

/// The launcher's executable as a player's copy, and its log as it comes in on the
/// standard error stream. Several in different folders can run at the same time.
class LauncherProcess {
public:
    /// Makes the copy unless it is there.
    explicit LauncherProcess(QString folder = TestSupport::ApplicationFolder::path());
    /// Ends it the hard way if it still runs.
    ~LauncherProcess();
    LauncherProcess(const LauncherProcess&) = delete;
    LauncherProcess& operator=(const LauncherProcess&) = delete;

    /// Absolute path of something in its folder, or of the folder.
    QString path(const QString& name = {}) const;
    /// For its environment from the next start on.
    void setVariable(const QString& name, const QString& value);

    /// Starts the launcher; its log begins anew. `wrapper` is a program with arguments
    /// that starts another one in its own place, prlimit for example.
    void start(const QStringList& wrapper = {});
    /// Ends it from outside, a tracer around it included.
    void stop();
    /// Sends something to its standard input.
    void tell(const QByteArray& text);

    qint64 processId() const;
    bool isRunning() const;
    /// After its end: by a signal, or else by itself.
    bool wasKilled() const;
    int exitCode() const;

    /// Both update runs have copied this many files into clients, or have tried to:
    /// nothing happens after that.
    bool hasEndedBothRuns(qsizetype copiesPerRun) const;
    /// Waits for that; false when it does not come or the program ends before.
    bool waitForBothRuns(qsizetype copiesPerRun);
    /// The same for every file that this player's manifests list in the end.
    bool waitForBothRuns(const Player& player);
    bool waitForExit();
    /// Waits for its end, which has to come by itself.
    bool waitForQuit();
    /// False when it does not come or the program ends before.
    bool waitFor(const std::function<bool()>& condition) const;

    /// What it has said, line by line; its warnings as a captured log marks them.
    QStringList log() const;
    qsizetype linesStartingWith(const QString& prefix) const;
    /// Files that could not be copied into a client.
    qsizetype failedCopies() const;
    /// For the message of a failed check: its state and its last lines.
    QString lastLines() const;

protected:
    /// Absolute path of the copy.
    QString program() const;

private:
    QString home;
    QProcess process;
    QStringList lines;
};
