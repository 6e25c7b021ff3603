#include "publisher/staging.h"

#include "publisher/build.h"
#include "publisher/filework.h"
#include "publisher/hashcache.h"
#include "publisher/progress.h"
#include "publisher/publication.h"

#include <QFile>
#include <QFileInfo>
#include <QThreadPool>

#include <algorithm>
#include <utility>

using namespace Qt::StringLiterals;

namespace {

/// Positions of the items, the largest first, so that no core is left alone
/// with a large one at the end.
QList<qsizetype> largestFirst(const QList<StagedFile>& items)
{
    QList<qsizetype> order(items.size());
    for (qsizetype i = 0; i < order.size(); ++i)
        order[i] = i;
    std::stable_sort(order.begin(), order.end(), [&](qsizetype one, qsizetype other) {
        return items.at(one).file.size > items.at(other).file.size;
    });
    return order;
}

QString changedMeanwhile(const SourceFile& file)
{
    return u"%1 was changed while it was being published; nothing has been published"_s.arg(
        file.path);
}

} // namespace

Staging::Staging(
    const BuildRequest& buildRequest, const QHash<QString, PublishedFile>& publishedFiles,
    const HashCache& hashCache, QString stagingFolder)
    : request(buildRequest)
    , published(publishedFiles)
    , cache(hashCache)
    , folder(std::move(stagingFolder))
{
}

void Staging::inParallel(
    const QList<qsizetype>& order, const std::function<void(qsizetype)>& work) const
{
    QThreadPool pool;
    pool.setMaxThreadCount(request.threads);
    for (const qsizetype i : order) {
        if (request.threads > 1)
            pool.start([&work, i] { work(i); });
        else
            work(i);
    }
    pool.waitForDone();
}

QList<StagedFile> Staging::run(const QList<SourceFile>& files)
{
    QList<StagedFile> items;
    Progress::Count total;
    for (const SourceFile& file : files) {
        items.append({ .file = file });
        ++total.files;
        total.bytes += file.size;
    }
    Progress progress(u"publishing"_s, total);
    StagedFile* const first = items.data();
    const QList<qsizetype> order = largestFirst(items);
    inParallel(order, [&](qsizetype i) { stage(first[i], i, progress); });
    return items;
}

void Staging::stage(StagedFile& item, qsizetype number, Progress& progress) const
{
    const QString path = request.source + u'/' + item.file.path;
    const QString copy = folder + u'/' + QString::number(number);
    item.stamp = FileWork::stamp(path);
    if (!request.rehash)
        item.md5 = cache.find(path);
    if (item.md5.isEmpty())
        read(item, copy, progress);
    else
        progress.addBytes(item.file.size);
    if (item.error.isEmpty())
        compareWithTree(item, copy);
    if (item.error.isEmpty() && FileWork::stamp(path) != item.stamp)
        item.error = changedMeanwhile(item.file);
    progress.addFile();
}

void Staging::read(StagedFile& item, const QString& copy, Progress& progress) const
{
    const QString path = request.source + u'/' + item.file.path;
    const bool copies = !request.dryRun && isCertainlyNew(item.file);
    const FileWork::Digest digest
        = copies ? FileWork::copy(path, copy, &progress) : FileWork::hash(path, &progress);
    item.md5 = digest.md5;
    item.error = digest.error;
    if (copies)
        item.copy = copy;
}

void Staging::compareWithTree(StagedFile& item, const QString& copy) const
{
    item.serverPath = "wow-client-patch/"_L1 + request.kind + u'/'
        + serverFolderOf(item.file, item.md5) + u'/' + item.file.name();
    item.inPlace = hashInTree(request.server + u'/' + item.serverPath) == item.md5;
    if (item.inPlace && !item.copy.isEmpty()) {
        QFile::remove(item.copy);
        item.copy.clear();
    }
    if (item.inPlace || request.dryRun || !item.copy.isEmpty())
        return;
    item.copy = copy;
    const FileWork::Digest digest
        = FileWork::copy(request.source + u'/' + item.file.path, copy, nullptr);
    item.error = digest.error;
    if (digest.error.isEmpty() && digest.md5 != item.md5)
        item.error = changedMeanwhile(item.file);
}

/// A file that the live manifest lacks, or has in another size, is read and
/// copied in one go. Any other is read first: as a rule it has not changed.
bool Staging::isCertainlyNew(const SourceFile& file) const
{
    const auto before = published.find(file.path);
    return before == published.end()
        || QFileInfo(request.server + u'/' + before->serverPath).size() != file.size;
}

QString Staging::hashInTree(const QString& path) const
{
    if (FileWork::stamp(path).isEmpty())
        return {};
    const QString known = request.rehash ? QString() : cache.find(path);
    return known.isEmpty() ? FileWork::hash(path, nullptr).md5 : known;
}
