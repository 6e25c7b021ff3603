#pragma once

#include "updater/exitcode.h"
#include "updater/log.h"
#include "updater/platform.h"

#include <functional>
#include <string>

namespace Updater {

/// Puts the waiting launcher in place of the one in the folder and starts it.
/// The caller holds the folder's lock, and the launcher has ended.
///
/// At every moment a launcher stands under its name, so the updater may be
/// killed at any time. The old one is kept aside until the system has taken the
/// new one for a program; as long as it stands there, the exchange is not over,
/// and the next run sees it through.
class Exchange {
public:
    Exchange(const Path& folder, const Log& log);

    ExitCode run();

private:
    [[nodiscard]] Problem insist(const std::function<Problem()>& attempt) const;
    [[nodiscard]] Problem attempt();
    [[nodiscard]] Problem attemptWithWaitingFile();
    [[nodiscard]] Problem refuse(const std::string& fault);
    [[nodiscard]] Problem dropWaitingCopy();
    [[nodiscard]] Problem replaceLauncher();
    [[nodiscard]] Problem keepOldLauncher() const;
    [[nodiscard]] Problem restoreMissingLauncher() const;
    [[nodiscard]] Problem resumeEarlierRun();
    ExitCode start();
    void putBack() const;
    [[nodiscard]] Problem dropKept() const;

    const Log& log;
    Path launcher;
    Path waiting;
    /// The old launcher, and the same while it may be half a copy.
    Path kept;
    Path unfinished;
    /// What the last attempt has come to, or would come to if it were the last.
    ExitCode verdict = ExitCode::CouldNotReplace;
};

} // namespace Updater
