#pragma once

#include <cstdint>
#include <optional>
#include <string_view>

namespace Updater {

/// A process id in plain decimal digits, nothing around them; zero is none.
std::optional<std::uint32_t> parseProcessId(std::string_view text);

} // namespace Updater
