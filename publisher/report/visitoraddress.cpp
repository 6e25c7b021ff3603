#include "publisher/report/visitoraddress.h"

#include <array>
#include <charconv>
#include <cstdint>

namespace Publisher {

namespace {

constexpr std::size_t groupsOfAnAddress = 8;
constexpr std::size_t groupsOfAHalf = 4;

struct Groups {
    std::array<std::uint16_t, groupsOfAnAddress> values{};
    std::size_t count = 0;

    bool add(std::string_view text)
    {
        const char* const end = text.data() + text.size();
        if (count == groupsOfAnAddress || text.empty())
            return false;
        const auto [stop, error] = std::from_chars(text.data(), end, values[count++], 16);
        return error == std::errc() && stop == end;
    }

    /// "2001:db8:1"; nothing at all is no group.
    bool addAll(std::string_view text)
    {
        while (!text.empty()) {
            const std::size_t colon = text.find(':');
            if (!add(text.substr(0, colon)))
                return false;
            if (colon == std::string_view::npos)
                return true;
            text.remove_prefix(colon + 1);
        }
        return true;
    }
};

/// False where it is none.
bool readGroups(std::string_view text, Groups& groups)
{
    const std::size_t gap = text.find("::");
    if (gap == std::string_view::npos)
        return groups.addAll(text) && groups.count == groupsOfAnAddress;
    Groups behind;
    if (!groups.addAll(text.substr(0, gap)) || !behind.addAll(text.substr(gap + 2))
        || groups.count + behind.count > groupsOfAnAddress)
        return false;
    for (std::size_t i = 0; i < behind.count; ++i)
        groups.values[groupsOfAnAddress - behind.count + i] = behind.values[i];
    return true;
}

} // namespace

VisitorAddress::VisitorAddress(std::string_view text)
    : whole(text)
{
    if (text.find(':') == std::string_view::npos)
        return;
    // An IPv4 address in the clothes of IPv6, as servers of both see it.
    if (text.find('.') != std::string_view::npos) {
        whole = text.substr(text.rfind(':') + 1);
        return;
    }
    Groups groups;
    if (!readGroups(text, groups))
        return;
    for (std::size_t i = 0; i < groupsOfAHalf; ++i) {
        bytes[2 * i] = static_cast<char>(groups.values[i] >> 8);
        bytes[2 * i + 1] = static_cast<char>(groups.values[i] & 0xff);
    }
    isHalf = true;
}

std::string_view VisitorAddress::household() const
{
    return isHalf ? std::string_view(bytes.data(), bytes.size()) : whole;
}

} // namespace Publisher
