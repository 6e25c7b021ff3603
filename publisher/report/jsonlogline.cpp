#include "publisher/report/jsonlogline.h"

#include "publisher/report/logtime.h"

#include <algorithm>
#include <charconv>
#include <cmath>

namespace Publisher {

namespace {

/// Goes through one JSON text, which may be anything. Every function returns false
/// where the text is not what it is about.
class JsonScanner {
public:
    explicit JsonScanner(std::string_view line)
        : text(line)
    {
    }

    bool atEnd()
    {
        skipBlanks();
        return at == text.size();
    }

    bool takes(char wanted)
    {
        skipBlanks();
        if (at == text.size() || text[at] != wanted)
            return false;
        ++at;
        return true;
    }

    /// Hands over the name of each member; `member` takes the value.
    template <typename Member> bool object(const Member& member)
    {
        if (!takes('{'))
            return false;
        if (takes('}'))
            return true;
        do {
            std::string_view name;
            if (!string(name) || !takes(':') || !member(name))
                return false;
        } while (takes(','));
        return takes('}');
    }

    /// As it stands there, with its escapes.
    bool string(std::string_view& result)
    {
        if (!takes('"'))
            return false;
        const std::size_t begin = at;
        for (; at < text.size() && text[at] != '"'; ++at)
            at += text[at] == '\\' ? 1 : 0;
        if (at >= text.size())
            return false;
        result = text.substr(begin, at - begin);
        ++at;
        return true;
    }

    bool number(double& result)
    {
        skipBlanks();
        const auto [stop, error]
            = std::from_chars(text.data() + at, text.data() + text.size(), result);
        at = static_cast<std::size_t>(stop - text.data());
        return error == std::errc() && std::isfinite(result);
    }

    /// Any value.
    bool skip()
    {
        std::size_t depth = 0;
        do {
            if (!skipPart(depth))
                return false;
        } while (depth > 0);
        return true;
    }

private:
    /// A string, a bracket, or what lies between two of them.
    bool skipPart(std::size_t& depth)
    {
        constexpr std::string_view ends("{}[]\",");
        std::string_view ignored;
        skipBlanks();
        if (at == text.size())
            return false;
        const char next = text[at];
        if (next == '"')
            return string(ignored);
        const bool closes = next == '}' || next == ']';
        if (closes && depth == 0)
            return false;
        if (closes)
            --depth;
        else if (next == '{' || next == '[')
            ++depth;
        else if (next != ',' || depth == 0)
            return skipWord(ends);
        ++at;
        return true;
    }

    bool skipWord(std::string_view ends)
    {
        const std::size_t begin = at;
        at = std::min(text.find_first_of(ends, at), text.size());
        return at > begin;
    }

    void skipBlanks()
    {
        while (at < text.size() && (text[at] == ' ' || text[at] == '\t'))
            ++at;
    }

    std::string_view text;
    std::size_t at = 0;
};

void appendUtf8(std::string& result, unsigned code)
{
    constexpr unsigned continuation = 0x80;
    constexpr unsigned sixBits = 0x3f;
    if (code < 0x80) {
        result += static_cast<char>(code);
    } else if (code < 0x800) {
        result += static_cast<char>(0xc0 | code >> 6);
        result += static_cast<char>(continuation | (code & sixBits));
    } else {
        result += static_cast<char>(0xe0 | code >> 12);
        result += static_cast<char>(continuation | (code >> 6 & sixBits));
        result += static_cast<char>(continuation | (code & sixBits));
    }
}

/// What stands behind the backslash at this place; returns the place behind it.
std::size_t unescape(std::string_view raw, std::size_t place, std::string& result)
{
    constexpr std::string_view letters("nrtbf");
    constexpr std::string_view meanings("\n\r\t\b\f");
    const char kind = raw[place];
    if (kind == 'u') {
        unsigned code = 0xfffd;
        const std::string_view digits = raw.substr(place + 1, 4);
        std::from_chars(digits.data(), digits.data() + digits.size(), code, 16);
        appendUtf8(result, code);
        return place + 1 + digits.size();
    }
    const std::size_t letter = letters.find(kind);
    result += letter == std::string_view::npos ? kind : meanings[letter];
    return place + 1;
}

/// Kept in `memory` where it has escapes.
std::string_view plain(std::string_view raw, std::string& memory)
{
    if (raw.find('\\') == std::string_view::npos)
        return raw;
    memory.clear();
    for (std::size_t place = 0; place < raw.size();) {
        if (raw[place] == '\\' && place + 1 < raw.size())
            place = unescape(raw, place + 1, memory);
        else
            memory += raw[place++];
    }
    return memory;
}

/// Members of a line, as far as they are there.
struct Found {
    std::optional<double> time;
    std::optional<double> status;
    std::optional<double> size;
    bool hasRequest = false;
};

class Reader {
public:
    Reader(std::string_view line, JsonLogLine& texts, LogLine& target)
        : json(line)
        , memory(texts)
        , result(target)
    {
    }

