#pragma once

namespace TestSupport {

/// How long tests wait for what is sure to come, in milliseconds. More than the
/// launcher has with a silent server: that it has given up says more than that
/// nothing happens.
inline constexpr int patience = 100'000;

} // namespace TestSupport
