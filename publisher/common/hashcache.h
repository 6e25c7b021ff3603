#pragma once

#include "publisher/common/filefingerprint.h"

#include <QByteArray>
#include <QCryptographicHash>
#include <QHash>
#include <QString>

#include <memory>

class QSaveFile;

namespace Publisher {

/// Hashes of files that have not changed since they were read, so that they
/// need not be read again. Lies in the user's cache folder, apart from what is
/// served; without it everything is read anew and nothing else is different.
///
/// The file is read in one go and written front to back, so that both take time
/// in proportion to the files: a mark, a record for each file, a checksum. A file
/// that is anything else counts as empty.
class HashCache {
public:
    /// The cache for what is published into this folder.
    static HashCache forTarget(const QString& folder);
    explicit HashCache(QString file);
    HashCache(const HashCache&) = delete;
    HashCache& operator=(const HashCache&) = delete;
    ~HashCache();

    /// MD5 of the file that looks so now, in hexadecimal; empty when it is unknown
    /// or the file has changed. May be called from several threads.
    QString find(const QString& path, const FileFingerprint& fingerprint) const;
    /// `fingerprint` is from before the file was read, so that a later change shows.
    void remember(const QString& path, const FileFingerprint& fingerprint, const QString& md5);
    /// Keeps what has been remembered by this object, in its file alone, and
    /// forgets the rest.
    void save();

private:
    void load();
    bool index();
    void write(QByteArrayView bytes);

    QString file;
    /// Records one after the other, and where each begins.
    QByteArray known;
    QHash<QByteArrayView, qsizetype> starts;
    /// Takes the place of the file when it is saved.
    std::unique_ptr<QSaveFile> next;
    QCryptographicHash checksum{ QCryptographicHash::Md5 };
};

} // namespace Publisher
