#include "tests/support/systemcalls.h"

#include "tests/support/applicationfolder.h"

#include <QHash>
#include <QRegularExpression>

namespace {

QStringList tracer(const QString& interference)
{
    return { "strace", "--quiet=all", "--signal=none", "--output=/dev/null", interference };
}

bool onlyLooks(const SystemCall& call)
{
    return call.name.startsWith("open") && !call.text.contains("O_CREAT")
        && !call.text.contains("O_TRUNC");
}

} // namespace

// A name with a question mark does not exist on every machine.
QString Trace::links()
{
    return "?link,linkat";
}

QString Trace::renames()
{
    return "?rename,?renameat,renameat2";
}

QString Trace::removals()
{
    return "?unlink,unlinkat";
}

QString Trace::starts()
{
    return "?fork,?vfork,clone,clone3";
}

QString Trace::stateChanging()
{
    return "?open,openat,write,fsync,?chmod,fchmod,fchmodat,utimensat,ftruncate,flock,"
        + QStringList{ removals(), starts(), links(), renames() }.join(',');
}

QStringList Trace::record(const QString& calls, const QString& file)
{
    return { "strace", "--quiet=all", "--signal=none", "--trace=" + calls, "--output=" + file };
}

QStringList Trace::killBefore(const SystemCall& call)
{
    return tracer(QString("--inject=%1:signal=KILL:when=%2").arg(call.name).arg(call.ordinal));
}

QStringList Trace::fail(const QString& calls, const QString& error, int first, int last)
{
    return tracer(
        QString("--inject=%1:error=%2:when=%3..%4").arg(calls, error).arg(first).arg(last));
}

QStringList Trace::skip(const QString& calls)
{
    return tracer(QString("--inject=%1:retval=0").arg(calls));
}

QStringList Trace::both(const QStringList& one, const QStringList& other)
{
    return one + other.filter("--inject=");
}

QList<SystemCall> Trace::recorded(const QString& file)
{
    static const QRegularExpression pattern("^(\\w+)\\(");
    QHash<QString, int> count;
    QList<SystemCall> calls;
    const QStringList lines = QString::fromUtf8(TestSupport::readFile(file)).split('\n');
    for (const QString& line : lines) {
        const QString name = pattern.match(line).captured(1);
        if (!name.isEmpty())
            calls.append({ name, ++count[name], line });
    }
    return calls;
}

QList<SystemCall> Trace::recordedChanges(const QString& file)
{
    QList<SystemCall> calls = recorded(file);
    calls.removeIf(onlyLooks);
    return calls;
}
