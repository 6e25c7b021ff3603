#pragma once

#include "publisher/report/logtime.h"

#include <QString>

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace Publisher {

/// A request as a server has noted it. Texts are the server's, with its escapes, and
/// last as long as the line and the parser's memory of it.
struct LogLine {
    std::string_view address;
    /// Seconds since 1970, of the end or the beginning of the request, as the server
    /// has it.
    std::int64_t time = 0;
    /// Both are empty where the request was none.
    std::string_view method;
    std::string_view target;
    int status = 0;
    /// Of the answer, without headers where the format tells them apart.
    std::int64_t bytes = 0;
    /// None where the format has no place for it.
    std::optional<std::string_view> userAgent;
    /// Dates of the player's copy and of what the server has.
    std::optional<std::int64_t> ifModifiedSince;
    std::optional<std::int64_t> lastModified;
    std::optional<double> seconds;
    /// Whether this was the connection's first request.
    std::optional<bool> isNewConnection;
};

/// Why a line tells of no request.
enum class LineFault {
    None,
    /// JSON of something else, such as the start of the server; nothing is wrong.
    OtherMessage,
    NoFormat,
    NoTime,
    NoRequest,
    NoStatus,
    NoBytes,
    Cut,
    TooLong,
};

/// In words, such as "no status".
QString wordsOf(LineFault fault);

/// Reads lines of any of the formats, each by itself: combined, combined with what the
/// shipped configurations add, and Caddy's JSON.
class LineParser {
public:
    /// The line is without its end.
    LineFault parse(std::string_view line, LogLine& result);

private:
    class Words;
    /// Most lines have the date of the one before.
    template <std::optional<std::int64_t> (*read)(std::string_view)> struct Dates {
        std::optional<std::int64_t> of(std::string_view given);

        std::string text;
        std::optional<std::int64_t> date;
    };

    LineFault parseText(std::string_view line, LogLine& result);
    static LineFault parseAnswer(Words& words, LogLine& result);
    LineFault parseHeaders(Words& words, LogLine& result);

    Dates<LogTime::ofTextLog> times;
    Dates<LogTime::ofHttp> ifModifiedSince;
    Dates<LogTime::ofHttp> lastModified;
    /// Texts of JSON without their escapes.
    std::string unescapedAddress;
    std::string unescapedTarget;
    std::string unescapedAgent;
};

} // namespace Publisher
