#pragma once

#include <cstdint>
#include <optional>
#include <string_view>

/// Times as servers write them, in seconds since 1970. What is no time is none.
namespace Publisher::LogTime {

/// "22/Nov/2026:10:46:00 +0000".
std::optional<std::int64_t> ofTextLog(std::string_view text);
/// "Sun, 22 Nov 2026 10:46:00 GMT".
std::optional<std::int64_t> ofHttp(std::string_view text);

/// No server of launchers is older: the beginning of the year 2000.
inline constexpr std::int64_t earliest = 946'684'800;

/// Digits alone.
std::optional<std::int64_t> number(std::string_view digits);

/// Of the days since 1970.
inline constexpr std::int64_t secondsOfADay = 86'400;
inline constexpr std::int64_t secondsOfAMinute = 60;

} // namespace Publisher::LogTime
