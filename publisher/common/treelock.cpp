#include "publisher/common/treelock.h"

#ifdef Q_OS_WIN
#include <QLockFile>
#else
#include <QFile>

#include <cerrno>
#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>
#endif

using namespace Qt::StringLiterals;

namespace Publisher {

namespace {

QString atWork(const QString& folder)
{
    return u"another halden-publish is at work in %1. Wait until it has ended, and run the same "
           "command again"_s.arg(folder);
}

QString withoutLock(const QString& folder, const QString& words)
{
    return u"%1 cannot be locked against a second halden-publish: %2. Give yourself the right to "
           "read it; where the mount knows no locks, publish into a local folder and copy that"_s
               .arg(folder, words);
}

} // namespace

#ifdef Q_OS_WIN

TreeLock::TreeLock(const QString& folder, IfHeld ifHeld)
    : lock(std::make_unique<QLockFile>(folder + "/.halden-publish.lock"_L1))
{
    lock->setStaleLockTime(0);
    if (ifHeld == IfHeld::Wait ? lock->lock() : lock->tryLock())
        return;
    trouble = lock->error() == QLockFile::LockFailedError
        ? atWork(folder)
        : withoutLock(folder, u"no file can be made in it"_s);
}

TreeLock::~TreeLock() = default;

#else

// The folder itself is locked, so nothing is left behind in it.
TreeLock::TreeLock(const QString& folder, IfHeld ifHeld)
    : handle(::open(QFile::encodeName(folder).constData(), O_RDONLY | O_DIRECTORY | O_CLOEXEC))
{
    const int operation = LOCK_EX | (ifHeld == IfHeld::Wait ? 0 : LOCK_NB);
    if (handle >= 0 && flock(handle, operation) == 0)
        return;
    trouble = handle >= 0 && errno == EWOULDBLOCK ? atWork(folder)
                                                  : withoutLock(folder, qt_error_string(errno));
    if (handle >= 0)
        ::close(handle);
    handle = -1;
}

TreeLock::~TreeLock()
{
    if (handle >= 0)
        ::close(handle);
}

#endif

const Problem& TreeLock::problem() const
{
    return trouble;
}

} // namespace Publisher
