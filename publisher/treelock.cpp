#include "publisher/treelock.h"

#ifdef Q_OS_WIN
#include <QLockFile>
#else
#include <QFile>

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>
#endif

#ifdef Q_OS_WIN

using namespace Qt::StringLiterals;

TreeLock::TreeLock(const QString& folder)
    : lock(std::make_unique<QLockFile>(folder + "/.halden-publish.lock"_L1))
{
    lock->setStaleLockTime(0);
    lock->tryLock();
}

TreeLock::~TreeLock() = default;

bool TreeLock::isHeld() const
{
    return lock->isLocked();
}

#else

// The folder itself is locked, so nothing is left behind in it.
TreeLock::TreeLock(const QString& folder)
    : handle(::open(QFile::encodeName(folder).constData(), O_RDONLY | O_DIRECTORY | O_CLOEXEC))
{
    if (handle >= 0 && flock(handle, LOCK_EX | LOCK_NB) != 0) {
        ::close(handle);
        handle = -1;
    }
}

TreeLock::~TreeLock()
{
    if (handle >= 0)
        ::close(handle);
}

bool TreeLock::isHeld() const
{
    return handle >= 0;
}

#endif
