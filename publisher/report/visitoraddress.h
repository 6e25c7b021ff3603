#pragma once

#include <array>
#include <string_view>

namespace Publisher {

/// What of an address tells one household from another: all of an IPv4 address, and of
/// an IPv6 address the first half, since its machines change the second one by
/// themselves. Texts of one household are the same.
class VisitorAddress {
public:
    explicit VisitorAddress(std::string_view text);

    std::string_view household() const;

private:
    std::string_view whole;
    /// The first half as bytes; empty for anything else.
    std::array<char, 8> bytes{};
    bool isHalf = false;
};

} // namespace Publisher
