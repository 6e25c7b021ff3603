#pragma once

#include <QList>
#include <QString>
#include <QStringList>

/// A call of a traced program: the n-th of its name, counted from 1.
struct SystemCall {
    QString name;
    int ordinal = 0;
    QString text;
};

/// Wrappers that start a program under a tracer, which interferes with its
/// system calls. What the program starts itself is left alone.
namespace Trace {

// Names of calls in the tracer's form.
QString links();
QString renames();
QString removals();
/// What programs are started with.
QString starts();
/// All that change what others can see.
QString stateChanging();

/// Writes the calls of these names into a file.
QStringList record(const QString& calls, const QString& file);
/// Kills the program when it is about to make this call.
QStringList killBefore(const SystemCall& call);
/// Lets calls of these names fail, counted for each name.
QStringList fail(const QString& calls, const QString& error, int first = 1, int last = 60'000);
/// Skips these calls, as if they had worked.
QStringList skip(const QString& calls);
/// Adds the interference of another wrapper.
QStringList both(const QStringList& one, const QStringList& other);

/// What `record()` has written, in order.
QList<SystemCall> recorded(const QString& file);
/// The same without what only looks.
QList<SystemCall> recordedChanges(const QString& file);

} // namespace Trace
