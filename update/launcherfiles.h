#pragma once

#include <QLatin1StringView>

// The launcher's own files and the manifests, as they are called on the server.

inline constexpr QLatin1StringView liveManifestFileName("patch.ini");
inline constexpr QLatin1StringView testManifestFileName("patchTest.ini");
/// Holds the patch files, those of each kind in a folder of its own.
inline constexpr QLatin1StringView patchFolderName("wow-client-patch");
inline constexpr QLatin1StringView updaterFileName("Halden-Launcher-Updater.exe");
inline constexpr QLatin1StringView launcherFileName("Halden-Launcher.exe");
