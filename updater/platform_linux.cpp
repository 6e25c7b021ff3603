// Linux: for those who develop the launcher, and for the tests.

#include "updater/platform.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <climits>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <elf.h>
#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <sys/file.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/un.h>
#include <system_error>
#include <thread>
#include <tuple>
#include <unistd.h>
#include <utility>

namespace Updater {

namespace {

using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

Problem failure(const std::string& doing, int error)
{
    return doing + ": " + std::system_category().message(error);
}

Problem failure(const char* doing, const Path& path, int error)
{
    return failure(std::string(doing) + ' ' + fileName(path), error);
}

int descriptor(const Handle& handle)
{
    return static_cast<int>(handle.get());
}

std::intptr_t openFile(const Path& path, int flags)
{
    constexpr mode_t everyone = 0666;
    return open(path.c_str(), flags | O_CLOEXEC, everyone);
}

/// Nothing that lies there already, and nothing that a link leads to.
constexpr int newFile = O_CREAT | O_EXCL | O_NOFOLLOW;

Path linkTarget(const std::string& link)
{
    std::array<char, PATH_MAX> target{};
    const ssize_t length = readlink(link.c_str(), target.data(), target.size());
    return length > 0 ? Path(std::string(target.data(), static_cast<std::size_t>(length))) : Path();
}

/// A launcher that has been replaced while it runs bears a remark behind its
/// path. A process that has ended runs nothing.
bool runsProgram(std::uint32_t id, const Path& program)
{
    const Path image = linkTarget("/proc/" + std::to_string(id) + "/exe");
    return image == program || image == program + " (deleted)";
}

std::intptr_t openProcess(std::uint32_t id)
{
    return syscall(SYS_pidfd_open, static_cast<pid_t>(id), 0U);
}

ProcessEnd waitForDescriptor(const Handle& process, milliseconds limit)
{
    pollfd end{ .fd = descriptor(process), .events = POLLIN, .revents = 0 };
    const Clock::time_point deadline = Clock::now() + limit;
    int ready = -1;
    do {
        const auto left = std::chrono::ceil<milliseconds>(deadline - Clock::now());
        ready = poll(&end, 1, static_cast<int>(std::max(left, milliseconds::zero()).count()));
    } while (ready < 0 && errno == EINTR);
    return ready > 0 ? ProcessEnd::Ended : ProcessEnd::StillRunning;
}

/// For kernels that have no descriptors of processes.
ProcessEnd waitForImage(std::uint32_t id, const Path& program, milliseconds limit)
{
    constexpr milliseconds interval(50);
    const Clock::time_point deadline = Clock::now() + limit;
    while (runsProgram(id, program)) {
        if (Clock::now() >= deadline)
            return ProcessEnd::StillRunning;
        pause(interval);
    }
    return ProcessEnd::Ended;
}

Problem synchronise(const Handle& file, const Path& path)
{
    if (fsync(descriptor(file)) == 0)
        return {};
    return failure("save", path, errno);
}

/// A name is safe on the disk when its folder is.
Problem synchroniseFolderOf(const Path& path)
{
    const Handle folder(openFile(folderOf(path), O_RDONLY | O_DIRECTORY));
    if (!folder.isOpen())
        return failure("open the folder of", path, errno);
    return synchronise(folder, path);
}

Problem writeAll(const Handle& file, std::span<const std::byte> bytes, const Path& path)
{
    while (!bytes.empty()) {
        const ssize_t written = write(descriptor(file), bytes.data(), bytes.size());
        if (written < 0 && errno != EINTR)
            return failure("write", path, errno);
        bytes = bytes.subspan(static_cast<std::size_t>(std::max<ssize_t>(written, 0)));
    }
    return {};
}

Problem copyContent(InputFile& from, const Handle& to, const Path& copy)
{
    std::array<std::byte, programHeadSize> block{};
    while (const std::size_t size = from.read(block)) {
        if (Problem problem = writeAll(to, std::span(block).first(size), copy))
            return problem;
    }
    return from.problem();
}

/// A copy with a date of today would pass for the newest launcher of all.
Problem copyModeAndDate(const Path& original, const Handle& to, const Path& copy)
{
    struct stat status { };
    if (stat(original.c_str(), &status) != 0)
        return failure("look at", original, errno);
    const std::array<timespec, 2> times{ status.st_atim, status.st_mtim };
    if (fchmod(descriptor(to), status.st_mode & ALLPERMS) != 0
        || futimens(descriptor(to), times.data()) != 0)
        return failure("set mode and date of", copy, errno);
    return {};
}

Problem copyFile(const Path& original, const Path& copy)
{
    InputFile from(original);
    if (from.problem())
        return from.problem();
    const Handle to(openFile(copy, O_WRONLY | newFile));
    if (!to.isOpen())
        return failure("create", copy, errno);
    if (Problem problem = copyContent(from, to, copy))
        return problem;
    if (Problem problem = copyModeAndDate(original, to, copy))
        return problem;
    return synchronise(to, copy);
}

bool setDate(const Path& path, const timespec& date)
{
    constexpr timespec asItIs{ .tv_sec = 0, .tv_nsec = UTIME_OMIT };
    const std::array<timespec, 2> times{ asItIs, date };
    return utimensat(AT_FDCWD, path.c_str(), times.data(), 0) == 0;
}

/// An address of this machine, free again when the process ends. Without a file,
/// since the file system of the folder does not do what is asked of it.
std::intptr_t openAddressOf(const Path& folder, FolderLock::State& state)
{
    struct stat status { };
    if (stat(folder.c_str(), &status) != 0)
        return Handle::none;
    const int address = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    sockaddr_un name{};
    name.sun_family = AF_UNIX;
    // What begins with a zero is no path.
    std::snprintf(
        name.sun_path + 1, sizeof name.sun_path - 1, "Halden-Launcher-Updater-%jx-%jx",
        std::uintmax_t{ status.st_dev }, std::uintmax_t{ status.st_ino });
    const auto* const generic = reinterpret_cast<const sockaddr*>(&name);
    if (bind(address, generic, sizeof name) == 0)
        state = FolderLock::State::Ours;
    else if (errno == EADDRINUSE)
        state = FolderLock::State::Taken;
    return address;
}

std::intptr_t lockFolder(const Path& folder, FolderLock::State& state)
{
    const int opened = static_cast<int>(openFile(folder, O_RDONLY | O_DIRECTORY));
    if (opened >= 0 && flock(opened, LOCK_EX | LOCK_NB) == 0)
        state = FolderLock::State::Ours;
    else if (opened >= 0 && errno == EWOULDBLOCK)
        state = FolderLock::State::Taken;
    else {
        if (opened >= 0)
            close(opened);
        return openAddressOf(folder, state);
    }
    return opened;
}

/// Told by the system of the file itself and not of the moment.
bool isFinal(int error)
{
    // There is no such loader for it (ENOENT), or it names several (EINVAL).
    return error == ENOEXEC || error == ELIBBAD || error == ENOENT || error == EINVAL;
}

std::span<const std::byte> bytesOf(std::string_view text)
{
    return std::as_bytes(std::span(text));
}

/// Attributes of a new process and what it does before it starts a program.
class SpawnPlan {
public:
    SpawnPlan()
    {
        posix_spawnattr_init(&attributes);
        posix_spawn_file_actions_init(&actions);
    }

