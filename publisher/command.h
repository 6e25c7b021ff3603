#pragma once

#include "publisher/exitcode.h"

#include <QString>

#include <memory>
#include <vector>

class Output;
class QCommandLineParser;

/// One of the program's commands.
class Command {
public:
    Command() = default;
    Command(const Command&) = delete;
    Command& operator=(const Command&) = delete;
    virtual ~Command() = default;

    /// The word on the command line.
    virtual QString name() const = 0;
    /// One line for the list of commands, without a full stop.
    virtual QString summary() const = 0;
    /// Adds options, positional arguments and the description. "--help" and
    /// "--json" are every command's and already there.
    virtual void configure(QCommandLineParser& parser) const = 0;
    /// Works off a command line that the parser has accepted.
    virtual ExitCode run(const QCommandLineParser& parser, Output& output) = 0;
};

/// Every command in the order in which they are listed.
std::vector<std::unique_ptr<Command>> allCommands();
