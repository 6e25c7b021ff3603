#pragma once

#include "updater/platform.h"

#include <cstddef>
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

    void write(std::string_view message) const;

private:
    void makeRoom(std::size_t wanted) const;

    Path path;
};

} // namespace Updater
