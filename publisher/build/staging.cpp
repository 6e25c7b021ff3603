#include "publisher/build/staging.h"

#include "publisher/build/buildrequest.h"
#include "publisher/common/filework.h"
#include "publisher/common/hashcache.h"
#include "publisher/common/parallel.h"
#include "publisher/common/progress.h"
#include "publisher/common/publication.h"

#include <QFile>
#include <QFileInfo>

#include <algorithm>
#include <numeric>
#include <utility>

using namespace Qt::StringLiterals;

namespace Publisher {

namespace {

// Files below this size are read in the order of their paths.
constexpr qint64 large = qint64(64) << 10;

/// Positions of the items, the largest first, so that no core is left alone
/// with a large one at the end.
QList<qsizetype> largestFirst(const QList<StagedFile>& items)
{
    QList<qsizetype> order(items.size());
    std::iota(order.begin(), order.end(), 0);
    const auto rank = [&](qsizetype i) {
        const qint64 size = items.at(i).file.size;
        return size < large ? 0 : size;
    };
    std::stable_sort(order.begin(), order.end(), [&](qsizetype one, qsizetype other) {
        return rank(one) > rank(other);
    });
    return order;
}

} // namespace

QString StagedFile::serverPath(Kind kind) const
{
    return ServerLayout::filePath(kind, file.path, md5);
}

/// Each thread has a folder of its own, so that none waits for another's entry.
QString Staging::copyOf(const QString& folder, int thread, qsizetype number)
{
    return folder + u'/' + QString::number(thread) + u'/' + QString::number(number);
}

Staging::Staging(
    const BuildRequest& buildRequest, const QHash<QString, PublishedFile>& publishedFiles,
    const HashCache& hashCache, QString stagingFolder)
    : request(buildRequest)
    , published(publishedFiles)
    , cache(hashCache)
    , folder(std::move(stagingFolder))
    , otherKind(ServerLayout::other(request.kind))
    , other(
          readPublication(request.server + u'/' + ServerLayout::manifestName(otherKind), otherKind)
              .files)
{
}

QList<StagedFile> Staging::run(QList<SourceFile> files)
{
    QList<StagedFile> items;
    items.reserve(files.size());
    Progress::Count total;
    for (SourceFile& file : files) {
        ++total.files;
        total.bytes += file.size;
        items.append({ .file = std::move(file) });
    }
    files.clear();
    Progress progress(u"publishing"_s, total);
    StagedFile* const first = items.data();
    Parallel::run(
        request.threads, largestFirst(items), [&](qsizetype i) { return first[i].file.size; },
        [&](qsizetype i, int thread) {
            stage(first[i], { thread, copyOf(folder, thread, i) }, progress);
        });
    return items;
}

void Staging::stage(StagedFile& item, const Shelf& shelf, Progress& progress) const
{
    if (!request.rehash)
        item.md5 = cache.find(request.source + u'/' + item.file.path, item.file.fingerprint);
    if (item.md5.isEmpty())
        read(item, shelf, progress);
    else
        progress.addBytes(item.file.size);
    if (!item.problem)
        compareWithTree(item, shelf);
    progress.addFile();
}

void Staging::read(StagedFile& item, const Shelf& shelf, Progress& progress) const
{
    const QString path = request.source + u'/' + item.file.path;
    if (request.dryRun || !isCertainlyNew(item.file) || mayHaveTwin(item.file)) {
        take(item, FileWork::hash(path, &progress));
    } else if (item.file.size <= FileWork::mostAtOnce) {
        readAndPlace(item, shelf, progress);
    } else {
        take(item, FileWork::copy(path, shelf.path, &progress));
        item.copiedBy = shelf.thread;
    }
}

void Staging::readAndPlace(StagedFile& item, const Shelf& shelf, Progress& progress) const
{
    QByteArray content;
    take(item, FileWork::read(request.source + u'/' + item.file.path, content, &progress));
    if (!item.problem)
        place(item, shelf, content);
}

/// Into a folder of its content's name there is but one file to write, so that
/// nothing has to be moved. An address that is live gets its file by renaming.
void Staging::place(StagedFile& item, const Shelf& shelf, const QByteArray& content) const
{
    if (!isLive(item)) {
        const QString target = request.server + u'/' + item.serverPath(request.kind);
        item.problem = FileWork::createFolder(target.left(target.lastIndexOf(u'/')));
        if (!item.problem)
            item.served = FileWork::create(target, content, item.problem);
        item.isPlaced = item.served.isFile();
    }
    if (!item.isPlaced && !item.problem) {
        item.problem = FileWork::write(shelf.path, content);
        item.copiedBy = shelf.thread;
    }
}

/// Whether launchers may be asking for it now.
bool Staging::isLive(const StagedFile& item) const
{
    const auto before = published.find(item.file.path);
    return before != published.end() && before->hash == item.md5;
}

/// What has come out of reading the source.
void Staging::take(StagedFile& item, const FileWork::Digest& digest)
{
    item.problem = digest.problem;
    const bool sameContent = item.md5.isEmpty() || item.md5 == digest.md5;
    if (!digest.problem && !(digest.steady && sameContent))
        item.problem = FileWork::changedMeanwhile(item.file.path);
    item.md5 = digest.md5;
    item.file.fingerprint = digest.fingerprint;
}

void Staging::compareWithTree(StagedFile& item, const Shelf& shelf) const
{
    if (item.isPlaced)
        return;
    const QString place = request.server + u'/' + item.serverPath(request.kind);
    item.served = FileFingerprint::of(place);
    item.inPlace = item.served.isFile() && hashInTree(place, item.served) == item.md5;
    if (item.inPlace && item.copiedBy >= 0) {
        QFile::remove(shelf.path);
        item.copiedBy = -1;
    }
    if (item.inPlace || request.dryRun || item.copiedBy >= 0)
        return;
    item.copiedBy = shelf.thread;
    const QString twin = twinOf(item);
    if (!twin.isEmpty() && !FileWork::linkOrCopy(twin, shelf.path, item.md5))
        return;
    take(item, FileWork::copy(request.source + u'/' + item.file.path, shelf.path, nullptr));
}

/// The same file in the tree of the other kind, which has the same content; empty
/// when there is none.
QString Staging::twinOf(const StagedFile& item) const
{
    const QString twin = request.server + u'/' + item.serverPath(otherKind);
    const FileFingerprint fingerprint = FileFingerprint::of(twin);
    return fingerprint.size == item.file.size && FileWork::hash(twin, nullptr).md5 == item.md5
        ? twin
        : QString();
}

/// Whether the other kind has a file of this path and size.
bool Staging::mayHaveTwin(const SourceFile& file) const
{
    const auto twin = other.find(file.path);
    return twin != other.end()
        && FileFingerprint::of(request.server + u'/' + twin->serverPath).size == file.size;
}

/// A file that the live manifest lacks, or has in another size, is read and
/// copied in one go. Any other is read first: as a rule it has not changed.
bool Staging::isCertainlyNew(const SourceFile& file) const
{
    const auto before = published.find(file.path);
    return before == published.end()
        || QFileInfo(request.server + u'/' + before->serverPath).size() != file.size;
}

QString Staging::hashInTree(const QString& path, const FileFingerprint& fingerprint) const
{
    const QString known = request.rehash ? QString() : cache.find(path, fingerprint);
    return known.isEmpty() ? FileWork::hash(path, nullptr).md5 : known;
}

} // namespace Publisher
