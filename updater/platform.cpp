#include "updater/platform.h"

namespace Updater {

namespace {

constexpr auto separator = std::filesystem::path::preferred_separator;

} // namespace

Path fileIn(const Path& folder, std::string_view asciiName)
{
    Path path = folder + separator;
    return path.append(asciiName.begin(), asciiName.end());
}

Path folderOf(const Path& path)
{
    const std::size_t end = path.rfind(separator);
    return end == Path::npos ? Path() : path.substr(0, end);
}

Path fileName(const Path& path)
{
    // Without a separator npos + 1 is the beginning.
    return path.substr(path.rfind(separator) + 1);
}

Handle::Handle(std::intptr_t number)
    : value(number)
{
}

bool Handle::isOpen() const
{
    return value != none;
}

std::intptr_t Handle::get() const
{
    return value;
}

const Problem& InputFile::problem() const
{
    return trouble;
}

bool InputFile::isRegular() const
{
    return regular;
}

std::uint64_t InputFile::size() const
{
    return length;
}

std::optional<std::uint32_t> markOfDate(std::int64_t seconds)
{
    const std::int64_t number = (seconds - firstMark) / 2;
    if (seconds < firstMark || number >= std::int64_t{ markLimit })
        return {};
    return static_cast<std::uint32_t>(number);
}

FolderLock::State FolderLock::state() const
{
    return result;
}

const Problem& FolderLock::problem() const
{
    return trouble;
}

} // namespace Updater
