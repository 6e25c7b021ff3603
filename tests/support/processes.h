#pragma once

#include <QList>
#include <QString>

#include <functional>

namespace TestSupport {

/// By the path of the file that a process runs. One whose file has been replaced since
/// has " (deleted)" behind it.
using ProgramCondition = std::function<bool(const QString& program)>;

/// Ids of the running processes whose program meets the condition.
QList<qint64> processesOf(const ProgramCondition& condition);
/// Kills them and waits until they have gone.
void endProcessesOf(const ProgramCondition& condition);

} // namespace TestSupport
