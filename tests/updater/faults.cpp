#include "tests/updater/faults.h"

#include "tests/updater/installation.h"

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

ReadOnlyFolder::ReadOnlyFolder(const QString& folder)
    : path(folder)
    , permissions(QFile::permissions(folder))
{
    if (!QFile::setPermissions(path, QFileDevice::ReadOwner | QFileDevice::ExeOwner))
        qFatal("cannot take away the right to write into %s", qPrintable(path));
}

ReadOnlyFolder::~ReadOnlyFolder()
{
    QFile::setPermissions(path, permissions);
}

FullDisk::FullDisk(const QString& folder)
    : filler(folder + "/filler")
{
    const QByteArray block(4096, 'x');
    if (!filler.open(QIODevice::WriteOnly | QIODevice::Unbuffered))
        qFatal("cannot fill %s", qPrintable(folder));
    while (filler.write(block) == block.size()) { }
}

FullDisk::~FullDisk()
{
    filler.remove();
}

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
    QByteArray program = Installation::newLauncher();
    program[machine] = 22;
    return program;
}
