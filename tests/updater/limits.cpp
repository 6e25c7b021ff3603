// How patient the updater is in the tests, which have no minute to spare.

#include "updater/limits.h"

#include <array>

namespace Updater {

namespace {

using namespace std::chrono_literals;

constexpr std::array<std::chrono::milliseconds, 4> pauses{ 2ms, 4ms, 8ms, 16ms };

#ifdef _WIN32
// Under Wine, on a busy machine, the second of two updaters needs half a second to
// begin; the first one has to be waiting still.
constexpr std::chrono::milliseconds launcherEnd = 4s;
#else
constexpr std::chrono::milliseconds launcherEnd = 400ms;
#endif

} // namespace

const Limits limits{ launcherEnd, 5s, pauses };

} // namespace Updater
