#include "updater/programheader.h"

#include <algorithm>
#include <optional>
#include <string_view>

namespace Updater {

namespace {

constexpr const char* noProgram = "is no program for this system";
constexpr const char* cutShort = "is cut short";
constexpr const char* otherMachine = "is a program for another processor";

/// Reads little-endian numbers; one that is not there is zero, which no format
/// takes for good.
class Bytes {
public:
    explicit Bytes(std::span<const std::byte> head)
        : bytes(head)
    {
    }

    std::uint64_t number(std::uint64_t offset, unsigned width) const
    {
        std::uint64_t value = 0;
        for (unsigned n = 0; n < width; ++n)
            value |= std::uint64_t{ byteAt(offset + n) } << (8 * n);
        return value;
    }

    bool hasAt(std::uint64_t offset, std::string_view text) const
    {
        const auto same = [this, &offset](char wanted) {
            return byteAt(offset++) == static_cast<unsigned char>(wanted);
        };
        return std::ranges::all_of(text, same);
    }

private:
    std::uint8_t byteAt(std::uint64_t offset) const
    {
        return offset < bytes.size() ? std::to_integer<std::uint8_t>(bytes[offset]) : 0;
    }

    std::span<const std::byte> bytes;
};

bool looksLikeMarkup(std::span<const std::byte> head)
{
    constexpr std::string_view blanks = "\xEF\xBB\xBF \t\r\n";
    const auto first = std::ranges::find_if(head, [&](std::byte value) {
        return blanks.find(static_cast<char>(value)) == std::string_view::npos;
    });
    return first != head.end() && *first == std::byte{ '<' };
}

bool runsOn(const ProgramKind& kind, std::uint64_t machine)
{
    return kind.machines.empty()
        || std::ranges::find(kind.machines, machine) != kind.machines.end();
}

/// Where the fields of the header stand, for 32 and 64 bits, and those of an
/// entry of the table of segments.
struct ElfLayout {
    unsigned wordSize;
    unsigned programTable;
    unsigned sectionTable;
    unsigned sizes;
    unsigned segmentSize;
    unsigned segmentOffset;
    unsigned segmentLength;
};

constexpr ElfLayout elf32{ 4, 28, 32, 42, 32, 4, 16 };
constexpr ElfLayout elf64{ 8, 32, 40, 54, 56, 8, 32 };

std::optional<ElfLayout> elfLayout(const Bytes& bytes)
{
    constexpr std::uint64_t littleEndian = 1;
    if (!bytes.hasAt(
            0,
            "\x7F"
            "ELF")
        || bytes.number(5, 1) != littleEndian)
        return std::nullopt;
    switch (bytes.number(4, 1)) {
    case 1:
        return elf32;
    case 2:
        return elf64;
    default:
        return std::nullopt;
    }
}

/// Without running over, whatever the header says.
bool fits(std::uint64_t offset, std::uint64_t length, std::uint64_t fileSize)
{
    return offset <= fileSize && length <= fileSize - offset;
}

/// Both tables and everything that the system loads.
bool elfIsWhole(const Bytes& bytes, const ElfLayout& layout, std::uint64_t fileSize)
{
    const auto field = [&](std::uint64_t place) {
        return bytes.number(place, layout.wordSize);
    };
    const auto tableFits = [&](unsigned place, unsigned sizes) {
        return fits(field(place), bytes.number(sizes, 2) * bytes.number(sizes + 2, 2), fileSize);
    };
    // The table of sections is the last thing in a file, so this notices a
    // download that has been cut.
    if (!tableFits(layout.programTable, layout.sizes)
        || !tableFits(layout.sectionTable, layout.sizes + 4))
        return false;
    const std::uint64_t table = field(layout.programTable);
    const std::uint64_t segments = bytes.number(layout.sizes + 2, 2);
    for (std::uint64_t n = 0; n < segments; ++n) {
        const std::uint64_t segment = table + n * layout.segmentSize;
        if (!fits(
                field(segment + layout.segmentOffset), field(segment + layout.segmentLength),
                fileSize))
            return false;
    }
    return true;
}

const char* findElfFault(const ProgramKind& kind, const Bytes& bytes, std::uint64_t fileSize)
{
    constexpr std::uint64_t executable = 2;
    constexpr std::uint64_t positionIndependent = 3;
    const std::optional<ElfLayout> layout = elfLayout(bytes);
    const std::uint64_t type = bytes.number(16, 2);
    if (!layout || (type != executable && type != positionIndependent))
        return noProgram;
    if (!runsOn(kind, bytes.number(18, 2)))
        return otherMachine;
    if (!elfIsWhole(bytes, *layout, fileSize))
        return cutShort;
    const std::uint64_t segmentSize = bytes.number(layout->sizes, 2);
    const std::uint64_t segments = bytes.number(layout->sizes + 2, 2);
    const std::uint64_t sections = bytes.number(layout->sizes + 6, 2);
    // Every linker writes sections; without them nothing tells where the file ends.
    return segments > 0 && segmentSize == layout->segmentSize && sections > 0 ? nullptr : noProgram;
}

/// The signature lies behind everything that is loaded, so it is what a cut takes
/// first. Its entry tells a place in the file and not, like others, in memory.
bool signatureIsWhole(const Bytes& bytes, std::uint64_t optionalHeader, std::uint64_t fileSize)
{
    constexpr std::uint64_t magicOf64Bits = 0x020B;
    constexpr std::uint64_t indexOfSignature = 4;
    const bool is64 = bytes.number(optionalHeader, 2) == magicOf64Bits;
    const std::uint64_t directories = optionalHeader + (is64 ? 112 : 96);
    if (bytes.number(directories - 4, 4) <= indexOfSignature)
        return true;
    const std::uint64_t entry = directories + indexOfSignature * 8;
    return fits(bytes.number(entry, 4), bytes.number(entry + 4, 4), fileSize);
}

bool sectionsAreWhole(const Bytes& bytes, std::uint64_t start, std::uint64_t fileSize)
{
    constexpr std::uint64_t sectionSize = 40;
    const std::uint64_t sections = bytes.number(start + 6, 2);
    const std::uint64_t table = start + 24 + bytes.number(start + 20, 2);
    for (std::uint64_t n = 0; n < sections; ++n) {
        const std::uint64_t section = table + n * sectionSize;
        if (!fits(section, sectionSize, fileSize)
            || !fits(bytes.number(section + 20, 4), bytes.number(section + 16, 4), fileSize))
            return false;
    }
    return true;
}

const char*
findPortableExecutableFault(const ProgramKind& kind, const Bytes& bytes, std::uint64_t fileSize)
{
    constexpr std::uint64_t executableImage = 0x0002;
    constexpr std::uint64_t library = 0x2000;
    const std::uint64_t start = bytes.number(0x3C, 4);
    if (!bytes.hasAt(0, "MZ"))
        return noProgram;
    if (!fits(start, 24, fileSize))
        return cutShort;
    const std::uint64_t flags = bytes.number(start + 22, 2);
    if (!bytes.hasAt(start, { "PE\0\0", 4 }) || (flags & executableImage) == 0
        || (flags & library) != 0)
        return noProgram;
    if (!runsOn(kind, bytes.number(start + 4, 2)))
        return otherMachine;
    if (!sectionsAreWhole(bytes, start, fileSize) || !signatureIsWhole(bytes, start + 24, fileSize))
        return cutShort;
    return bytes.number(start + 6, 2) > 0 ? nullptr : noProgram;
}

} // namespace

const char*
findFault(const ProgramKind& kind, std::span<const std::byte> head, std::uint64_t fileSize)
{
    if (fileSize == 0)
        return "is empty";
    if (looksLikeMarkup(head))
        return "is a web page";
    const Bytes bytes(head);
    return kind.format == ProgramFormat::Elf ? findElfFault(kind, bytes, fileSize)
                                             : findPortableExecutableFault(kind, bytes, fileSize);
}

} // namespace Updater
