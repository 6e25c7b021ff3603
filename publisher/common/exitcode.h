#pragma once

namespace Publisher {

/// How the program ends; scripts rely on the numbers.
enum class ExitCode {
    Fine = 0,
    /// Something is wrong with what is, or would be, published.
    Findings = 1,
    /// The command line does not make sense.
    Usage = 2,
    /// A file or the network failed.
    InputOutput = 3,
};

} // namespace Publisher
