#include "updater/processid.h"

#include <charconv>

namespace Updater {

std::optional<std::uint32_t> parseProcessId(std::string_view text)
{
    std::uint32_t id = 0;
    const char* end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(text.data(), end, id);
    if (error != std::errc() || stop != end || id == 0)
        return std::nullopt;
    return id;
}

} // namespace Updater
