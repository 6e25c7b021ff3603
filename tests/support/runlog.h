#pragma once

#include <QString>
#include <QStringList>

/// What the log of one start of the launcher tells of its update runs, which go side
/// by side.
namespace TestSupport::RunLog {

inline constexpr int runsPerStart = 2;

/// The line with which a run begins to install. The call that writes it is the run's
/// last one, so within the launcher's own process the run has ended with it.
inline constexpr const char* installs = "now copy Data into Client";

qsizetype linesStartingWith(const QStringList& log, const QString& prefix);
/// Runs that have begun to install.
qsizetype installingRuns(const QStringList& log);
/// Files that could not be copied into a client; the log's own words for it are the
/// wrong way round. What removals need for their sake does not count.
qsizetype failedCopies(const QStringList& log);
/// Both runs have logged a copy, successful or not, for every file that they copy:
/// nothing happens after that.
bool bothRunsHaveEnded(const QStringList& log, qsizetype copiesPerRun);

} // namespace TestSupport::RunLog
