#pragma once

#include "updater/programheader.h"

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <optional>
#include <span>
#include <string>
#include <string_view>

// Everything in which the systems differ: platform_linux.cpp and
// platform_windows.cpp say the same in two languages. Nothing here throws but
// for want of memory.

namespace Updater {

/// As the system takes it, whatever the player's folder is called. The library's
/// own class for paths would bring half a megabyte of locales along.
using Path = std::filesystem::path::string_type;

Path fileIn(const Path& folder, std::string_view asciiName);
Path folderOf(const Path& path);
Path fileName(const Path& path);

/// Nothing after success; otherwise what was tried and the system's own words
/// for what stood in the way, in UTF-8.
using Problem = std::optional<std::string>;

extern const ProgramKind nativeProgram;

/// A file descriptor or handle, closed at the end of its life.
class Handle {
public:
    static constexpr std::intptr_t none = -1;

    explicit Handle(std::intptr_t value = none);
    ~Handle();
    Handle(const Handle&) = delete;
    Handle& operator=(const Handle&) = delete;

    bool isOpen() const;
    std::intptr_t get() const;

private:
    std::intptr_t value;
};

/// A file that is read from its beginning to its end. A link is not followed.
class InputFile {
public:
    explicit InputFile(const Path& path);

    /// What has kept it from being opened or read so far.
    const Problem& problem() const;
    /// Neither folder nor pipe, nor anything else without content of its own.
    bool isRegular() const;
    std::uint64_t size() const;
    /// Fills the buffer as far as the file goes and returns how far that was.
    std::size_t read(std::span<std::byte> buffer);

private:
    void inspect(const Path& path);

    Handle handle;
    Problem trouble;
    bool regular = false;
    std::uint64_t length = 0;
};

/// The right to exchange files in a folder. The system takes it back when the
/// holder ends, however it ends. It leaves no file behind and needs no right to
/// write, because it clings to the folder itself. Whoever sees the folder can
/// take it, so it keeps updaters apart and nobody out.
class FolderLock {
public:
    enum class State { Ours, Taken, Impossible };

    /// Does not wait.
    explicit FolderLock(const Path& folder);

    State state() const;
    /// Why it is impossible.
    const Problem& problem() const;

private:
    Problem trouble;
    State result = State::Impossible;
    Handle handle;
};

/// Keeps what the process has been started with from getting in its way. To be
/// called first.
void prepareProcess();

/// Folder of the running program; empty if the system does not tell.
Path programFolder();
std::uint32_t ownProcessId();

enum class ProcessEnd {
    /// It has ended by now, or there was none.
    Ended,
    /// The id belongs to some other program, so the one that had it has ended.
    OtherProgram,
    StillRunning
};

/// Waits until the process with this id, running this program, has ended.
ProcessEnd waitForEnd(std::uint32_t id, const Path& program, std::chrono::milliseconds limit);

/// Why a program has not been started.
struct StartFailure {
    std::string problem;
    /// The system does not take the file for a program, and never will.
    bool isFinal = false;
};

/// Starts a program that outlives this one, in its own folder, without arguments
/// and with nothing that has been done to this process.
[[nodiscard]] std::optional<StartFailure> startDetached(const Path& program);

/// Whatever it is; true also when the system does not let one see.
bool isThere(const Path& path);
/// No problem if there is none.
[[nodiscard]] Problem removeFile(const Path& path);
/// Gives the file a second name, which is free, or, where a file can have one
/// only, makes a duplicate with the same date, half of which may be left when it
/// fails.
[[nodiscard]] Problem duplicate(const Path& original, const Path& copy);
/// Sees to it that the content survives a power failure and that the system
/// lets players run the file, with nobody's rights but their own.
[[nodiscard]] Problem makeRunnable(const Path& path);
/// Gives `from` the name `to`. At every moment, whatever happens, `to` is either
/// what it was or what it is to be.
[[nodiscard]] Problem moveOver(const Path& from, const Path& to);
/// Brings the modification time of `path` forward to that of `other`, never
/// back, and says whether it has moved.
[[nodiscard]] Problem adoptNewerDate(const Path& path, const Path& other, bool& moved);
/// Writes a number below `markLimit` on a file, as a date that no file has by
/// chance, of the year 1980 or so. Needs no right to write into its folder.
[[nodiscard]] Problem mark(const Path& path, std::uint32_t number);
std::optional<std::uint32_t> markOn(const Path& path);

inline constexpr std::uint32_t markLimit = 1U << 24U;
/// Since 1970: 2 January 1980, 03:04:06, by Greenwich. The next numbers are two
/// seconds apart, since some disks know no single ones.
inline constexpr std::int64_t firstMark = 315'630'246;
/// What a date in seconds since 1970 says.
std::optional<std::uint32_t> markOfDate(std::int64_t seconds);

/// In one piece, also when another program appends at the same time. Neither a
/// link nor a pipe is followed.
[[nodiscard]] Problem appendTo(const Path& path, std::string_view text);
/// Writes a new file; a problem if there is anything of that name.
[[nodiscard]] Problem createFile(const Path& path, std::string_view text);

/// The clock on the wall.
struct LocalTime {
    int year = 0;
    int month = 0;
    int day = 0;
    int hour = 0;
    int minute = 0;
    int second = 0;
    int millisecond = 0;
    /// East of Greenwich.
    int offsetInMinutes = 0;
};
LocalTime localTime();

void pause(std::chrono::milliseconds duration);

} // namespace Updater
