#include "publisher/common/filework.h"

#include "publisher/common/progress.h"

#include <QCryptographicHash>
#include <QDir>
#include <QFile>
#include <QFileInfo>

#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <system_error>

#ifdef Q_OS_LINUX
#include <linux/fs.h>
#include <sys/ioctl.h>
#endif
#ifdef Q_OS_WIN
#include <io.h>
#else
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>
#endif

using namespace Qt::StringLiterals;

namespace Publisher {

namespace {

constexpr qint64 chunk = FileWork::mostAtOnce; // stays in a core's own cache
// Less is sooner copied than shared.
constexpr qint64 leastToShare = chunk;
constexpr QLatin1StringView draftSuffix(".halden-publish");

/// What the admin can do about a failure, in the system's words.
QString remedy(const QString& words)
{
    const auto isAbout = [&](std::errc code) {
        return words == QString::fromLocal8Bit(std::make_error_code(code).message());
    };
    if (isAbout(std::errc::permission_denied) || isAbout(std::errc::operation_not_permitted))
        return u"Give yourself, or a group of yours, the right to it"_s;
    if (isAbout(std::errc::no_space_on_device))
        return u"Make room on that disk, with --prune for instance"_s;
    if (isAbout(std::errc::file_exists) || isAbout(std::errc::not_a_directory))
        return u"Move away the file that is in the folder's place"_s;
    if (isAbout(std::errc::no_such_file_or_directory))
        return u"See where it has gone"_s;
    return u"See that the disk is well and mounted for writing"_s;
}

QString sentence(const QString& path, const QString& words)
{
    return u"%1: %2. %3, and run the same command again"_s.arg(path, words, remedy(words));
}

QString sentence(const QString& path, const std::error_code& error)
{
    return sentence(path, QString::fromLocal8Bit(error.message()));
}

QString failure(const QFileDevice& file)
{
    return sentence(file.fileName(), file.errorString());
}

bool openToRead(QFile& file)
{
    return file.open(QIODevice::ReadOnly | QIODevice::Unbuffered);
}

bool openToWrite(QFile& file)
{
    return file.open(QIODevice::WriteOnly | QIODevice::Truncate | QIODevice::Unbuffered);
}

/// A disk that fills up takes a part first and tells why at the next attempt.
bool writeAll(QFile& file, QByteArrayView rest)
{
    while (!rest.isEmpty()) {
        const qint64 taken = file.write(rest.data(), rest.size());
        if (taken <= 0)
            return false;
        rest = rest.sliced(taken);
    }
    return true;
}

/// Feeds what is in `source` to the hash and, unless it is null, to `copy`.
FileWork::Digest pump(QFile& source, QFile* copy, Progress* progress)
{
    FileWork::Digest digest{ .md5 = {}, .fingerprint = FileFingerprint::of(source) };
    QCryptographicHash hash(QCryptographicHash::Md5);
    const qint64 expected = digest.fingerprint.size;
    QByteArray buffer(std::clamp<qint64>(expected, 1, chunk), Qt::Uninitialized);
    qint64 got = 1;
    // What the file has gained meanwhile shows in its fingerprint.
    for (qint64 done = 0; got > 0 && (expected < 0 || done < expected); done += got) {
        got = source.read(buffer.data(), buffer.size());
        const QByteArrayView piece(buffer.constData(), std::max<qint64>(got, 0));
        hash.addData(piece);
        if (got < 0)
            digest.problem = failure(source);
        else if (copy != nullptr && !writeAll(*copy, piece))
            digest.problem = failure(*copy);
        if (digest.problem)
            return digest;
        if (progress != nullptr)
            progress->addBytes(got);
    }
    digest.md5 = QString::fromLatin1(hash.result().toHex());
    digest.steady = FileFingerprint::of(source) == digest.fingerprint;
    return digest;
}

/// Whether the target now shares the source's blocks.
bool cloned([[maybe_unused]] const QFile& source, [[maybe_unused]] const QFile& target)
{
#ifdef Q_OS_LINUX
    return ioctl(target.handle(), FICLONE, source.handle()) == 0;
#else
    return false;
#endif
}

/// Has the file system find room at once instead of page by page, which takes
/// most of the time of a copy. Where it cannot, the copy takes that time.
void reserve([[maybe_unused]] const QFile& target, [[maybe_unused]] qint64 size)
{
#ifdef Q_OS_LINUX
    if (size > 0)
        (void)fallocate(target.handle(), FALLOC_FL_KEEP_SIZE, 0, size);
#endif
}

std::filesystem::path native(const QString& path)
{
    return QFileInfo(path).filesystemFilePath();
}

/// As setgid folders have it from the system, for the right to write too.
void admitGroupOf(const QString& above, const QString& folder, std::error_code& error)
{
    using std::filesystem::perms;
    const perms given = std::filesystem::status(native(above), error).permissions();
    if (error || (given & perms::group_write) == perms::none)
        return;
    std::filesystem::permissions(
        native(folder), perms::group_write | (given & perms::set_gid),
        std::filesystem::perm_options::add, error);
}

} // namespace

namespace FileWork {

Digest hash(const QString& path, Progress* progress)
{
    QFile file(path);
    if (!openToRead(file))
        return { .md5 = {}, .problem = failure(file) };
    return pump(file, nullptr, progress);
}

Digest read(const QString& path, QByteArray& content, Progress* progress)
{
    QFile file(path);
    if (!openToRead(file))
        return { .md5 = {}, .problem = failure(file) };
    Digest digest{ .md5 = {}, .fingerprint = FileFingerprint::of(file) };
    content.resize(std::clamp<qint64>(digest.fingerprint.size, 0, mostAtOnce));
    qint64 got = 1;
    qint64 done = 0;
    for (; got > 0 && done < content.size(); done += std::max<qint64>(got, 0))
        got = file.read(content.data() + done, content.size() - done);
    content.truncate(done);
    if (got < 0)
        digest.problem = failure(file);
    digest.md5
        = QString::fromLatin1(QCryptographicHash::hash(content, QCryptographicHash::Md5).toHex());
    digest.steady
        = done == digest.fingerprint.size && FileFingerprint::of(file) == digest.fingerprint;
    if (progress != nullptr)
        progress->addBytes(done);
    return digest;
}

FileFingerprint create(const QString& path, const QByteArray& content, Problem& problem)
{
    QFile file(path);
    if (!file.open(QIODevice::WriteOnly | QIODevice::NewOnly | QIODevice::Unbuffered)) {
        if (!QFileInfo::exists(path))
            problem = failure(file);
        return {};
    }
    if (writeAll(file, content))
        return FileFingerprint::of(file);
    problem = failure(file);
    file.remove();
    return {};
}

Digest copy(const QString& source, const QString& target, Progress* progress)
{
    QFile from(source);
    QFile to(target);
    if (!openToRead(from))
        return { .md5 = {}, .problem = failure(from) };
    if (!openToWrite(to))
        return { .md5 = {}, .problem = failure(to) };
    const FileFingerprint before = FileFingerprint::of(from);
    if (before.size <= leastToShare || !cloned(from, to)) {
        reserve(to, before.size);
        return pump(from, &to, progress);
    }
    to.close();
    Digest digest = hash(target, progress);
    digest.fingerprint = before;
    digest.steady = FileFingerprint::of(from) == before;
    return digest;
}

QDateTime dateOf(const QString& path)
{
    return QFileInfo(path).fileTime(QFileDevice::FileModificationTime).toUTC();
}

Problem setDate(const QString& path, const QDateTime& date)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadWrite | QIODevice::ExistingOnly)
        || !file.setFileTime(date, QFileDevice::FileModificationTime))
        return failure(file);
    return {};
}