    bool read()
    {
        return json.object([this](std::string_view name) { return takeMember(name); })
            && json.atEnd();
    }

    Found found;

private:
    bool takeMember(std::string_view name)
    {
        if (name == "ts")
            return takeNumber(found.time);
        if (name == "status")
            return takeNumber(found.status);
        if (name == "size")
            return takeNumber(found.size);
        if (name == "duration")
            return takeNumber(result.seconds);
        if (name == "resp_headers")
            return takeHeaders();
        if (name != "request")
            return json.skip();
        found.hasRequest = true;
        return json.object([this](std::string_view part) { return takeRequest(part); });
    }

    bool takeRequest(std::string_view name)
    {
        std::string_view text;
        if (name == "headers")
            return takeHeaders();
        // Behind a proxy that the server trusts the second one is the player's.
        if (name == "remote_ip" || name == "client_ip")
            return json.string(text) && set(result.address, plain(text, memory.address));
        if (name == "method")
            return json.string(result.method);
        if (name == "uri")
            return json.string(text) && set(result.target, plain(text, memory.target));
        return json.skip();
    }

    /// Of the request or of the answer.
    bool takeHeaders()
    {
        return json.object([this](std::string_view name) {
            if (name == "If-Modified-Since")
                return takeDate(result.ifModifiedSince);
            if (name == "Last-Modified")
                return takeDate(result.lastModified);
            std::string_view text;
            if (name == "User-Agent")
                return takeFirst(text) && set(result.userAgent, plain(text, memory.agent));
            return json.skip();
        });
    }

    bool takeDate(std::optional<std::int64_t>& date)
    {
        std::string_view text;
        if (!takeFirst(text))
            return false;
        date = LogTime::ofHttp(text);
        return true;
    }

    /// Of a list of strings.
    bool takeFirst(std::string_view& text)
    {
        if (!json.takes('[') || !json.string(text))
            return false;
        std::string_view further;
        while (json.takes(',')) {
            if (!json.string(further))
                return false;
        }
        return json.takes(']');
    }

    bool takeNumber(std::optional<double>& target)
    {
        double value = 0;
        if (!json.number(value))
            return false;
        target = value;
        return true;
    }

    template <typename Target> static bool set(Target& target, std::string_view value)
    {
        target = value;
        return true;
    }

    JsonScanner json;
    JsonLogLine& memory;
    LogLine& result;
};

bool isWithin(const std::optional<double>& number, double least, double most)
{
    return number && *number >= least && *number <= most;
}

} // namespace

LineFault JsonLogLine::parse(std::string_view line, LogLine& result)
{
    constexpr double latest = 253'402'300'799; // the last second of the year 9999
    constexpr double mostBytes = 1e18;
    Reader reader(line, *this, result);
    result.userAgent = std::string_view();
    if (!reader.read())
        return LineFault::Cut;
    const Found& found = reader.found;
    // A failure has a line of its own beside that of its request.
    if (!found.hasRequest || !found.status || !found.size)
        return LineFault::OtherMessage;
    if (!isWithin(found.time, static_cast<double>(LogTime::earliest), latest))
        return LineFault::NoTime;
    if (!isWithin(found.status, 0, 999))
        return LineFault::NoStatus;
    if (!isWithin(found.size, 0, mostBytes))
        return LineFault::NoBytes;
    if (result.address.empty())
        return LineFault::NoRequest;
    result.time = static_cast<std::int64_t>(*found.time);
    result.status = static_cast<int>(*found.status);
    result.bytes = static_cast<std::int64_t>(*found.size);
    if (result.seconds && *result.seconds < 0)
        result.seconds.reset();
    return LineFault::None;
}

} // namespace Publisher
