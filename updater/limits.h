#pragma once

#include <chrono>
#include <span>

namespace Updater {

/// How long the updater is patient. Linked in, so that nothing on a player's
/// machine can change it.
struct Limits {
    /// For the launcher's end.
    std::chrono::milliseconds launcherEnd;
    /// For the end of another updater in the same folder.
    std::chrono::milliseconds otherUpdater;
    /// Between one attempt and the next at a file that somebody holds; there is
    /// one attempt more than there are pauses.
    std::span<const std::chrono::milliseconds> pauses;
};

extern const Limits limits;

} // namespace Updater
