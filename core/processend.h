#pragma once

/// Ends the process with this exit code once nothing is left to destroy: what
/// stands in C streams is written, and nothing else runs. Static objects and the
/// libraries' own clean-up are passed over, because network threads are still at
/// work and would be caught in the middle of what is cleaned up.
[[noreturn]] void endProcess(int exitCode);
