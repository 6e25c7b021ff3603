#include "publisher/build/placecheck.h"

#include "publisher/build/sourcetree.h"
#include "publisher/common/progress.h"

#include <QFileInfo>
#include <QStorageInfo>

#include <algorithm>

using namespace Qt::StringLiterals;

namespace Publisher {

namespace {

/// Takes new entries: the folder, or the one above in which it would be made.
QFileInfo takerOf(const QString& folder)
{
    QFileInfo taker(folder);
    while (!taker.exists() && taker.path() != taker.filePath())
        taker.setFile(taker.path());
    return taker;
}

Problem withoutRight(const QString& folder, QLatin1StringView what)
{
    const QFileInfo taker = takerOf(folder);
    if (taker.isWritable() && taker.isExecutable())
        return {};
    return u"%1 cannot be written: %2 there. Give yourself, or a group of yours, the right to it, "
           "and run the same command again"_s.arg(taker.filePath(), what);
}

Problem withoutRoom(const QString& folder, qint64 bytes)
{
    const qint64 free = QStorageInfo(folder).bytesAvailable();
    if (free < 0 || bytes <= free)
        return {};
    return u"%1 has no room: the new files take %2, and %3 are free. No space left for them on "
           "this disk; make room, with --prune and the last source for instance, and run the same "
           "command again"_s.arg(folder, humanSize(bytes), humanSize(free));
}

/// About what the manifest takes, once for players and once for the history.
qint64 sizeOfManifests(const SourceTree& source)
{
    constexpr qint64 keysAndHashes = 150;
    qint64 size = 0;
    for (const SourceFile& file : source.files)
        size += 2 * (3 * file.path.size() + keysAndHashes);
    return size;
}

QString diskOf(const QString& folder)
{
    return QStorageInfo(folder).rootPath();
}

class Places {
public:
    Places(const QString& serverFolder, Kind kind)
        : server(serverFolder)
        , history(server + u'/' + ServerLayout::historyFolder(kind))
        , patchFolder(server + u'/' + ServerLayout::patchFolder())
        , kindFolder(server + u'/' + ServerLayout::kindFolder(kind))
    {
    }

    Problem faultOfFolders() const
    {
        if (diskOf(kindFolder) != diskOf(patchFolder))
            return u"%1 lies on another disk than %2, and what is ready to be published could not "
                   "be moved there atomically. Let the whole of %2 lie on one disk, and run the "
                   "same command again"_s.arg(kindFolder, patchFolder);
        Problem fault = withoutRight(server, "the manifest goes"_L1);
        return fault ? fault : withoutRight(history, "the history is kept"_L1);
    }

    /// Whether any folder into which the source may bring something is closed.
    bool areClosed(const SourceTree& source) const
    {
        const auto isClosed = [this](const QString& folder) {
            return withoutRight(kindFolder + u'/' + folder, {}).has_value();
        };
        return isClosed({})
            || std::any_of(source.folders.cbegin(), source.folders.cend(), isClosed);
    }

    Problem faultOfRoom(qint64 files, qint64 manifests) const
    {
        const bool onOneDisk = diskOf(patchFolder) == diskOf(server);
        Problem fault = withoutRoom(patchFolder, files + (onOneDisk ? manifests : 0));
        return !fault && !onOneDisk ? withoutRoom(server, manifests) : fault;
    }

    Problem faultOfFile(const PlaceCheck::MissingFile& file) const
    {
        return withoutRight(QFileInfo(server + u'/' + file.serverPath).path(), "patch files go"_L1);
    }

private:
    QString server;
    QString history;
    QString patchFolder;
    QString kindFolder;
};

} // namespace

Problem PlaceCheck::fault(
    const QString& server, Kind kind, const SourceTree& source,
    const std::function<QList<MissingFile>()>& missing)
{
    const Places places(server, kind);
    const qint64 manifests = sizeOfManifests(source);
    qint64 bytes = 0;
    for (const SourceFile& file : source.files)
        bytes += file.size;
    Problem fault = places.faultOfFolders();
    if (fault || (!places.areClosed(source) && !places.faultOfRoom(bytes, manifests)))
        return fault;
    bytes = 0;
    const QList<MissingFile> files = missing();
    for (const MissingFile& file : files) {
        bytes += file.size;
        if (!fault)
            fault = places.faultOfFile(file);
    }
    return fault ? fault : places.faultOfRoom(bytes, manifests);
}

} // namespace Publisher
