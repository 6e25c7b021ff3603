#pragma once

#include <QDateTime>
#include <QString>

class QFile;

namespace Publisher {

/// What a regular file looks like from outside, for comparison: while its fingerprint
/// stays the same nobody has written to it. Every bit of the structure counts, so
/// that it can be stored as it is.
struct FileFingerprint {
    /// In bytes; negative when there is no regular file.
    qint64 size = -1;
    /// Nanoseconds since 1970.
    qint64 modified = 0;
    /// The same for the inode, which betrays whoever sets dates back.
    qint64 changed = 0;
    quint64 inode = 0;

    /// Of what a symbolic link leads to.
    static FileFingerprint of(const QString& path);
    /// None of a symbolic link.
    static FileFingerprint ofUnlinked(const QString& path);
    /// Of the very file that is open, whatever has taken its name since.
    static FileFingerprint of(const QFile& open);

    bool isFile() const
    {
        return size >= 0;
    }

    /// Whether the dates lie far enough back for a later change to show in them,
    /// coarse as the clocks of file systems are.
    bool isSettled(const QDateTime& now) const;
    /// The modification date, invalid when there is no file.
    QDateTime date() const;

    friend bool operator==(const FileFingerprint&, const FileFingerprint&) = default;
};

} // namespace Publisher
