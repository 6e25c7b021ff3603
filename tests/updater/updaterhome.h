#pragma once

#include <QByteArray>
#include <QFileDevice>
#include <QProcess>
#include <QString>
#include <QStringList>

#include <memory>

/// How an updater ended, and what it said on standard error. `code` is -1 when
/// it was killed.
struct UpdaterRun {
    int code = -1;
    QString message;
};

/// A player's folder with an updater and stand-ins for the old and the new
/// launcher. Failures of its own end the process.
class UpdaterHome {
public:
    /// Makes the folder anew: the old launcher is in place, the new one waits,
    /// without its run bit, as after a download.
    explicit UpdaterHome(QString folder);

    QString path(const QString& name) const;
    static QByteArray oldLauncher();
    static QByteArray newLauncher();

    /// Puts everything but the updater back to the beginning.
    void reset() const;
    void placeLauncher(const QByteArray& program) const;
    void placeWaiting(const QByteArray& program) const;
    /// The old launcher, kept aside by a run that was killed.
    void placeKept(const QByteArray& program) const;
    /// The updater with the limits that players have.
    void placeShippedUpdater() const;

    /// Starts an updater. `wrapper` is a program with arguments that starts it.
    void
    start(QProcess& updater, const QStringList& arguments, const QStringList& wrapper = {}) const;
    /// Waits for its end.
    static UpdaterRun finish(QProcess& updater);
    /// Both.
    UpdaterRun run(qint64 id, const QStringList& wrapper = {}) const;

    /// "old", "new", "other" or "none", by content.
    QString launcher() const;
    QString waiting() const;
    QString kept() const;
    /// All three, "new none none" after a good exchange.
    QString state() const;
    /// What the launcher in place calls itself when it is started; empty if it
    /// cannot be.
    QString startedVersion() const;
    /// Everything that does not belong there, by name.
    QStringList strangers() const;
    QFileDevice::Permissions launcherPermissions() const;

    /// One line for each start without arguments. Waits until no launcher and no
    /// updater of this folder is running any more, so that it is complete.
    QStringList starts() const;
    QStringList logLines() const;
    /// Log lines that end like this.
    qsizetype logged(const QString& end) const;

private:
    bool somethingIsRunning() const;
    QString whichIs(const QString& name) const;

    QString folder;
    QString record;
};

/// The only thing in the sandbox's application folder.
std::unique_ptr<UpdaterHome> freshHome();

/// The old launcher at work: a process whose id an updater can be given.
class RunningLauncher {
public:
    explicit RunningLauncher(const QString& program);
    ~RunningLauncher();
    RunningLauncher(const RunningLauncher&) = delete;
    RunningLauncher& operator=(const RunningLauncher&) = delete;

    /// Also once it has ended.
    qint64 id() const;
    void end();

private:
    QProcess process;
    qint64 processId = 0;
};

/// Id of a process that has come and gone.
qint64 endedProcess();
