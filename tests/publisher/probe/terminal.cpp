#include "tests/publisher/probe/terminal.h"

#include <QtGlobal>

#include <array>
#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <unistd.h>

Terminal::Terminal()
    : original(dup(STDERR_FILENO))
    , screen(posix_openpt(O_RDWR | O_NOCTTY | O_NONBLOCK))
{
    if (screen < 0 || grantpt(screen) != 0 || unlockpt(screen) != 0)
        qFatal("cannot open a terminal");
    const int keyboard = open(ptsname(screen), O_RDWR | O_NOCTTY);
    std::fflush(stderr);
    if (keyboard < 0 || dup2(keyboard, STDERR_FILENO) < 0)
        qFatal("cannot write to a terminal");
    close(keyboard);
}

Terminal::~Terminal()
{
    std::fflush(stderr);
    dup2(original, STDERR_FILENO);
    close(original);
    close(screen);
}

QByteArray Terminal::takeText() const
{
    std::fflush(stderr);
    QByteArray text;
    std::array<char, 4096> bytes{};
    while (true) {
        const ssize_t count = read(screen, bytes.data(), bytes.size());
        if (count <= 0)
            return text;
        text.append(bytes.data(), count);
    }
}
