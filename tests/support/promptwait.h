#pragma once

#include <functional>

namespace TestSupport {

/// Like the test library's qWaitFor(), which rests for 10 ms whenever an event
/// has been handled: with a server in the same event loop a start of the launcher
/// would be nothing but rest. The condition is looked at after every event.
bool promptlyWaitFor(const std::function<bool()>& condition, int milliseconds);

} // namespace TestSupport
