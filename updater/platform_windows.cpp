// Windows: what players have.

#include "updater/platform.h"

#include <algorithm>
#include <array>
#include <cwchar>
#include <functional>
#include <tuple>

#include <windows.h>

namespace Updater {

namespace {

using std::chrono::milliseconds;

constexpr DWORD shareEverything = FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE;

std::string utf8(std::wstring_view text)
{
    const int size = static_cast<int>(text.size());
    const int needed
        = WideCharToMultiByte(CP_UTF8, 0, text.data(), size, nullptr, 0, nullptr, nullptr);
    std::string converted(static_cast<std::size_t>(needed), '\0');
    WideCharToMultiByte(CP_UTF8, 0, text.data(), size, converted.data(), needed, nullptr, nullptr);
    return converted;
}

/// In the system's language, without the line break and the stop at its end.
std::string systemMessage(DWORD error)
{
    std::array<wchar_t, 512> text{};
    DWORD length = FormatMessageW(
        FORMAT_MESSAGE_FROM_SYSTEM | FORMAT_MESSAGE_IGNORE_INSERTS | FORMAT_MESSAGE_MAX_WIDTH_MASK,
        nullptr, error, 0, text.data(), static_cast<DWORD>(text.size()), nullptr);
    while (length > 0 && (text[length - 1] == L' ' || text[length - 1] == L'.'))
        --length;
    return utf8({ text.data(), length }) + " (" + std::to_string(error) + ')';
}

Problem failure(const std::string& doing, DWORD error)
{
    return doing + ": " + systemMessage(error);
}

Problem failure(const std::string& doing, const Path& path, DWORD error)
{
    return failure(doing + ' ' + utf8(fileName(path)), error);
}

std::intptr_t number(HANDLE handle)
{
    // Some calls say null for none.
    return handle == nullptr ? Handle::none : reinterpret_cast<std::intptr_t>(handle);
}

HANDLE native(const Handle& handle)
{
    return reinterpret_cast<HANDLE>(handle.get()); // NOLINT(performance-no-int-to-ptr)
}

std::intptr_t openFile(const Path& path, DWORD access, DWORD creation, DWORD flags)
{
    return number(
        CreateFileW(path.c_str(), access, shareEverything, nullptr, creation, flags, nullptr));
}

bool isMissing(DWORD error)
{
    return error == ERROR_FILE_NOT_FOUND || error == ERROR_PATH_NOT_FOUND;
}

/// Asks with more and more room; Windows tells of a lack by a full buffer.
template <typename Query> std::wstring growingText(Query query)
{
    for (DWORD room = MAX_PATH; room <= 64 * 1024; room *= 2) {
        std::wstring text(room, L'\0');
        const DWORD length = query(text.data(), room);
        if (length < room) {
            text.resize(length);
            return text;
        }
    }
    return {};
}

/// What a path leads to, whichever path it is. False if the system does not tell.
bool identify(const Path& path, BY_HANDLE_FILE_INFORMATION& data)
{
    const Handle file(openFile(path, 0, OPEN_EXISTING, FILE_FLAG_BACKUP_SEMANTICS));
    return file.isOpen() && GetFileInformationByHandle(native(file), &data) != FALSE;
}

/// The one path among all that lead to a file; the path itself if the system
/// does not tell, as for some disks that are none.
std::wstring finalPath(const Path& path)
{
    const Handle file(openFile(path, 0, OPEN_EXISTING, FILE_FLAG_BACKUP_SEMANTICS));
    if (!file.isOpen())
        return path;
    const std::wstring found = growingText([&](wchar_t* text, DWORD room) {
        return GetFinalPathNameByHandleW(native(file), text, room, FILE_NAME_NORMALIZED);
    });
    return found.empty() ? path : found;
}

bool equal(const std::wstring& one, const std::wstring& other)
{
    return CompareStringOrdinal(
               one.data(), static_cast<int>(one.size()), other.data(),
               static_cast<int>(other.size()), TRUE)
        == CSTR_EQUAL;
}

std::wstring imageOf(const Handle& process)
{
    return growingText([&](wchar_t* text, DWORD room) {
        DWORD length = room;
        if (QueryFullProcessImageNameW(native(process), 0, text, &length) != FALSE)
            return length;
        return GetLastError() == ERROR_INSUFFICIENT_BUFFER ? room : DWORD{ 0 };
    });
}

bool runsProgram(const Handle& process, const Path& program)
{
    const std::wstring image = imageOf(process);
    return !image.empty() && (equal(image, program) || equal(finalPath(image), finalPath(program)));
}

bool endsWithin(const Handle& process, milliseconds limit)
{
    return WaitForSingleObject(native(process), static_cast<DWORD>(limit.count())) == WAIT_OBJECT_0;
}

/// No folder, no link, no pipe.
bool isRegularFile(const Handle& file, const BY_HANDLE_FILE_INFORMATION& data)
{
    return GetFileType(native(file)) == FILE_TYPE_DISK
        && (data.dwFileAttributes & (FILE_ATTRIBUTE_DIRECTORY | FILE_ATTRIBUTE_REPARSE_POINT)) == 0;
}

Problem writeAll(const Handle& file, std::string_view text, const Path& path)
{
    DWORD written = 0;
    const auto size = static_cast<DWORD>(text.size());
    if (WriteFile(native(file), text.data(), size, &written, nullptr) == FALSE)
        return failure("write", path, GetLastError());
    return written == size ? Problem() : failure("write", path, ERROR_DISK_FULL);
}

/// A name for the whole machine that is the same for every path to a folder.
std::wstring lockName(const Path& folder)
{
    BY_HANDLE_FILE_INFORMATION data{};
    if (!identify(folder, data)) {
        // Both updaters of a launcher have been started by the same path.
        return L"Global\\Halden-Launcher-Updater-"
            + std::to_wstring(std::hash<std::wstring>()(folder));
    }
    std::array<wchar_t, 96> name{};
    std::swprintf(
        name.data(), name.size(), L"Global\\Halden-Launcher-Updater-%08lx-%08lx%08lx",
        data.dwVolumeSerialNumber, data.nFileIndexHigh, data.nFileIndexLow);
    return name.data();
}

/// Clears the attribute that lets Windows refuse to remove or replace a file.
bool clearReadOnly(const Path& path)
{
    const DWORD attributes = GetFileAttributesW(path.c_str());
    const DWORD concerned = FILE_ATTRIBUTE_READONLY | FILE_ATTRIBUTE_DIRECTORY;
    if (attributes == INVALID_FILE_ATTRIBUTES
        || (attributes & concerned) != FILE_ATTRIBUTE_READONLY)
        return false;
    const DWORD others = attributes & ~DWORD{ FILE_ATTRIBUTE_READONLY };
    return SetFileAttributesW(path.c_str(), others == 0 ? FILE_ATTRIBUTE_NORMAL : others) != FALSE;
}

/// Told by the system of the file itself and not of the moment.
bool isFinal(DWORD error)
{
    constexpr std::array<DWORD, 12> errors{
        ERROR_BAD_EXE_FORMAT,
        ERROR_EXE_MACHINE_TYPE_MISMATCH,
        ERROR_EXE_MARKED_INVALID,
        ERROR_INVALID_EXE_SIGNATURE,
        ERROR_INVALID_MODULETYPE,
        ERROR_INVALID_STARTING_CODESEG,
        ERROR_INVALID_STACKSEG,
        ERROR_BAD_FORMAT,
        ERROR_OLD_WIN_VERSION,
        ERROR_SXS_CANT_GEN_ACTCTX,
        // A scanner has taken it away.
        ERROR_FILE_NOT_FOUND,
        ERROR_PATH_NOT_FOUND,
    };
    return std::ranges::find(errors, error) != errors.end();
}

bool writeDate(const Path& path, const FILETIME& date)
{
    const Handle file(openFile(path, FILE_WRITE_ATTRIBUTES, OPEN_EXISTING, 0));
    return file.isOpen() && SetFileTime(native(file), nullptr, nullptr, &date) != FALSE;
}

bool readDate(const Path& path, FILETIME& date)
{
    WIN32_FILE_ATTRIBUTE_DATA data{};
    if (GetFileAttributesExW(path.c_str(), GetFileExInfoStandard, &data) == FALSE)
        return false;
    date = data.ftLastWriteTime;
    return true;
}

constexpr std::int64_t ticksPerSecond = 10'000'000;
/// Between the beginning of Windows' time and 1970.
constexpr std::int64_t secondsTo1970 = 11'644'473'600;

std::int64_t ticks(const FILETIME& time)
{
    return static_cast<std::int64_t>(
        (std::uint64_t{ time.dwHighDateTime } << 32U) | time.dwLowDateTime);
}

std::int64_t ticks(const SYSTEMTIME& time)
{
    FILETIME file{};
    SystemTimeToFileTime(&time, &file);
    return ticks(file);
}

} // namespace

const ProgramKind nativeProgram = windowsProgram;

Handle::~Handle()
{
    if (isOpen())
        CloseHandle(native(*this));
}

InputFile::InputFile(const Path& path)
    : handle(openFile(path, GENERIC_READ, OPEN_EXISTING, FILE_FLAG_OPEN_REPARSE_POINT))
{
    inspect(path);
}

void InputFile::inspect(const Path& path)
{
    if (!handle.isOpen()) {
        const DWORD error = GetLastError();
        // A folder is there and is no file; everything else may pass.
        const DWORD attributes = GetFileAttributesW(path.c_str());
        if (attributes == INVALID_FILE_ATTRIBUTES || (attributes & FILE_ATTRIBUTE_DIRECTORY) == 0)
            trouble = failure("open", path, error);
        return;
    }
    BY_HANDLE_FILE_INFORMATION data{};
    if (GetFileInformationByHandle(native(handle), &data) == FALSE) {
        trouble = failure("look at", path, GetLastError());
        return;
    }
    regular = isRegularFile(handle, data);
    length = (std::uint64_t{ data.nFileSizeHigh } << 32U) | data.nFileSizeLow;
}

std::size_t InputFile::read(std::span<std::byte> buffer)
{
    std::size_t filled = 0;
    while (filled < buffer.size() && !trouble) {
        DWORD got = 0;
        const auto room = static_cast<DWORD>(buffer.size() - filled);
        if (ReadFile(native(handle), buffer.data() + filled, room, &got, nullptr) == FALSE)
            trouble = failure("read", GetLastError());
        if (got == 0)
            break;
        filled += got;
    }
    return filled;
}

// A mutex with the folder's identity in its name: nothing is left behind, and a
// holder that dies leaves it to the next one.
FolderLock::FolderLock(const Path& folder)
    : handle(number(CreateMutexW(nullptr, FALSE, lockName(folder).c_str())))
{
    if (!handle.isOpen()) {
        const DWORD error = GetLastError();
        // Another user's is out of reach, and therefore taken.
        result = error == ERROR_ACCESS_DENIED ? State::Taken : State::Impossible;
        trouble = failure("lock the folder", error);
        return;
    }
    const DWORD waited = WaitForSingleObject(native(handle), 0);
    const bool ours = waited == WAIT_OBJECT_0 || waited == WAIT_ABANDONED;
    result = ours ? State::Ours : State::Taken;
}

void prepareProcess()
{
}

Path programFolder()
{
    const std::wstring program = growingText(
        [](wchar_t* text, DWORD room) { return GetModuleFileNameW(nullptr, text, room); });
    return folderOf(program);
}

std::uint32_t ownProcessId()
{
    return GetCurrentProcessId();
}

ProcessEnd waitForEnd(std::uint32_t id, const Path& program, milliseconds limit)
{
    // The id stays the process's own as long as the handle is open.
    const Handle process(
        number(OpenProcess(SYNCHRONIZE | PROCESS_QUERY_LIMITED_INFORMATION, FALSE, id)));
    if (!process.isOpen()) {
        // What belongs to somebody else has not started this updater.
        return GetLastError() == ERROR_ACCESS_DENIED ? ProcessEnd::OtherProgram : ProcessEnd::Ended;
    }
    if (endsWithin(process, milliseconds::zero()))
        return ProcessEnd::Ended;
    if (!runsProgram(process, program))
        return ProcessEnd::OtherProgram;
    return endsWithin(process, limit) ? ProcessEnd::Ended : ProcessEnd::StillRunning;
}

std::optional<StartFailure> startDetached(const Path& program)
{
    std::wstring command = L'"' + program + L'"';
    const Path folder = folderOf(program);
    STARTUPINFOW startup{};
    startup.cb = sizeof startup;
    PROCESS_INFORMATION process{};
    if (CreateProcessW(
            program.c_str(), command.data(), nullptr, nullptr, FALSE,
            DETACHED_PROCESS | CREATE_NEW_PROCESS_GROUP, nullptr, folder.c_str(), &startup,
            &process)
        == FALSE) {
        const DWORD error = GetLastError();
        return StartFailure{ failure("start", program, error).value(), isFinal(error) };
    }
    CloseHandle(process.hThread);
    CloseHandle(process.hProcess);
    return {};
}

bool isThere(const Path& path)
{
    return GetFileAttributesW(path.c_str()) != INVALID_FILE_ATTRIBUTES
        || !isMissing(GetLastError());
}

Problem removeFile(const Path& path)
{
    if (DeleteFileW(path.c_str()) != FALSE || isMissing(GetLastError()))
        return {};
    const DWORD error = GetLastError();
    if (error == ERROR_ACCESS_DENIED && clearReadOnly(path) && DeleteFileW(path.c_str()) != FALSE)
        return {};
    return failure("remove", path, error);
}

Problem duplicate(const Path& original, const Path& copy)
{
    if (CreateHardLinkW(copy.c_str(), original.c_str(), nullptr) != FALSE)
        return {};
    // Takes the date along.
    if (CopyFileW(original.c_str(), copy.c_str(), TRUE) != FALSE)
        return {};
    return failure("copy to", copy, GetLastError());
}

Problem makeRunnable(const Path& path)
{
    std::ignore = clearReadOnly(path);
    const Handle file(openFile(path, GENERIC_WRITE, OPEN_EXISTING, 0));
    if (!file.isOpen() || FlushFileBuffers(native(file)) == FALSE)
        return failure("save", path, GetLastError());
    return {};
}

// One entry in the file system's journal, so it happens or does not. ReplaceFile
// takes several steps, between which there is no launcher.
Problem moveOver(const Path& from, const Path& to)
{
    const auto move = [&] {
        return MoveFileExW(
                   from.c_str(), to.c_str(), MOVEFILE_REPLACE_EXISTING | MOVEFILE_WRITE_THROUGH)
            != FALSE;
    };
    if (move())
        return {};
    const DWORD error = GetLastError();
    if (error == ERROR_ACCESS_DENIED && clearReadOnly(to) && move())
        return {};
    return failure("rename " + utf8(fileName(from)) + " to", to, error);
}

Problem adoptNewerDate(const Path& path, const Path& other, bool& moved)
{
    moved = false;
    FILETIME mine{};
    FILETIME others{};
    if (!readDate(path, mine) || !readDate(other, others))
        return failure("look at", path, GetLastError());
    if (CompareFileTime(&others, &mine) <= 0)
        return {};
    moved = writeDate(path, others);
    return moved ? Problem() : failure("set the date of", path, GetLastError());
}

Problem mark(const Path& path, std::uint32_t number)
{
    const auto date = static_cast<std::uint64_t>(
        (secondsTo1970 + firstMark + std::int64_t{ 2 } * number) * ticksPerSecond);
    const FILETIME time{ .dwLowDateTime = static_cast<DWORD>(date),
                         .dwHighDateTime = static_cast<DWORD>(date >> 32U) };
    return writeDate(path, time) ? Problem() : failure("mark", path, GetLastError());
}

std::optional<std::uint32_t> markOn(const Path& path)
{
    FILETIME date{};
    if (!readDate(path, date))
        return {};
    return markOfDate(ticks(date) / ticksPerSecond - secondsTo1970);
}

Problem appendTo(const Path& path, std::string_view text)
{
    const Handle file(openFile(
        path, FILE_APPEND_DATA | FILE_READ_ATTRIBUTES, OPEN_ALWAYS,
        FILE_ATTRIBUTE_NORMAL | FILE_FLAG_OPEN_REPARSE_POINT));
    if (!file.isOpen())
        return failure("open", path, GetLastError());
    BY_HANDLE_FILE_INFORMATION data{};
    if (GetFileInformationByHandle(native(file), &data) == FALSE || !isRegularFile(file, data))
        return failure("write", path, ERROR_INVALID_PARAMETER);
    return writeAll(file, text, path);
}

Problem createFile(const Path& path, std::string_view text)
{
    const Handle file(openFile(path, GENERIC_WRITE, CREATE_NEW, FILE_ATTRIBUTE_NORMAL));
    if (!file.isOpen())
        return failure("create", path, GetLastError());
    return writeAll(file, text, path);
}

LocalTime localTime()
{
    SYSTEMTIME universal{};
    SYSTEMTIME wall{};
    GetSystemTime(&universal);
    if (SystemTimeToTzSpecificLocalTime(nullptr, &universal, &wall) == FALSE)
        wall = universal;
    constexpr std::int64_t ticksPerMinute = 60 * ticksPerSecond;
    return { .year = wall.wYear,
             .month = wall.wMonth,
             .day = wall.wDay,
             .hour = wall.wHour,
             .minute = wall.wMinute,
             .second = wall.wSecond,
             .millisecond = wall.wMilliseconds,
             .offsetInMinutes
             = static_cast<int>((ticks(wall) - ticks(universal)) / ticksPerMinute) };
}

void pause(milliseconds duration)
{
    Sleep(static_cast<DWORD>(duration.count()));
}

} // namespace Updater
