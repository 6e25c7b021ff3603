#include "publisher/report/publishedtree.h"

#include "publisher/build/history.h"
#include "publisher/common/filefingerprint.h"
#include "publisher/common/publication.h"
#include "publisher/common/serverlayout.h"
#include "update/launcherfiles.h"

#include <QByteArray>
#include <QDateTime>
#include <QDir>
#include <QFileInfo>

#include <algorithm>

using namespace Qt::StringLiterals;

namespace Publisher {

namespace {

Kind kindOf(Track track)
{
    return track == Track::Test ? Kind::Test : Kind::Live;
}

PublishedTree::Release releaseOf(const QString& path, std::int64_t time)
{
    return { .time = time, .size = FileFingerprint::of(path).size };
}

std::int64_t dateOf(const QString& path)
{
    return QFileInfo(path).lastModified().toSecsSinceEpoch();
}

} // namespace

Problem PublishedTree::read(const QString& folder)
{
    if (!QFileInfo(folder).isDir())
        return u"there is no folder \"%1\"; name the one that build publishes into"_s.arg(folder);
    for (const Track track : { Track::Live, Track::Test })
        readHistory(folder, track);
    readNext(folder);
    readLauncher(folder);
    return std::nullopt;
}

void PublishedTree::readHistory(const QString& folder, Track track)
{
    const QString live = folder + u'/' + ServerLayout::manifestName(kindOf(track));
    QList<Release>& known = releases[static_cast<std::size_t>(track)];
    const QList<HistoryEntry> entries = History(folder, kindOf(track)).entries();
    for (const HistoryEntry& entry : entries) {
        Release release = releaseOf(entry.manifestPath, entry.note.time.toSecsSinceEpoch());
        release.number = entry.number;
        release.message = entry.note.message;
        known.append(release);
        takeFiles(folder, entry.manifestPath, track);
    }
    // One that was written by hand.
    if (known.isEmpty() && QFileInfo(live).isFile())
        known.append(releaseOf(live, dateOf(live)));
    takeFiles(folder, live, track);
    std::stable_sort(known.begin(), known.end(), [](const Release& one, const Release& other) {
        return one.time < other.time;
    });
}

void PublishedTree::readLauncher(const QString& folder)
{
    const QString path = folder + u'/' + launcherFileName;
    if (QFileInfo(path).isFile())
        releases[static_cast<std::size_t>(Track::Launcher)].append(releaseOf(path, dateOf(path)));
}

void PublishedTree::readNext(const QString& folder)
{
    const QString path = folder + u'/' + ServerLayout::nextManifestName();
    if (!QFileInfo(path).isFile())
        return;
    next = releaseOf(path, dateOf(path));
    takeFiles(folder, path, Track::Live);
}

void PublishedTree::takeFiles(const QString& folder, const QString& manifest, Track track)
{
    const Publication publication = readPublication(manifest, kindOf(track));
    for (const PublishedFile& file : publication.files) {
        if (!patchFiles.contains(file.serverPath))
            patchFiles.insert(
                file.serverPath,
                std::max<std::int64_t>(0, QFileInfo(folder + u'/' + file.serverPath).size()));
    }
}

const PublishedTree::Release* PublishedTree::liveAt(Track track, std::int64_t time) const
{
    const QList<Release>& known = releases[static_cast<std::size_t>(track)];
    const auto after = std::upper_bound(
        known.cbegin(), known.cend(), time,
        [](std::int64_t moment, const Release& release) { return moment < release.time; });
    return after == known.cbegin() ? nullptr : &*(after - 1);
}

const PublishedTree::Release* PublishedTree::nextDated(std::int64_t date) const
{
    return next && next->time == date ? &*next : nullptr;
}

std::optional<std::int64_t> PublishedTree::sizeOfPatchFile(std::string_view target) const
{
    const auto raw = QByteArray::fromRawData(target.data(), static_cast<qsizetype>(target.size()));
    const QString path = QDir::cleanPath(QString::fromUtf8(QByteArray::fromPercentEncoding(raw)));
    const auto found = patchFiles.constFind(path.mid(1));
    if (found == patchFiles.cend())
        return std::nullopt;
    return *found;
}

} // namespace Publisher
