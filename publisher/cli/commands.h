#pragma once

#include "publisher/common/exitcode.h"

#include <QLatin1StringView>

#include <array>

class QCommandLineParser;

namespace Publisher {

class Output;

/// One of the program's commands.
struct Command {
    /// The word on the command line.
    QLatin1StringView name;
    /// One line for the list of commands, without a full stop.
    QLatin1StringView summary;
    /// Adds options, positional arguments and the description. "--help" and
    /// "--json" are every command's and already there.
    void (*configure)(QCommandLineParser& parser) = nullptr;
    /// Works off a command line that the parser has accepted.
    ExitCode (*run)(const QCommandLineParser& parser, Output& output) = nullptr;
};

extern const Command buildCommand;
extern const Command buildLauncherCommand;
extern const Command checkCommand;
extern const Command probeCommand;
extern const Command pushCommand;
extern const Command historyCommand;
extern const Command showCommand;
extern const Command rollbackCommand;
extern const Command promoteCommand;
extern const Command estimateCommand;
extern const Command reportCommand;

/// Every command in the order in which they are listed.
inline const std::array allCommands{ &buildCommand,    &buildLauncherCommand, &checkCommand,
                                     &probeCommand,    &pushCommand,          &estimateCommand,
                                     &reportCommand,   &historyCommand,       &showCommand,
                                     &rollbackCommand, &promoteCommand };

} // namespace Publisher
