#pragma once

#include "publisher/command.h"

#include <QStringList>

class QIODevice;

/// Runs the command that `arguments` (without the program's own name) asks for
/// and returns how the program ends. The result goes to `result`, errors to
/// `messages`.
ExitCode runCommandLine(
    const QStringList& arguments, const std::vector<std::unique_ptr<Command>>& commands,
    QIODevice& result, QIODevice& messages);
