#pragma once

#include "publisher/common/problem.h"

#include <cstdint>
#include <functional>
#include <string_view>

namespace Publisher {

class LogSource;

/// Cuts a log into lines.
namespace LogLines {

/// Longer ones are handed out as an empty text with `isTooLong`.
inline constexpr std::size_t longest = std::size_t{ 64 } << 10;

struct Line {
    std::string_view text;
    /// Counted from 1.
    std::int64_t number = 0;
    bool isTooLong = false;
    /// The last one, without an end: it is being written, or was cut off.
    bool isUnfinished = false;
};

using Take = std::function<void(const Line&)>;

/// Returns what has kept it from reading on; the lines before have been handed out.
[[nodiscard]] Problem read(LogSource& source, const Take& take);

} // namespace LogLines

} // namespace Publisher
