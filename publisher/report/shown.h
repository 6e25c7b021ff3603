#pragma once

#include <QString>

#include <cstdint>
#include <string_view>

/// What anybody on the internet may have made up, on its way to people.
namespace Publisher::Shown {

/// A path of a log: what is no UTF-8, what terminals obey and what reads backwards is
/// written as codes, and an address in it as "[address]".
QString path(std::string_view logged);

/// Of a keyed hash.
QString tag(std::uint64_t hash);

} // namespace Publisher::Shown
