// How patient the updater is in the tests, which have no minute to spare.

#include "updater/limits.h"

#include <array>

namespace Updater {

namespace {

using namespace std::chrono_literals;

constexpr std::array<std::chrono::milliseconds, 4> pauses{ 2ms, 4ms, 8ms, 16ms };

} // namespace

const Limits limits{ 400ms, 5s, pauses };

} // namespace Updater
