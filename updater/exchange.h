#pragma once

#include "updater/exitcode.h"
#include "updater/log.h"
#include "updater/platform.h"

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>

namespace Updater {

/// Puts the waiting launcher in place of the one in the folder and starts it.
/// The caller holds the folder's lock, and the launcher has ended.
///
/// At every moment a launcher stands under its name, so the updater may be
/// killed at any time. The old one is kept aside until the system has taken the
/// new one for a program; as long as it stands there, the exchange is not over,
/// and the next run sees it through, whatever else is waiting by then.
class Exchange {
public:
    /// `id` is that of the launcher that has handed over.
    Exchange(const Path& folder, const Log& log, std::uint32_t id);

    ExitCode run();

private:
    [[nodiscard]] Problem insist(const std::function<Problem()>& attempt) const;
    [[nodiscard]] Problem attempt();
    [[nodiscard]] Problem findUntried();
    [[nodiscard]] Problem attemptWithWaitingFile();
    [[nodiscard]] Problem refuse(const std::string& fault);
    [[nodiscard]] Problem dropWaitingCopy();
    [[nodiscard]] Problem replaceLauncher();
    [[nodiscard]] Problem moveIntoPlace();
    [[nodiscard]] Problem keepOldLauncher() const;
    [[nodiscard]] Problem restoreMissingLauncher() const;
    void resumeEarlierRun();

    ExitCode finish();
    ExitCode startNewer();
    void startAgain();
    [[nodiscard]] std::optional<StartFailure> start() const;
    bool putBack() const; // NOLINT(modernize-use-nodiscard)
    [[nodiscard]] Problem returnToWaiting() const;
    void close() const;
    [[nodiscard]] Problem dropKept() const;

    ExitCode concede() const;
    void note(std::string_view outcome, bool isSecond) const;
    void goBack() const;

    const Log& log;
    Path launcher;
    Path waiting;
    /// The old launcher, and the same while it may be half a copy.
    Path kept;
    Path unfinished;
    std::uint32_t launcherId;
    /// What the last attempt has come to, or would come to if it were the last.
    ExitCode verdict = ExitCode::CouldNotReplace;
    /// An earlier run has put a launcher in place, and nobody knows whether it
    /// starts; the kept one does.
    bool untried = false;
    /// The launcher in place is the same as before, but for its newer date.
    bool redated = false;
};

} // namespace Updater
