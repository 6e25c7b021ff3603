#include "updater/log.h"

#include "updater/filenames.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <tuple>
#include <utility>

namespace Updater {

namespace {

/// "2024-05-01T10:15:00.250+02:00"
std::string timeStamp(const LocalTime& time)
{
    std::array<char, 96> text{};
    const int offset = std::abs(time.offsetInMinutes);
    std::snprintf(
        text.data(), text.size(), "%04d-%02d-%02dT%02d:%02d:%02d.%03d%c%02d:%02d", time.year,
        time.month, time.day, time.hour, time.minute, time.second, time.millisecond,
        time.offsetInMinutes < 0 ? '-' : '+', offset / 60, offset % 60);
    return text.data();
}

std::string readText(InputFile& file, std::size_t size)
{
    std::string text(size, '\0');
    text.resize(file.read(std::as_writable_bytes(std::span(text))));
    return text;
}

/// What stands behind time and process id.
std::string_view messageOf(std::string_view line)
{
    constexpr std::string_view end = "] ";
    const std::size_t place = line.find(end);
    return place == std::string_view::npos ? std::string_view() : line.substr(place + end.size());
}

/// The whole lines among the last `size` bytes.
std::string_view lastLines(std::string_view text, std::size_t size)
{
    if (text.size() <= size)
        return text;
    text.remove_prefix(text.size() - size - 1);
    const std::size_t end = text.find('\n');
    return end == std::string_view::npos ? std::string_view() : text.substr(end + 1);
}

} // namespace

Log::Log(Path file)
    : path(std::move(file))
{
}

bool Log::write(std::string_view message) const
{
    std::string line = timeStamp(localTime());
    line.append(" [").append(std::to_string(ownProcessId())).append("] ");
    line.append(message).append("\n");
    makeRoom(line.size());
    const bool isWritten = !appendTo(path, line);
    if (!isWritten)
        std::fputs(line.c_str(), stderr);
    return isWritten;
}

/// Half of the lines stay, so that this is rare. What another updater writes in
/// the meantime may get lost, which is better than waiting for it.
void Log::makeRoom(std::size_t wanted) const
{
    InputFile file(path);
    if (file.problem() || file.size() + wanted <= largestSize)
        return;
    // Somebody else's file may be huge: all but its end is passed over.
    std::string kept;
    while (true) {
        const std::string block = readText(file, largestSize);
        if (block.empty())
            break;
        kept += block;
        kept = std::string(lastLines(kept, largestSize / 2));
    }
    const Path shortened = fileIn(folderOf(path), shortenedLogName);
    std::ignore = removeFile(shortened);
    if (!createFile(shortened, kept) && moveOver(shortened, path))
        std::ignore = removeFile(shortened);
}

std::string Log::lastOf(std::span<const std::string_view> beginnings) const
{
    InputFile file(path);
    std::string last;
    const std::string text = readText(file, 2 * largestSize);
    for (std::string_view rest = text; !rest.empty();) {
        const std::size_t end = std::min(rest.find('\n'), rest.size() - 1);
        const std::string_view message = messageOf(rest.substr(0, end));
        rest.remove_prefix(end + 1);
        const auto matches = [message](std::string_view beginning) {
            return message.starts_with(beginning);
        };
        if (std::ranges::any_of(beginnings, matches))
            last = message;
    }
    return last;
}

} // namespace Updater
