#include "tests/support/runlog.h"

#include <algorithm>

namespace TestSupport::RunLog {

qsizetype linesStartingWith(const QStringList& log, const QString& prefix)
{
    return std::count_if(
        log.begin(), log.end(), [&prefix](const QString& line) { return line.startsWith(prefix); });
}

qsizetype installingRuns(const QStringList& log)
{
    return log.count(installs);
}

qsizetype failedCopies(const QStringList& log)
{
    // The placeholders of removals have nothing to copy; they say so in their folder.
    return std::count_if(log.begin(), log.end(), [](const QString& line) {
        return line.startsWith("copy of file") && !line.contains("/halden-vacant");
    });
}

bool bothRunsHaveEnded(const QStringList& log, qsizetype copiesPerRun)
{
    return installingRuns(log) == runsPerStart
        && linesStartingWith(log, "could not write file") + failedCopies(log)
        == runsPerStart * copiesPerRun;
}

} // namespace TestSupport::RunLog
