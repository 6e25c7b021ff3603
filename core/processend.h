#pragma once

/// Ends the process with this exit code: what stands in C streams is written, on
/// Windows what has been copied is left to the clipboard, and nothing else runs. To be
/// called while the application object is there. It, static objects and the libraries'
/// own clean-up are passed over, because network threads are still at work and would be
/// caught in the middle of what is cleaned up.
[[noreturn]] void endProcess(int exitCode);
