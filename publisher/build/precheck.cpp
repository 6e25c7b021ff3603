#include "publisher/build/precheck.h"

#include "publisher/build/history.h"
#include "publisher/build/sourcetree.h"
#include "publisher/common/progress.h"
#include "publisher/common/publication.h"

#include <QSet>

#include <algorithm>

using namespace Qt::StringLiterals;

namespace Publisher {

namespace {

// Dropping more than one file in so many wants a word.
constexpr qsizetype dropsWithoutAWord = 10;

// Publications whose paths players are taken to have in their caches still.
constexpr int rememberedByPlayers = 10;

/// The folders above a path, the innermost first.
template <typename Visit> void forFoldersAbove(QString path, const Visit& visit)
{
    for (qsizetype end = path.lastIndexOf(u'/'); end > 0; end = path.lastIndexOf(u'/')) {
        path.truncate(end);
        visit(path);
    }
}

/// What players may have, for disks that do not tell upper from lower case.
class FormerPlaces {
public:
    explicit FormerPlaces(const Publication& publication)
    {
        folders.insert(u"data"_s); // every client has it
        for (const QString& path : publication.folders)
            takeFolder(path.toCaseFolded());
        for (const PublishedFile& file : publication.files)
            takeFile(file.path.toCaseFolded());
    }

    bool hasFolder(const QString& path) const
    {
        return folders.contains(path.toCaseFolded());
    }

    bool hasFile(const QString& path) const
    {
        return files.contains(path.toCaseFolded());
    }

private:
    void takeFile(const QString& path)
    {
        files.insert(path);
        forFoldersAbove(path, [this](const QString& folder) { folders.insert(folder); });
    }

    void takeFolder(const QString& path)
    {
        folders.insert(path);
        forFoldersAbove(path, [this](const QString& folder) { folders.insert(folder); });
    }

    QSet<QString> files;
    QSet<QString> folders;
};

QList<Finding> changedSince(const Publication& former, const SourceTree& source)
{
    const FormerPlaces places(former);
    QList<Finding> refusals;
    for (const SourceFile& file : source.files) {
        if (places.hasFolder(file.path))
            refusals.append(
                { FindingId::FileWasFolder, file.path, 0,
                  u"Players have a folder of this name, and launchers never put a file in its "
                  "place, whatever else is published: they would fetch the file at every start."_s });
    }
    for (const QString& folder : source.folders) {
        if (places.hasFile(folder))
            refusals.append(
                { FindingId::FolderWasFile, folder, 0,
                  u"Players have a file of this name in their patch cache, which nothing takes "
                  "away again: launchers would fetch what is in the folder at every start and "
                  "store it nowhere."_s });
    }
    return refusals;
}

/// Whether the source has a path that the live manifest has not.
bool hasNewPaths(const SourceTree& source, const Publication& live)
{
    return std::any_of(
               source.files.cbegin(), source.files.cend(),
               [&](const SourceFile& file) { return !live.files.contains(file.path); })
        || std::any_of(source.folders.cbegin(), source.folders.cend(), [&](const QString& folder) {
               return !live.folders.contains(folder);
           });
}

} // namespace

namespace Precheck {

QList<Finding>
changedKinds(const SourceTree& source, const Publication& live, const History& history)
{
    QList<Finding> found = changedSince(live, source);
    if (!found.isEmpty() || !hasNewPaths(source, live))
        return found;
    // One at a time, since each may be large.
    QList<HistoryEntry> former = history.entries();
    former = former.last(std::min<qsizetype>(rememberedByPlayers, former.size()));
    for (auto entry = former.crbegin(); entry != former.crend() && found.isEmpty(); ++entry)
        found = changedSince(history.publicationOf(*entry), source);
    return found;
}

QList<Finding> manyRemoved(qsizetype removed, qsizetype live, qsizetype confirmed)
{
    if (removed * dropsWithoutAWord <= live || removed == confirmed)
        return {};
    return {
        { FindingId::ManyRemoved, u"."_s, 0,
          u"The source lacks %1 of the %2 files that are live: new players would not get them."_s
              .arg(removed)
              .arg(live),
          u"If this is not the right folder, or not all of it is there, see to that; if it is "
          "meant, say so with --yes-remove %1."_s.arg(removed) }
    };
}

} // namespace Precheck

} // namespace Publisher
