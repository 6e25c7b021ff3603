#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

namespace Updater {

/// What kind of program a system starts.
enum class ProgramFormat { Elf, PortableExecutable };

/// How much of a file's beginning `findFault()` wants to see, if there is so
/// much.
inline constexpr std::size_t programHeadSize = 65'536;

/// Why a file of this size that begins with these bytes is no program of this
/// format: the rest of a sentence that begins with the file's name. Null when
/// it is one, as far as its headers tell: they have to be there, and the file
/// has to be as long as they say.
const char*
findFault(ProgramFormat format, std::span<const std::byte> head, std::uint64_t fileSize);

} // namespace Updater
