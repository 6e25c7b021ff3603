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
    /// copy is gone. If its date was newer, the launcher has it now and has been
    /// started again.
    NothingToDo = 3,
    /// The launcher did not end in time. Nothing was touched.
    GaveUpWaiting = 4,
    /// The system did not let the exchange happen. The old launcher stands in its
    /// place and the newer one goes on waiting; at the second launcher in a row
    /// it is gone, and the old one has been started.
    CouldNotReplace = 5,
    /// What was waiting is no program that this system starts. It is gone, as far
    /// as it could be removed, and the old launcher stands in its place.
    RefusedFile = 6,
    /// Another updater was at work in this folder; it has done what was to be done.
    AnotherHasDoneIt = 7
};

} // namespace Updater
