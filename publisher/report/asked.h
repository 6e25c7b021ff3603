#pragma once

#include <string_view>

namespace Publisher {

/// What a request asks a community's server for.
enum class Asked {
    /// The text for the window, once a start.
    Info,
    Updater,
    Launcher,
    LiveManifest,
    TestManifest,
    PatchFile,
    /// What no launcher asks for.
    Other,
};

/// The target is as it went over the wire.
Asked askedBy(std::string_view target);

/// Whether a user agent is that of the launcher.
bool isLauncher(std::string_view userAgent);

} // namespace Publisher
