#pragma once

#include "publisher/exitcode.h"
#include "publisher/finding.h"

#include <QStringList>

class Output;
class QCommandLineParser;

/// The end of `check` and `probe`: their findings, and those among them that
/// the admin accepts by name.
namespace FindingReport {

/// Adds the option "--accept ID".
void addOptions(QCommandLineParser& parser);
/// Whether every accepted identifier exists; complains when not.
bool acceptsKnownOnly(const QCommandLineParser& parser, Output& output);
/// Shows the findings; accepted ones do not count for the exit code.
ExitCode conclude(const QList<Finding>& findings, const QCommandLineParser& parser, Output& output);

} // namespace FindingReport
