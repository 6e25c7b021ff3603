#pragma once

#include <array>
#include <cstdint>
#include <string_view>

namespace Publisher {

/// SipHash-2-4: who does not know the key can neither guess what was hashed nor make
/// up two texts of one hash.
class KeyedHash {
public:
    using Key = std::array<std::uint64_t, 2>;

    explicit KeyedHash(const Key& key);
    /// With a key that nobody has seen and that goes with this object.
    static KeyedHash ofOneRun();

    std::uint64_t of(std::string_view text) const;

private:
    Key key;
};

} // namespace Publisher
