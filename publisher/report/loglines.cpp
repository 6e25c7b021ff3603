#include "publisher/report/loglines.h"

#include "publisher/report/logsource.h"

#include <cstring>
#include <vector>

namespace Publisher::LogLines {

namespace {

constexpr std::size_t readAtOnce = std::size_t{ 1 } << 20;

/// Holds what has been read of the line that goes on in the next piece.
class Splitter {
public:
    explicit Splitter(const Take& taker)
        : take(taker)
        , buffer(longest + readAtOnce)
    {
    }

    std::span<char> room()
    {
        return std::span(buffer).subspan(filled);
    }

    void add(std::size_t size)
    {
        const std::string_view all(buffer.data(), filled + size);
        std::size_t begin = 0;
        std::size_t end = all.find('\n', filled);
        for (; end != std::string_view::npos; end = all.find('\n', begin)) {
            hand(all.substr(begin, end - begin), false);
            begin = end + 1;
        }
        keep(all.substr(begin));
    }

    void end()
    {
        if (filled > 0 || isSkipping)
            hand({ buffer.data(), filled }, true);
    }

private:
    void hand(std::string_view text, bool isUnfinished)
    {
        if (text.ends_with('\r'))
            text.remove_suffix(1);
        const bool isTooLong = isSkipping || text.size() > longest;
        isSkipping = false;
        take({ isTooLong ? std::string_view() : text, ++number, isTooLong, isUnfinished });
    }

    void keep(std::string_view rest)
    {
        isSkipping = isSkipping || rest.size() > longest;
        filled = isSkipping ? 0 : rest.size();
        std::memmove(buffer.data(), rest.data(), filled);
    }

    const Take& take;
    std::vector<char> buffer;
    std::size_t filled = 0;
    std::int64_t number = 0;
    /// Of a line that is too long, up to its end.
    bool isSkipping = false;
};

} // namespace

Problem read(LogSource& source, const Take& take)
{
    Splitter splitter(take);
    Problem problem;
    while (const std::size_t size = source.read(splitter.room(), problem))
        splitter.add(size);
    splitter.end();
    return problem;
}

} // namespace Publisher::LogLines
