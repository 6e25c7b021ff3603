#include "publisher/check/checkpublished.h"

#include "publisher/common/filework.h"
#include "publisher/common/hashcache.h"
#include "publisher/common/placeholder.h"
#include "publisher/common/progress.h"
#include "publisher/common/serverlayout.h"

#include <QFileInfo>
#include <QThreadPool>

#include <optional>
#include <utility>

using namespace Qt::StringLiterals;

namespace Publisher {

namespace {

/// One entry's file in the tree, and what is wrong with it.
struct PublishedEntry {
    qint64 number;
    /// Below the tree.
    QString served;
    QFileInfo file;
    std::optional<Finding> finding = {};
};

QString whyMissing(const PublishedEntry& entry, const QString& error)
{
    const QString start = error.isEmpty() ? "There is no "_L1 + entry.served + " on the server"_L1
                                          : entry.served + " cannot be read ("_L1 + error + u')';
    return start
        + ": players do not get the file, and the one of that name in their client is deleted "
          "unless an earlier copy is in their cache."_L1;
}

FileWork::Digest digestOf(const QString& path, const HashCache* known, Progress& progress)
{
    const QString md5 = known == nullptr ? QString() : known->find(path, FileFingerprint::of(path));
    return md5.isEmpty() ? FileWork::hash(path, &progress) : FileWork::Digest{ .md5 = md5 };
}

/// What is wrong with the file, if anything is.
std::optional<Finding> inspect(
    const CheckedManifest& manifest, const PublishedEntry& entry, const HashCache* known,
    Progress& progress)
{
    const auto found = [&](FindingId id, const QString& text) {
        return manifest.finding(id, entry.number, text);
    };
    const QString& hash = manifest.content.entry(entry.number).hash;
    if (!entry.file.isFile())
        return found(FindingId::FileNotPublished, whyMissing(entry, {}));
    if (entry.file.size() == 0)
        return found(
            FindingId::FileEmpty,
            entry.served
                + " is empty: the launcher stores no empty answer, and the file of that name in "
                  "players' clients is deleted."_L1);
    const FileWork::Digest digest = digestOf(entry.file.filePath(), known, progress);
    progress.addFile();
    if (digest.problem)
        return found(FindingId::FileNotPublished, whyMissing(entry, *digest.problem));
    if (digest.md5 == hash.toLower())
        return std::nullopt;
    return found(
        FindingId::HashMismatch,
        u"%1 has the hash %2, not \"%3\": players download it at every start."_s.arg(
            entry.served, digest.md5, hash.left(40)));
}

QList<PublishedEntry> entriesOf(const CheckedManifest& manifest, const QString& tree)
{
    QList<PublishedEntry> entries;
    for (qint64 n = 1; n <= manifest.content.count(); ++n) {
        const PatchManifestEntry& entry = manifest.content.entry(n);
        const QString served = ServerLayout::statedPath(manifest.kind, entry);
        if (entry.action() == PatchAction::FileDownload && !entry.name.isEmpty()
            && !served.isEmpty() && !isPlaceholder(entry))
            entries.append({ n, served, QFileInfo(tree + u'/' + served) });
    }
    return entries;
}

} // namespace

namespace CheckPublished {

QList<Finding>
findings(const CheckedManifest& manifest, const QString& tree, const HashCache* known)
{
    QList<PublishedEntry> entries = entriesOf(manifest, tree);
    Progress::Count total;
    for (const PublishedEntry& entry : std::as_const(entries)) {
        ++total.files;
        total.bytes += entry.file.size();
    }
    Progress progress(u"checking"_s, total);
    QThreadPool pool;
    for (PublishedEntry& entry : entries)
        pool.start([&] { entry.finding = inspect(manifest, entry, known, progress); });
    pool.waitForDone();

    QList<Finding> found;
    for (const PublishedEntry& entry : std::as_const(entries)) {
        if (entry.finding)
            found.append(*entry.finding);
    }
    return found;
}

} // namespace CheckPublished

} // namespace Publisher
