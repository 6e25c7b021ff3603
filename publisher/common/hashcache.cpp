#include "publisher/common/hashcache.h"

#include <QCryptographicHash>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QSaveFile>
#include <QStandardPaths>

#include <algorithm>
#include <array>
#include <cstring>
#include <type_traits>
#include <utility>

using namespace Qt::StringLiterals;

namespace Publisher {

namespace {

// A record: this head, then the path in UTF-8. The machine's own byte order will
// do, since the file stays on it.
struct Head {
    FileFingerprint fingerprint = {};
    std::array<char, 16> md5{};
    quint64 pathLength = 0;
};
static_assert(std::is_trivially_copyable_v<Head>);
static_assert(std::has_unique_object_representations_v<Head>);

constexpr QByteArrayView mark("halden-publish hashes 2\n");
constexpr qsizetype checksumLength = 16;
constexpr qsizetype headLength = sizeof(Head);

/// `records` begins with it.
Head headOf(QByteArrayView records)
{
    Head head;
    std::memcpy(&head, records.data(), headLength);
    return head;
}

} // namespace

HashCache HashCache::forTarget(const QString& folder)
{
    const QByteArray place = QFileInfo(folder).absoluteFilePath().toUtf8();
    const QByteArray name = QCryptographicHash::hash(place, QCryptographicHash::Sha1).toHex();
    return HashCache(
        QStandardPaths::writableLocation(QStandardPaths::GenericCacheLocation)
        + "/halden-publish/"_L1 + QString::fromLatin1(name) + ".hashes"_L1);
}

HashCache::HashCache(QString cacheFile)
    : file(std::move(cacheFile))
{
    load();
}

HashCache::~HashCache() = default;

void HashCache::load()
{
    QFile stored(file);
    if (!stored.open(QIODevice::ReadOnly) || stored.read(mark.size()) != mark)
        return;
    known = stored.readAll();
    const QByteArray sum = known.last(std::min(checksumLength, known.size()));
    known.chop(checksumLength);
    if (QCryptographicHash::hash(known, QCryptographicHash::Md5) != sum || !index())
        starts.clear();
}

/// Whether every record ends within the bytes.
bool HashCache::index()
{
    for (QByteArrayView rest = known; !rest.isEmpty();) {
        if (rest.size() < headLength)
            return false;
        const Head head = headOf(rest);
        const QByteArrayView behind = rest.sliced(headLength);
        if (head.pathLength > static_cast<quint64>(behind.size()))
            return false;
        const QByteArrayView path = behind.first(static_cast<qsizetype>(head.pathLength));
        starts.insert(path, rest.data() - known.constData());
        rest = behind.sliced(path.size());
    }
    return true;
}

QString HashCache::find(const QString& path, const FileFingerprint& fingerprint) const
{
    const auto start = starts.find(path.toUtf8());
    if (start == starts.end() || !fingerprint.isFile())
        return {};
    const Head head = headOf(QByteArrayView(known).sliced(*start));
    if (head.fingerprint != fingerprint)
        return {};
    return QString::fromLatin1(QByteArray::fromRawData(head.md5.data(), head.md5.size()).toHex());
}

void HashCache::write(QByteArrayView bytes)
{
    // A cache that cannot be kept costs time at the next run and nothing else.
    checksum.addData(bytes);
    next->write(bytes.data(), bytes.size());
}

void HashCache::remember(
    const QString& path, const FileFingerprint& fingerprint, const QString& md5)
{
    const QByteArray digest = QByteArray::fromHex(md5.toLatin1());
    const QByteArray key = path.toUtf8();
    Head head{ .fingerprint = fingerprint,
               .md5 = {},
               .pathLength = static_cast<quint64>(key.size()) };
    if (digest.size() != qsizetype(head.md5.size()))
        return;
    std::memcpy(head.md5.data(), digest.constData(), head.md5.size());
    if (!next) {
        QDir().mkpath(QFileInfo(file).path());
        next = std::make_unique<QSaveFile>(file);
        if (next->open(QIODevice::WriteOnly))
            next->write(mark.data(), mark.size());
    }
    if (!next->isOpen())
        return;
    write(QByteArrayView(reinterpret_cast<const char*>(&head), headLength));
    write(key);
}

void HashCache::save()
{
    if (next && next->isOpen()) {
        next->write(checksum.result());
        next->commit();
    }
    next.reset();
    checksum.reset();
    starts = {};
    known = {};
}

} // namespace Publisher
