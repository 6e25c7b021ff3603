#pragma once

#include "publisher/report/logline.h"

#include <string>
#include <string_view>

namespace Publisher {

/// A line of JSON as Caddy writes it. The strings take what has escapes in the line.
struct JsonLogLine {
    std::string& address;
    std::string& target;
    std::string& agent;

    LineFault parse(std::string_view line, LogLine& result);
};

} // namespace Publisher
