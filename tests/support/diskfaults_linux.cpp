#include "tests/support/diskfaults.h"

#include <QFileInfo>

namespace TestSupport {

namespace {

void restrict(const QString& path, QFileDevice::Permissions permissions)
{
    if (!QFile::setPermissions(path, permissions))
        qFatal("cannot change the permissions of %s", qPrintable(path));
}

} // namespace

struct ReadOnlyFolder::Lock {
    QString path;
    QFileDevice::Permissions permissions;
};

ReadOnlyFolder::ReadOnlyFolder(const QString& folder)
    : lock(new Lock{ folder, QFile::permissions(folder) })
{
    restrict(folder, QFileDevice::ReadOwner | QFileDevice::ExeOwner);
}

ReadOnlyFolder::~ReadOnlyFolder()
{
    QFile::setPermissions(lock->path, lock->permissions);
}

struct UnremovableFile::Lock {
    ReadOnlyFolder folder;
};

UnremovableFile::UnremovableFile(const QString& path)
    : lock(new Lock{ ReadOnlyFolder(QFileInfo(path).path()) })
{
}

UnremovableFile::~UnremovableFile() = default;

struct UnreadableFile::Lock {
    QString path;
    QFileDevice::Permissions permissions;
};

UnreadableFile::UnreadableFile(const QString& path)
    : lock(new Lock{ path, QFile::permissions(path) })
{
    restrict(path, {});
}

UnreadableFile::~UnreadableFile()
{
    QFile::setPermissions(lock->path, lock->permissions);
}

} // namespace TestSupport
