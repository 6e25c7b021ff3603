#pragma once

namespace Updater {

// All in the updater's own folder, and named alike on every system.

/// What players start.
inline constexpr const char* launcherName = "Halden-Launcher.exe";
/// The newer launcher, as the old one has downloaded it.
inline constexpr const char* waitingName = "Halden-Launcher.tmp";
/// The old launcher, while an exchange goes on.
inline constexpr const char* keptName = "Halden-Launcher.old";
/// The old launcher, while it is being copied.
inline constexpr const char* unfinishedName = "Halden-Launcher.old-new";
inline constexpr const char* logName = "Halden-Launcher-Updater.log";
/// The log's newer half, while the older one is being dropped.
inline constexpr const char* shortenedLogName = "Halden-Launcher-Updater.log-new";

} // namespace Updater
