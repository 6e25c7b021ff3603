#pragma once

#include "updater/platform.h"

#include <cstddef>
#include <span>
#include <string>
#include <string_view>

namespace Updater {

/// The updater's diary, one line for each thing done, with its time. Updaters
/// that run at once write into the same file. A line that the file does not
/// take goes to standard error instead.
class Log {
public:
    /// The file never grows beyond this; the oldest lines go.
    static constexpr std::size_t largestSize = std::size_t{ 256 } * 1024;

    explicit Log(Path path);

    /// False if the file has not taken it.
    bool write(std::string_view message) const; // NOLINT(modernize-use-nodiscard)
    /// The last message that begins like one of these, by whichever updater;
    /// empty if there is none.
    std::string lastOf(std::span<const std::string_view> beginnings) const;

private:
    void makeRoom(std::size_t wanted) const;

    Path path;
};

} // namespace Updater
