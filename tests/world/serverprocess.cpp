#include "tests/world/serverprocess.h"

#include "tests/support/applicationfolder.h"
#include "tests/support/patience.h"

#include <QProcessEnvironment>
#include <QTcpSocket>
#include <QTest>

#include <csignal>
#include <utility>

using namespace TestSupport;

namespace {

bool accepts(const QString& address, quint16 port)
{
    QTcpSocket socket;
    socket.connectToHost(address, port);
    return socket.waitForConnected(1000);
}

} // namespace

ServerProcess::ServerProcess(QString serverProgram, QStringList all, QString logFile)
    : program(std::move(serverProgram))
    , arguments(std::move(all))
    , log(std::move(logFile))
{
    process.setProcessChannelMode(QProcess::MergedChannels);
    process.setStandardOutputFile(log, QIODevice::Append);
    process.setProcessEnvironment(QProcessEnvironment::systemEnvironment());
}

ServerProcess::~ServerProcess()
{
    stop();
}

void ServerProcess::setEnvironment(const QString& name, const QString& value)
{
    QProcessEnvironment environment = process.processEnvironment();
    environment.insert(name, value);
    process.setProcessEnvironment(environment);
}

void ServerProcess::preload(const QString& library)
{
    const QString name = "LD_PRELOAD";
    setEnvironment(name, (process.processEnvironment().value(name) + ' ' + library).trimmed());
}

void ServerProcess::start(const QString& address, quint16 port)
{
    stop();
    process.start(program, arguments);
    if (!process.waitForStarted(patience))
        qFatal("%s does not start: %s", qPrintable(program), qPrintable(process.errorString()));
    const bool isUp = QTest::qWaitFor(
        [&] { return process.state() == QProcess::NotRunning || accepts(address, port); },
        patience);
    if (!isUp || process.state() != QProcess::Running)
        qFatal(
            "%s does not serve at %s: %s", qPrintable(program), qPrintable(address),
            readFile(log).constData());
}

void ServerProcess::stop()
{
    if (process.state() == QProcess::NotRunning)
        return;
    process.terminate();
    if (!process.waitForFinished(patience))
        qFatal("%s does not end", qPrintable(program));
}

void ServerProcess::reload() const
{
    ::kill(static_cast<pid_t>(process.processId()), SIGHUP);
}
