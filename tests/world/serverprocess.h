#pragma once

#include <QProcess>
#include <QString>
#include <QStringList>

/// A foreign server as a child of the test. It ends with the object. Whatever fails
/// ends the test with what the server has said.
class ServerProcess {
public:
    /// What it says goes into the file `log`.
    ServerProcess(QString program, QStringList arguments, QString log);
    ~ServerProcess();
    ServerProcess(const ServerProcess&) = delete;
    ServerProcess& operator=(const ServerProcess&) = delete;

    /// For what is started from now on.
    void setEnvironment(const QString& name, const QString& value);
    /// A library to be loaded before the program's own, beside those there are.
    void preload(const QString& library);
    /// Returns when connections to the address are accepted.
    void start(const QString& address, quint16 port);
    /// Returns when the process has ended. Does nothing when none runs.
    void stop();
    /// Has the server read its configuration anew, as a signal tells it to.
    void reload() const;

private:
    QString program;
    QStringList arguments;
    QString log;
    QProcess process;
};
