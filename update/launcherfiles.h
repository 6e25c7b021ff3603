#pragma once

#include <QLatin1StringView>

// The launcher's own files and the manifests, as they are called on the server.

inline constexpr QLatin1StringView updaterFileName("Halden-Launcher-Updater.exe");
inline constexpr QLatin1StringView launcherFileName("Halden-Launcher.exe");
