#pragma once

#include "publisher/common/filefingerprint.h"
#include "publisher/common/problem.h"

#include <QByteArray>
#include <QDateTime>
#include <QString>

namespace Publisher {

class Progress;

/// Reading, copying and putting in place.
namespace FileWork {

struct Digest {
    /// Lower-case hexadecimal.
    QString md5;
    Problem problem = {};
    /// What the file looked like before it was read.
    FileFingerprint fingerprint = {};
    /// Whether it looked the same afterwards.
    bool steady = true;
};

/// `progress` may be null.
[[nodiscard]] Digest hash(const QString& path, Progress* progress);

/// Files up to this size are read and written in one piece.
inline constexpr qint64 mostAtOnce = qint64(256) << 10;

/// Reads a file of at most `mostAtOnce` bytes into memory. `progress` may be null.
[[nodiscard]] Digest read(const QString& path, QByteArray& content, Progress* progress);

/// Writes a file that is not there yet; an existing one is left alone. Returns what
/// the new one looks like, none where there is one already or `problem` says why not.
[[nodiscard]] FileFingerprint
create(const QString& path, const QByteArray& content, Problem& problem);

/// Copies a file and tells the MD5 of the copy as it is written: a source that
/// changes meanwhile shows. Large copies share the source's blocks until either is
/// changed where the file system can do that. An existing target is overwritten.
/// `progress` may be null.
[[nodiscard]] Digest copy(const QString& source, const QString& target, Progress* progress);

/// The file's modification date.
QDateTime dateOf(const QString& path);
[[nodiscard]] Problem setDate(const QString& path, const QDateTime& date);

[[nodiscard]] Problem write(const QString& path, const QByteArray& content);
/// Creates the folder and the missing ones above it. Where a group may write into
/// the folder above, it may into the new one, and files there go to the same group.
[[nodiscard]] Problem createFolder(const QString& path);
/// Where a file is made ready that is to take the place of `target`: hidden, beside
/// it.
QString draftOf(const QString& target);
/// Removes drafts from a folder whose makers have died.
void removeDrafts(const QString& folder);
[[nodiscard]] Problem remove(const QString& path);
/// Renames a draft onto the file that it replaces, atomically.
[[nodiscard]] Problem replace(const QString& draft, const QString& target);

/// Puts a file in place as a whole, when its content has reached the disk.
[[nodiscard]] Problem store(const QString& path, const QByteArray& content);

/// The failure of a file that does not keep still.
QString changedMeanwhile(const QString& path);

/// Gives a file a second name, or makes a copy of it where the file system has one
/// name for each; the copy must have this MD5.
[[nodiscard]] Problem linkOrCopy(const QString& file, const QString& name, const QString& md5);

/// Returns when the file's content has reached the disk.
[[nodiscard]] Problem flush(const QString& path);
/// Returns when everything written to the folder's file system has reached the
/// disk, names and folders included.
[[nodiscard]] Problem flushFileSystem(const QString& folder);

/// While it lives, what this process makes can be read by everybody, as a web
/// server needs it, and written by its owner: whatever the admin's own umask is.
class PublicFiles {
public:
    PublicFiles();
    PublicFiles(const PublicFiles&) = delete;
    PublicFiles& operator=(const PublicFiles&) = delete;
    ~PublicFiles();

private:
    unsigned before = 0;
};

} // namespace FileWork

} // namespace Publisher
