#pragma once

#include <QByteArray>
#include <QMap>
#include <QProcess>
#include <QString>
#include <QStringList>

#include <functional>

/// The launcher's executable as a player's copy in a folder of its own, with a
/// client in a folder beside it. Several can run at the same time; they share
/// nothing but the community's server.
class LauncherCopy {
public:
    /// Lays out a player of yesterday below `place`.
    explicit LauncherCopy(const QString& place);
    /// Ends the program if it still runs.
    ~LauncherCopy();
    LauncherCopy(const LauncherCopy&) = delete;
    LauncherCopy& operator=(const LauncherCopy&) = delete;

    QString launcherFolder() const;
    QString clientFolder() const;

    /// Starts the launcher; its log begins anew. `wrapper` is a program with
    /// arguments that starts another one in its own place.
    void start(const QStringList& wrapper = {});
    /// Both update runs have copied this many files into the client, or have
    /// tried to: nothing happens after that.
    bool hasEndedBothRuns(int copiesPerRun) const;
    /// Waits for that; false when it does not come or the program ends before.
    bool waitForBothRuns(int copiesPerRun);
    bool waitForExit();
    /// Ends it from outside, a tracer around it included.
    void stop();
    bool isRunning() const;
    /// After its end: by a signal, or else by itself.
    bool wasKilled() const;
    int exitCode() const;

    /// What it has said on its standard error stream, line by line.
    QStringList log() const;
    qsizetype linesStartingWith(const QString& prefix) const;
    /// For the message of a failed check.
    QString lastLines() const;

    /// Every file and folder of the launcher and the client, by relative path,
    /// a folder with the content "folder". Without the program itself.
    QMap<QString, QByteArray> tree() const;

private:
    QString program() const;
    bool waitUntil(const std::function<bool()>& condition) const;

    QString place;
    QProcess process;
    QStringList lines;
};
