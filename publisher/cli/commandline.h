#pragma once

#include "publisher/common/exitcode.h"

#include <QStringList>

class QIODevice;

namespace Publisher {

/// Runs the command that `arguments` (without the program's own name) asks for
/// and returns how the program ends. The result goes to `result`, errors to
/// `messages`.
ExitCode runCommandLine(const QStringList& arguments, QIODevice& result, QIODevice& messages);

} // namespace Publisher
