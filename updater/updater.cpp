#include "updater/updater.h"

#include "updater/exchange.h"
#include "updater/filenames.h"
#include "updater/limits.h"
#include "updater/log.h"
#include "updater/platform.h"
#include "updater/processid.h"

#include <chrono>
#include <cstdint>
#include <cstdio>
#include <optional>
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

/// Waits for another updater as long as one can take, and not for ever, since
/// whoever sees the folder can hold its lock. True if there has been another.
bool waitForLock(const Path& folder, std::optional<FolderLock>& lock, const Log& log)
{
    constexpr std::chrono::milliseconds interval(50);
    lock.emplace(folder);
    if (lock->state() != FolderLock::State::Taken)
        return false;
    log.write("another updater is at work");
    const auto deadline = std::chrono::steady_clock::now() + limits.otherUpdater;
    while (lock->state() == FolderLock::State::Taken
           && std::chrono::steady_clock::now() < deadline) {
        pause(interval);
        lock.emplace(folder);
    }
    return true;
}

/// The launcher starts two updaters with one id, and a new launcher may hand over
/// while the first one still clears away: whoever is late looks what is left to
/// do. Two at once do no harm in all but the rarest moments, and no updater at
/// all would do harm for good.
ExitCode exchangeAlone(const Path& folder, const Log& log, std::uint32_t launcherId)
{
    std::optional<FolderLock> lock;
    const bool late = waitForLock(folder, lock, log);
    if (lock->state() == FolderLock::State::Taken)
        log.write("went on without the lock, which is held for too long");
    if (lock->state() == FolderLock::State::Impossible)
        log.write("went on without a lock: " + lock->problem().value_or(""));
    const bool somethingWaits = isThere(fileIn(folder, waitingName));
    const ExitCode code = Exchange(folder, log, launcherId).run();
    const bool otherHasDoneIt = late && !somethingWaits && code == ExitCode::NothingToDo;
    return otherHasDoneIt ? ExitCode::AnotherHasDoneIt : code;
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
    return exchangeAlone(folder, log, *id);
}

} // namespace Updater
