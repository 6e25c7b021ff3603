#pragma once

namespace Updater {

/// What the updater tells whoever started it. The numbers stand in the README
/// and in administrators' scripts.
enum class ExitCode {
    /// The newer launcher is in place and has been started.
    Done = 0,
    /// The process id is missing or none. Nothing was touched.
    Usage = 2,
    /// Nothing was waiting, or what was waiting is the launcher in place; that
    /// copy is gone. No launcher was started.
    NothingToDo = 3,
    /// The launcher did not end in time. Nothing was touched.
    GaveUpWaiting = 4,
    /// The file system did not let the exchange happen. The old launcher stands
    /// in its place and the newer one goes on waiting.
    CouldNotReplace = 5,
    /// What was waiting is no program that this system starts. It is gone and
    /// the old launcher stands in its place.
    RefusedFile = 6,
    /// Another updater is at work in this folder; it does what is to be done.
    AnotherIsAtWork = 7
};

} // namespace Updater
