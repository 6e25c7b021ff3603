#pragma once

#include "publisher/common/exitcode.h"
#include "publisher/common/finding.h"

#include <QList>

class QCommandLineParser;

namespace Publisher {

class Output;

/// The end of `check` and `probe`: their findings, and those among them that
/// the admin accepts by name.
namespace FindingReport {

/// Adds the option "--accept ID".
void addOptions(QCommandLineParser& parser);
/// Whether every accepted identifier exists; complains when not.
bool acceptsKnownOnly(const QCommandLineParser& parser, Output& output);
/// Shows the findings; accepted ones do not count for the exit code.
ExitCode conclude(const QList<Finding>& findings, const QCommandLineParser& parser, Output& output);

/// How a command ends that has published nothing because of them.
void showRefusals(const QList<Finding>& refusals, Output& output);

} // namespace FindingReport

} // namespace Publisher
