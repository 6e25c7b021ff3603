#include "updater/limits.h"

#include <array>
#include <numeric>

namespace Updater {

namespace {

using namespace std::chrono_literals;

constexpr std::array<std::chrono::milliseconds, 10> growingPauses{ 50ms,   100ms,  200ms,  400ms,
                                                                   800ms,  1600ms, 3000ms, 3000ms,
                                                                   3000ms, 4000ms };

// A virus scanner takes its time over a program that has just been downloaded.
constexpr auto oneStep = std::accumulate(growingPauses.begin(), growingPauses.end(), 0ms);
static_assert(oneStep >= 15s);

// Replacing, starting, putting back and clearing away may all take their time.
constexpr auto otherUpdater = 90s;
static_assert(otherUpdater >= 5 * oneStep);

} // namespace

const Limits limits{ 60s, otherUpdater, growingPauses };

} // namespace Updater
