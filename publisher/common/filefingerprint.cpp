#include "publisher/common/filefingerprint.h"

#include <QFile>
#include <QFileInfo>
#include <QTimeZone>

#include <algorithm>

#ifndef Q_OS_WIN
#include <sys/stat.h>
#endif

namespace Publisher {

namespace {

constexpr qint64 million = 1'000'000;
constexpr qint64 settlingTime = 2'000 * million; // of the coarsest file systems

#ifdef Q_OS_WIN

FileFingerprint fingerprintOf(const QFileInfo& info)
{
    if (!info.isFile())
        return {};
    return { .size = info.size(), .modified = info.lastModified().toMSecsSinceEpoch() * million };
}

#else

qint64 nanoseconds(const timespec& time)
{
    return qint64(time.tv_sec) * 1'000 * million + time.tv_nsec;
}

FileFingerprint fingerprintOf(const struct stat& status)
{
    if (!S_ISREG(status.st_mode))
        return {};
    return { .size = status.st_size,
             .modified = nanoseconds(status.st_mtim),
             .changed = nanoseconds(status.st_ctim),
             .inode = status.st_ino };
}

#endif

} // namespace

FileFingerprint FileFingerprint::of(const QString& path)
{
#ifdef Q_OS_WIN
    return fingerprintOf(QFileInfo(path));
#else
    struct stat status { };
    return ::stat(QFile::encodeName(path).constData(), &status) == 0 ? fingerprintOf(status)
                                                                     : FileFingerprint();
#endif
}

FileFingerprint FileFingerprint::ofUnlinked(const QString& path)
{
#ifdef Q_OS_WIN
    const QFileInfo info(path);
    return info.isSymLink() ? FileFingerprint() : fingerprintOf(info);
#else
    struct stat status { };
    return ::lstat(QFile::encodeName(path).constData(), &status) == 0 ? fingerprintOf(status)
                                                                      : FileFingerprint();
#endif
}

FileFingerprint FileFingerprint::of(const QFile& open)
{
#ifdef Q_OS_WIN
    return fingerprintOf(QFileInfo(open));
#else
    struct stat status { };
    return ::fstat(open.handle(), &status) == 0 ? fingerprintOf(status) : FileFingerprint();
#endif
}

bool FileFingerprint::isSettled(const QDateTime& now) const
{
    return now.toMSecsSinceEpoch() * million - std::max(modified, changed) > settlingTime;
}

QDateTime FileFingerprint::date() const
{
    return isFile() ? QDateTime::fromMSecsSinceEpoch(modified / million, QTimeZone::utc())
                    : QDateTime();
}

} // namespace Publisher