    /// In a session of its own, and deaf to no signal.
    void startAfresh()
    {
        posix_spawnattr_setflags(
            &attributes, POSIX_SPAWN_SETSID | POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF);
        sigset_t signals;
        sigemptyset(&signals);
        posix_spawnattr_setsigmask(&attributes, &signals);
        sigfillset(&signals);
        posix_spawnattr_setsigdefault(&attributes, &signals);
    }

    ~SpawnPlan()
    {
        posix_spawnattr_destroy(&attributes);
        posix_spawn_file_actions_destroy(&actions);
    }
    SpawnPlan(const SpawnPlan&) = delete;
    SpawnPlan& operator=(const SpawnPlan&) = delete;

    posix_spawnattr_t attributes{};
    posix_spawn_file_actions_t actions{};
};

} // namespace

#if defined(__x86_64__)
static constexpr std::array<std::uint16_t, 2> machines{ EM_X86_64, EM_386 };
#elif defined(__aarch64__)
static constexpr std::array<std::uint16_t, 2> machines{ EM_AARCH64, EM_ARM };
#else
static constexpr std::array<std::uint16_t, 0> machines;
#endif
const ProgramKind nativeProgram{ ProgramFormat::Elf, machines };

Handle::~Handle()
{
    if (isOpen())
        close(static_cast<int>(value));
}

// Opening a pipe would wait for its other end.
InputFile::InputFile(const Path& path)
    : handle(openFile(path, O_RDONLY | O_NOFOLLOW | O_NONBLOCK))
{
    inspect(path);
}

void InputFile::inspect(const Path& path)
{
    if (!handle.isOpen()) {
        // A link is there and is no file; everything else may pass.
        if (errno != ELOOP)
            trouble = failure("open", path, errno);
        return;
    }
    struct stat status { };
    if (fstat(descriptor(handle), &status) != 0) {
        trouble = failure("look at", path, errno);
        return;
    }
    regular = S_ISREG(status.st_mode);
    length = static_cast<std::uint64_t>(status.st_size);
}

std::size_t InputFile::read(std::span<std::byte> buffer)
{
    std::size_t filled = 0;
    while (filled < buffer.size() && !trouble) {
        const ssize_t got
            = ::read(descriptor(handle), buffer.data() + filled, buffer.size() - filled);
        if (got == 0)
            break;
        if (got > 0)
            filled += static_cast<std::size_t>(got);
        else if (errno != EINTR)
            trouble = failure("read", errno);
    }
    return filled;
}

// The folder itself bears the lock: it needs no file, and whoever may read the
// folder may take it. Network folders refuse it, since they lock for those alone
// who may write.
FolderLock::FolderLock(const Path& folder)
    : handle(lockFolder(folder, result))
{
    if (result == State::Impossible)
        trouble = failure("lock the folder", errno);
}

void prepareProcess()
{
    // A reader of standard error that is gone is no reason to stop half-way.
    std::ignore = std::signal(SIGPIPE, SIG_IGN);
    // Where there is no standard error, what is opened next would pass for it.
    int lowest = 0;
    do
        lowest = open("/dev/null", O_RDWR);
    while (lowest >= 0 && lowest <= STDERR_FILENO);
    if (lowest > STDERR_FILENO)
        close(lowest);
}

Path programFolder()
{
    return folderOf(linkTarget("/proc/self/exe"));
}

std::uint32_t ownProcessId()
{
    return static_cast<std::uint32_t>(getpid());
}

ProcessEnd waitForEnd(std::uint32_t id, const Path& program, milliseconds limit)
{
    if (id > INT_MAX)
        return ProcessEnd::Ended;
    // First of all, so that the id cannot pass to another process unnoticed.
    const Handle process(openProcess(id));
    const bool gone = !process.isOpen() && errno == ESRCH;
    if (gone)
        return ProcessEnd::Ended;
    if (runsProgram(id, program))
        return process.isOpen() ? waitForDescriptor(process, limit)
                                : waitForImage(id, program, limit);
    const bool ended
        = process.isOpen() && waitForDescriptor(process, milliseconds::zero()) == ProcessEnd::Ended;
    return ended ? ProcessEnd::Ended : ProcessEnd::OtherProgram;
}

// Its log goes where the old launcher's went.
std::optional<StartFailure> startDetached(const Path& program)
{
    SpawnPlan plan;
    plan.startAfresh();
    posix_spawn_file_actions_addopen(&plan.actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
    posix_spawn_file_actions_addchdir_np(&plan.actions, folderOf(program).c_str());
    std::string name = program;
    const std::array<char*, 2> arguments{ name.data(), nullptr };
    pid_t id = 0;
    const int error = posix_spawn(
        &id, program.c_str(), &plan.actions, &plan.attributes, arguments.data(), environ);
    if (error == 0)
        return {};
    return StartFailure{ failure("start", program, error).value(), isFinal(error) };
}

bool isThere(const Path& path)
{
    struct stat status { };
    return lstat(path.c_str(), &status) == 0 || (errno != ENOENT && errno != ENOTDIR);
}

Problem removeFile(const Path& path)
{
    if (unlink(path.c_str()) == 0 || errno == ENOENT)
        return {};
    return failure("remove", path, errno);
}

Problem duplicate(const Path& original, const Path& copy)
{
    if (link(original.c_str(), copy.c_str()) == 0)
        return {};
    return copyFile(original, copy);
}

Problem makeRunnable(const Path& path)
{
    const Handle file(openFile(path, O_RDONLY | O_NOFOLLOW | O_NONBLOCK));
    struct stat status { };
    if (!file.isOpen() || fstat(descriptor(file), &status) != 0)
        return failure("open", path, errno);
    // Whoever may read it may run it.
    const mode_t mode = (status.st_mode & ACCESSPERMS & ~mode_t{ S_IWOTH }) | S_IRUSR | S_IXUSR;
    const mode_t runBits = (mode & (S_IRUSR | S_IRGRP | S_IROTH)) >> 2U;
    if (fchmod(descriptor(file), mode | runBits) != 0)
        return failure("set the mode of", path, errno);
    return synchronise(file, path);
}

// One step, and one that a power failure does not halve.
Problem moveOver(const Path& from, const Path& to)
{
    if (rename(from.c_str(), to.c_str()) != 0)
        return failure(("rename " + fileName(from) + " to").c_str(), to, errno);
    // The new name counts already; a disk that cannot save it keeps the old one.
    std::ignore = synchroniseFolderOf(to);
    return {};
}

Problem adoptNewerDate(const Path& path, const Path& other, bool& moved)
{
    moved = false;
    struct stat mine { };
    struct stat others { };
    if (stat(path.c_str(), &mine) != 0 || stat(other.c_str(), &others) != 0)
        return failure("look at", path, errno);
    const auto moment = [](const timespec& time) {
        return std::pair(time.tv_sec, time.tv_nsec);
    };
    if (moment(others.st_mtim) <= moment(mine.st_mtim))
        return {};
    moved = setDate(path, others.st_mtim);
    return moved ? Problem() : failure("set the date of", path, errno);
}

Problem mark(const Path& path, std::uint32_t number)
{
    const timespec date{ .tv_sec = firstMark + std::int64_t{ 2 } * number, .tv_nsec = 0 };
    return setDate(path, date) ? Problem() : failure("mark", path, errno);
}

std::optional<std::uint32_t> markOn(const Path& path)
{
    struct stat status { };
    if (lstat(path.c_str(), &status) != 0)
        return {};
    return markOfDate(status.st_mtim.tv_sec);
}

Problem appendTo(const Path& path, std::string_view text)
{
    const Handle file(
        openFile(path, O_WRONLY | O_CREAT | O_APPEND | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY));
    struct stat status { };
    if (!file.isOpen() || fstat(descriptor(file), &status) != 0)
        return failure("open", path, errno);
    if (!S_ISREG(status.st_mode))
        return failure("write", path, EINVAL);
    return writeAll(file, bytesOf(text), path);
}

Problem createFile(const Path& path, std::string_view text)
{
    const Handle file(openFile(path, O_WRONLY | newFile));
    if (!file.isOpen())
        return failure("create", path, errno);
    return writeAll(file, bytesOf(text), path);
}

LocalTime localTime()
{
    timespec now{};
    clock_gettime(CLOCK_REALTIME, &now);
    tm wall{};
    localtime_r(&now.tv_sec, &wall);
    return { .year = wall.tm_year + 1900,
             .month = wall.tm_mon + 1,
             .day = wall.tm_mday,
             .hour = wall.tm_hour,
             .minute = wall.tm_min,
             .second = wall.tm_sec,
             .millisecond = static_cast<int>(now.tv_nsec / 1'000'000),
             .offsetInMinutes = static_cast<int>(wall.tm_gmtoff / 60) };
}

void pause(milliseconds duration)
{
    std::this_thread::sleep_for(duration);
}

} // namespace Updater
