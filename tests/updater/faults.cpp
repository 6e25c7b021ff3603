#include "tests/updater/faults.h"

#include "tests/updater/updaterhome.h"

#include <fcntl.h>
#include <link.h>
#include <sys/file.h>
#include <unistd.h>

LockHolder::LockHolder(const QString& folder)
    : descriptor(open(qPrintable(folder), O_RDONLY | O_DIRECTORY | O_CLOEXEC))
{
    if (flock(descriptor, LOCK_EX | LOCK_NB) != 0)
        qFatal("cannot lock %s", qPrintable(folder));
}

LockHolder::~LockHolder()
{
    close(descriptor);
}

QByteArray foreignProgram()
{
    // IBM's mainframes; the machine's number has this place in every header.
    constexpr qsizetype machine = 18;
    QByteArray program = UpdaterHome::newLauncher();
    program[machine] = 22;
    return program;
}

QByteArray unstartableProgram()
{
    QByteArray program = UpdaterHome::newLauncher();
    auto* const header = reinterpret_cast<ElfW(Ehdr)*>(program.data());
    auto* const segments = reinterpret_cast<ElfW(Phdr)*>(program.data() + header->e_phoff);
    for (int n = 0; n < header->e_phnum; ++n) {
        if (segments[n].p_type == PT_INTERP)
            segments[n].p_filesz = 1;
    }
    return program;
}
