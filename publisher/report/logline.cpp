#include "publisher/report/logline.h"

#include "publisher/report/jsonlogline.h"
#include "publisher/report/logtime.h"

#include <algorithm>
#include <array>
#include <charconv>

using namespace Qt::StringLiterals;

namespace Publisher {

/// Takes words and quoted texts from the front of a line.
class LineParser::Words {
public:
    explicit Words(std::string_view line)
        : rest(line)
    {
    }

    /// Up to the next blank.
    std::string_view word()
    {
        skipBlanks();
        const std::size_t end = std::min(rest.find(' '), rest.size());
        const std::string_view taken = rest.substr(0, end);
        rest.remove_prefix(end);
        return taken;
    }

    bool atEnd()
    {
        skipBlanks();
        return rest.empty();
    }

    /// What stands in quotes. Quotes within are escaped with a backslash, by Apache, or
    /// as a code, by nginx.
    std::optional<std::string_view> quoted()
    {
        skipBlanks();
        if (rest.empty() || rest.front() != '"')
            return std::nullopt;
        std::size_t end = rest.find('"', 1);
        while (end != std::string_view::npos && isEscaped(end))
            end = rest.find('"', end + 1);
        if (end == std::string_view::npos)
            return std::nullopt;
        const std::string_view taken = rest.substr(1, end - 1);
        rest.remove_prefix(end + 1);
        return taken;
    }

private:
    void skipBlanks()
    {
        rest.remove_prefix(std::min(rest.find_first_not_of(' '), rest.size()));
    }

    bool isEscaped(std::size_t place) const
    {
        std::size_t backslashes = 0;
        while (rest[place - 1 - backslashes] == '\\')
            ++backslashes;
        return backslashes % 2 == 1;
    }

    std::string_view rest;
};

namespace {

constexpr double microsecondsOfASecond = 1e6;
constexpr std::int64_t leastStatus = 100;
constexpr std::int64_t mostStatus = 999;

std::optional<double> decimal(std::string_view text)
{
    double value = 0;
    const auto [stop, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    if (error != std::errc() || stop != text.data() + text.size() || !(value >= 0))
        return std::nullopt;
    return value;
}

/// "seconds=0.012" and its like, behind what is quoted.
struct Further {
    std::int64_t sent = 0;
    bool isCutOff = false;

    void take(std::string_view word, LogLine& result)
    {
        const std::size_t middle = word.find('=');
        if (middle == std::string_view::npos)
            return;
        const std::string_view name = word.substr(0, middle);
        const std::string_view value = word.substr(middle + 1);
        if (name == "seconds")
            result.seconds = decimal(value);
        else if (name == "microseconds")
            takeMicroseconds(value, result);
        else if (name == "request")
            result.isNewConnection = value == "1";
        else if (name == "earlier")
            result.isNewConnection = value == "0";
        else if (name == "sent")
            sent = LogTime::number(value).value_or(0);
        else if (name == "connection")
            isCutOff = value == "X";
    }

    /// Apache counts an answer as a whole before it has gone out.
    void conclude(LogLine& result) const
    {
        if (isCutOff)
            result.bytes = std::min(result.bytes, sent);
    }

private:
    static void takeMicroseconds(std::string_view value, LogLine& result)
    {
        if (const auto number = decimal(value))
            result.seconds = *number / microsecondsOfASecond;
    }
};

/// The target may hold blanks where somebody has typed it.
void split(std::string_view request, LogLine& result)
{
    const std::size_t begin = request.find(' ');
    const std::size_t end = request.rfind(" HTTP/");
    if (begin == std::string_view::npos || end == std::string_view::npos || end <= begin)
        return;
    result.method = request.substr(0, begin);
    result.target = request.substr(begin + 1, end - begin - 1);
}

std::size_t placeOfRequest(std::string_view line)
{
    // Whatever a user calls himself stands before it, quotes escaped.
    std::size_t quote = line.find('"');
    while (quote != std::string_view::npos && quote > 0 && line[quote - 1] == '\\')
        quote = line.find('"', quote + 1);
    return quote;
}

} // namespace

template <std::optional<std::int64_t> (*read)(std::string_view)>
std::optional<std::int64_t> LineParser::Dates<read>::of(std::string_view given)
{
    if (given != text) {
        text = given;
        date = read(given);
    }
    return date;
}

QString wordsOf(LineFault fault)
{
    static constexpr std::array<QLatin1StringView, 9> words{
        "fine"_L1,      "of something else"_L1, "of no known format"_L1,
        "no time"_L1,   "no request"_L1,        "no status"_L1,
        "no length"_L1, "cut off"_L1,           "too long"_L1,
    };
    return words[static_cast<std::size_t>(fault)];
}

LineFault LineParser::parse(std::string_view line, LogLine& result)
{
    result = {};
    if (line.empty() || line.front() != '{')
        return parseText(line, result);
    return JsonLogLine{ unescapedAddress, unescapedTarget, unescapedAgent }.parse(line, result);
}

LineFault LineParser::parseText(std::string_view line, LogLine& result)
{
    constexpr std::size_t sizeOfATime = 26;
    const std::size_t quote = placeOfRequest(line);
    if (quote == std::string_view::npos || quote < sizeOfATime + 4 || line[quote - 1] != ' '
        || line[quote - 2] != ']' || line[quote - sizeOfATime - 3] != '[')
        return LineFault::NoFormat;
    result.address = line.substr(0, line.find(' '));
    if (result.address.empty())
        return LineFault::NoFormat;
    const auto time = times.of(line.substr(quote - sizeOfATime - 2, sizeOfATime));
    if (!time || *time < LogTime::earliest)
        return LineFault::NoTime;
    result.time = *time;
    Words words(line.substr(quote));
    const LineFault fault = parseAnswer(words, result);
    return fault == LineFault::None ? parseHeaders(words, result) : fault;
}

LineFault LineParser::parseAnswer(Words& words, LogLine& result)
{
    const auto request = words.quoted();
    if (!request)
        return LineFault::NoRequest;
    split(*request, result);
    const auto status = LogTime::number(words.word());
    if (!status || *status < leastStatus || *status > mostStatus)
        return LineFault::NoStatus;
    result.status = static_cast<int>(*status);
    const std::string_view length = words.word();
    const auto bytes = length == "-" ? 0 : LogTime::number(length);
    if (!bytes)
        return LineFault::NoBytes;
    result.bytes = *bytes;
    return LineFault::None;
}

LineFault LineParser::parseHeaders(Words& words, LogLine& result)
{
    if (words.atEnd())
        return LineFault::None;
    const auto referrer = words.quoted();
    result.userAgent = words.quoted();
    if (!referrer || !result.userAgent)
        return LineFault::Cut;
    const auto since = words.quoted();
    const auto modified = words.quoted();
    if (!since || !modified)
        return LineFault::None;
    result.ifModifiedSince = ifModifiedSince.of(*since);
    result.lastModified = lastModified.of(*modified);
    Further further;
    while (!words.atEnd())
        further.take(words.word(), result);
    further.conclude(result);
    return LineFault::None;
}

} // namespace Publisher
