#pragma once

#include <QHash>
#include <QString>

/// Hashes of files that have not changed since they were read, so that they
/// need not be read again. Lies in the user's cache folder, apart from what is
/// served; without it everything is read anew and nothing else is different.
class HashCache {
public:
    /// The cache for what is published into this folder.
    static HashCache forTarget(const QString& folder);
    explicit HashCache(QString file);

    /// MD5 of the file, empty when it is unknown or the file has changed.
    QString find(const QString& path) const;
    /// `stamp` is from before the file was read, so that a later change shows.
    void remember(const QString& path, const QString& stamp, const QString& md5);
    /// Keeps what has been remembered by this object and forgets the rest.
    void save() const;

private:
    struct Item {
        QString stamp;
        QString md5;
    };

    QString file;
    QHash<QString, Item> known;
    QHash<QString, Item> current;
};
