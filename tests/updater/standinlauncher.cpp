// Stands in for the launcher: a real program, since a script would not pass for
// one, that starts fast and tells what it was started like.
//
// Without arguments: adds a line to the file that HALDEN_STANDIN_RECORD names.
// "version": says which one it is. "stay": ends when its standard input does.

#include <array>
#include <climits>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <unistd.h>

namespace {

/// A blocked or ignored signal, as a process can have it from its parent.
bool isDeaf()
{
    sigset_t blocked;
    if (sigprocmask(SIG_BLOCK, nullptr, &blocked) != 0)
        return true;
    for (int number = 1; number < SIGRTMIN; ++number) {
        struct sigaction handling { };
        const bool ignored
            = sigaction(number, nullptr, &handling) == 0 && handling.sa_handler == SIG_IGN;
        if (ignored || sigismember(&blocked, number) == 1)
            return true;
    }
    return false;
}

int recordStart(int arguments)
{
    std::array<char, PATH_MAX> folder{};
    std::array<char, PATH_MAX + 128> line{};
    const char* file = secure_getenv("HALDEN_STANDIN_RECORD");
    if (file == nullptr || getcwd(folder.data(), folder.size()) == nullptr)
        return 1;
    const int length = std::snprintf(
        line.data(), line.size(), "%s arguments=%d leader=%d %sfolder=%s\n", STANDIN_VERSION,
        arguments, getsid(0) == getpid() ? 1 : 0, isDeaf() ? "deaf " : "", folder.data());
    const int record = open(file, O_WRONLY | O_CREAT | O_APPEND, 0644);
    return write(record, line.data(), static_cast<std::size_t>(length)) == length ? 0 : 1;
}

int stay()
{
    char ignored = 0;
    while (read(STDIN_FILENO, &ignored, 1) > 0) { }
    return 0;
}

} // namespace

int main(int argc, char* argv[])
{
    if (argc == 1)
        return recordStart(argc - 1);
    if (std::strcmp(argv[1], "stay") == 0)
        return stay();
    return std::puts(STANDIN_VERSION) < 0 ? 1 : 0;
}
