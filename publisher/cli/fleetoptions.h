#pragma once

#include "publisher/fleet/fleetfile.h"

#include <optional>

class QCommandLineParser;

namespace Publisher {

class Output;

/// What `push` and `probe` have in common.
namespace FleetOptions {

/// The option "--fleet".
void addFleet(QCommandLineParser& parser);
/// Where the text in the window lies, for how long a certificate must be valid, and how
/// long a server may be silent.
void addQuestions(QCommandLineParser& parser);

/// The list of servers; complains when it cannot be used.
std::optional<FleetFile> readFleet(const QCommandLineParser& parser, Output& output);

} // namespace FleetOptions

} // namespace Publisher
