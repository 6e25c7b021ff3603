#include "tests/support/processes.h"

#include <QDir>
#include <QFile>
#include <QTest>

#include <csignal>

namespace TestSupport {

QList<qint64> processesOf(const ProgramCondition& condition)
{
    QList<qint64> found;
    const QStringList processes = QDir("/proc").entryList({ "[1-9]*" }, QDir::Dirs);
    for (const QString& id : processes) {
        if (condition(QFile::symLinkTarget("/proc/" + id + "/exe")))
            found.append(id.toLongLong());
    }
    return found;
}

void endProcessesOf(const ProgramCondition& condition)
{
    const QList<qint64> processes = processesOf(condition);
    for (const qint64 id : processes)
        ::kill(static_cast<pid_t>(id), SIGKILL);
    if (!QTest::qWaitFor([&condition] { return processesOf(condition).isEmpty(); }))
        qFatal("a process does not end");
}

} // namespace TestSupport
