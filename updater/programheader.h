#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>

namespace Updater {

enum class ProgramFormat { Elf, PortableExecutable };

/// What a system takes for a program.
struct ProgramKind {
    ProgramFormat format;
    /// The processors that run here, by their numbers in the format's header;
    /// none for all.
    std::span<const std::uint16_t> machines;
};

inline constexpr std::array<std::uint16_t, 2> windowsMachines{ 0x8664, 0x014C };
/// What players' Windows starts, of 64 bits and of 32.
inline constexpr ProgramKind windowsProgram{ ProgramFormat::PortableExecutable, windowsMachines };

/// How much of a file's beginning `findFault()` wants to see, if there is so
/// much.
inline constexpr std::size_t programHeadSize = 65'536;

/// Why a file of this size that begins with these bytes is no program of this
/// kind: the rest of a sentence that begins with the file's name. Null when
/// it is one, as far as its headers tell: they have to be there, and the file
/// has to be as long as they say.
const char*
findFault(const ProgramKind& kind, std::span<const std::byte> head, std::uint64_t fileSize);

} // namespace Updater