Problem write(const QString& path, const QByteArray& content)
{
    QFile file(path);
    if (!openToWrite(file) || !writeAll(file, content))
        return failure(file);
    return {};
}

Problem createFolder(const QString& path)
{
    std::error_code error;
    const QString above = QFileInfo(path).path();
    // Nearly always the folder above is there, and the folder itself is not.
    bool isMade = std::filesystem::create_directory(native(path), error);
    // It may have come into being meanwhile, by another thread.
    if (error && above != path) {
        if (Problem problem = createFolder(above))
            return problem;
        isMade = std::filesystem::create_directory(native(path), error);
    }
    if (isMade)
        admitGroupOf(above, path, error);
    return error ? sentence(u"the folder %1 cannot be created"_s.arg(path), error) : Problem();
}

QString draftOf(const QString& target)
{
    const QFileInfo info(target);
    return info.path() + "/."_L1 + info.fileName() + draftSuffix;
}

void removeDrafts(const QString& folder)
{
    const QFileInfoList drafts
        = QDir(folder).entryInfoList({ ".*"_L1 + draftSuffix }, QDir::Files | QDir::Hidden);
    for (const QFileInfo& draft : drafts)
        QFile::remove(draft.filePath());
}

Problem remove(const QString& path)
{
    std::error_code error;
    std::filesystem::remove(native(path), error);
    return error ? sentence(u"%1 cannot be removed"_s.arg(path), error) : Problem();
}

Problem replace(const QString& draft, const QString& target)
{
    std::error_code error;
    std::filesystem::rename(native(draft), native(target), error);
    return error ? sentence(target, error) : Problem();
}

Problem store(const QString& path, const QByteArray& content)
{
    const QString draft = draftOf(path);
    return inOrder(
        [&] { return write(draft, content); }, [&] { return flush(draft); },
        [&] { return replace(draft, path); });
}

QString changedMeanwhile(const QString& path)
{
    return u"%1 was changed while it was being published; nothing has been published. Let nobody "
           "write to it, and run the same command again"_s.arg(path);
}

Problem linkOrCopy(const QString& file, const QString& name, const QString& md5)
{
    std::error_code error;
    std::filesystem::create_hard_link(native(file), native(name), error);
    if (!error)
        return {};
    const Digest digest = copy(file, name, nullptr);
    if (!digest.problem && digest.md5 != md5)
        return changedMeanwhile(file);
    return digest.problem;
}

Problem flush(const QString& path)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadWrite | QIODevice::ExistingOnly))
        return failure(file);
#ifdef Q_OS_WIN
    const bool flushed = _commit(file.handle()) == 0;
#else
    const bool flushed = fsync(file.handle()) == 0;
#endif
    return flushed ? Problem() : sentence(path, { errno, std::generic_category() });
}

Problem flushFileSystem([[maybe_unused]] const QString& folder)
{
    bool flushed = true;
#ifdef Q_OS_LINUX
    const int handle = ::open(QFile::encodeName(folder).constData(), O_RDONLY | O_DIRECTORY);
    flushed = handle >= 0 && syncfs(handle) == 0;
    if (handle >= 0)
        ::close(handle);
#elif defined(Q_OS_UNIX)
    sync();
#endif
    return flushed ? Problem() : sentence(folder, { errno, std::generic_category() });
}

#ifdef Q_OS_WIN
PublicFiles::PublicFiles() = default;

PublicFiles::~PublicFiles() = default;
#else
PublicFiles::PublicFiles()
    : before(umask(S_IWGRP | S_IWOTH))
{
}

PublicFiles::~PublicFiles()
{
    umask(static_cast<mode_t>(before));
}
#endif

} // namespace FileWork

} // namespace Publisher
