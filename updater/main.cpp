#include "updater/platform.h"
#include "updater/updater.h"

#include <cstdio>
#include <exception>

int main(int argc, char* argv[])
{
    const auto count = argc > 1 ? static_cast<std::size_t>(argc - 1) : 0;
    Updater::prepareProcess();
    try {
        return static_cast<int>(Updater::run({ argv + 1, count }));
    } catch (const std::exception& error) {
        // For want of memory. Whatever stood under the launcher's name still does.
        std::fprintf(stderr, "Halden-Launcher-Updater: %s\n", error.what());
        return static_cast<int>(Updater::ExitCode::CouldNotReplace);
    }
}
