#include "updater/updater.h"

#include "updater/exchange.h"
#include "updater/filenames.h"
#include "updater/limits.h"
#include "updater/log.h"
#include "updater/platform.h"
#include "updater/processid.h"

#include <cstdio>
#include <string>

namespace Updater {

namespace {

ExitCode complain(const Log& log, std::size_t arguments)
{
    const char* message = arguments == 1
        ? "usage error: the argument is no process id"
        : "usage error: one argument is needed, the launcher's process id";
    log.write(message);
    std::fprintf(stderr, "Halden-Launcher-Updater: %s\n", message);
    return ExitCode::Usage;
}

bool launcherHasEnded(std::uint32_t id, const Path& launcher, const Log& log)
{
    const std::string name = "process " + std::to_string(id);
    log.write("waiting for " + name);
    switch (waitForEnd(id, launcher, limits.launcherEnd)) {
    case ProcessEnd::Ended:
        log.write(name + " has ended");
        return true;
    case ProcessEnd::OtherProgram:
        log.write(name + " is another program; the launcher has ended");
        return true;
    case ProcessEnd::StillRunning:
        break;
    }
    log.write("gave up: " + name + " is still running");
    return false;
}

/// The launcher starts two updaters with one id. Whoever is late goes without
/// having waited, so there is one exchange and one new launcher.
ExitCode exchangeAlone(const Path& folder, const Log& log)
{
    const FolderLock lock(folder);
    switch (lock.state()) {
    case FolderLock::State::Ours:
        return Exchange(folder, log).run();
    case FolderLock::State::Taken:
        log.write("another updater is at work");
        return ExitCode::AnotherIsAtWork;
    case FolderLock::State::Impossible:
        break;
    }
    log.write("gave up: " + lock.problem().value_or(""));
    return ExitCode::CouldNotReplace;
}

} // namespace

ExitCode run(std::span<const char* const> arguments)
{
    const Path folder = programFolder();
    if (folder.empty()) {
        std::fputs("Halden-Launcher-Updater: cannot tell its own folder\n", stderr);
        return ExitCode::CouldNotReplace;
    }
    const Log log(fileIn(folder, logName));
    const auto id = arguments.size() == 1 ? parseProcessId(arguments.front()) : std::nullopt;
    if (!id)
        return complain(log, arguments.size());
    if (!launcherHasEnded(*id, fileIn(folder, launcherName), log))
        return ExitCode::GaveUpWaiting;
    return exchangeAlone(folder, log);
}

} // namespace Updater
