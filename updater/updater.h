#pragma once

#include "updater/exitcode.h"

#include <span>

namespace Updater {

/// The whole program: waits for the launcher with the given process id,
/// exchanges it and starts the new one. Works in the folder of the running
/// program. `arguments` come without the program's name.
ExitCode run(std::span<const char* const> arguments);

} // namespace Updater
