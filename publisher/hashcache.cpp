#include "publisher/hashcache.h"

#include "publisher/filework.h"

#include <QCryptographicHash>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QSaveFile>
#include <QStandardPaths>

#include <utility>

using namespace Qt::StringLiterals;

HashCache HashCache::forTarget(const QString& folder)
{
    const QByteArray place = QFileInfo(folder).absoluteFilePath().toUtf8();
    const QByteArray name = QCryptographicHash::hash(place, QCryptographicHash::Sha1).toHex();
    return HashCache(
        QStandardPaths::writableLocation(QStandardPaths::GenericCacheLocation)
        + "/halden-publish/"_L1 + QString::fromLatin1(name) + ".json"_L1);
}

HashCache::HashCache(QString cacheFile)
    : file(std::move(cacheFile))
{
    QFile stored(file);
    if (!stored.open(QIODevice::ReadOnly))
        return;
    const QJsonObject items = QJsonDocument::fromJson(stored.readAll()).object();
    for (auto item = items.begin(); item != items.end(); ++item) {
        const QJsonArray pair = item.value().toArray();
        known.insert(item.key(), { pair.at(0).toString(), pair.at(1).toString() });
    }
}

QString HashCache::find(const QString& path) const
{
    const auto item = known.find(path);
    return item != known.end() && item->stamp == FileWork::stamp(path) ? item->md5 : QString();
}

void HashCache::remember(const QString& path, const QString& stamp, const QString& md5)
{
    current.insert(path, { stamp, md5 });
}

void HashCache::save() const
{
    QJsonObject items;
    for (auto item = current.begin(); item != current.end(); ++item)
        items.insert(item.key(), QJsonArray{ item->stamp, item->md5 });
    QDir().mkpath(QFileInfo(file).path());
    QSaveFile stored(file);
    // A cache that cannot be kept costs time at the next run and nothing else.
    if (stored.open(QIODevice::WriteOnly)) {
        stored.write(QJsonDocument(items).toJson(QJsonDocument::Compact));
        stored.commit();
    }
}
