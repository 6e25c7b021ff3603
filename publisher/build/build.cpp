#include "publisher/build/build.h"

#include "publisher/build/history.h"
#include "publisher/build/manifestdraft.h"
#include "publisher/build/manifestexchange.h"
#include "publisher/build/placecheck.h"
#include "publisher/build/precheck.h"
#include "publisher/build/servedfolder.h"
#include "publisher/build/sourcetree.h"
#include "publisher/build/staging.h"
#include "publisher/common/clock.h"
#include "publisher/common/dates.h"
#include "publisher/common/filework.h"
#include "publisher/common/hashcache.h"
#include "publisher/common/manifesttext.h"
#include "publisher/common/parallel.h"
#include "update/launcherfiles.h"

#include <QDir>
#include <QDirIterator>
#include <QFile>
#include <QFileInfo>
#include <QSet>

#include <algorithm>
#include <atomic>
#include <utility>

using namespace Qt::StringLiterals;

namespace Publisher {

namespace {

class Build {
public:
    Build(const BuildRequest& buildRequest, Clock& time, BuildReport& target)
        : request(buildRequest)
        , clock(time)
        , report(target)
        , steps(target.error)
        , served(request.server)
        , kindFolder(onServer(ServerLayout::kindFolder(request.kind)))
        , stagingFolder(served.stagingFolder())
        , livePath(onServer(ServerLayout::manifestName(request.kind)))
        , nextPath(onServer(ServerLayout::nextManifestName()))
        , manifestPath(request.next ? nextPath : livePath)
        , cache(HashCache::forTarget(kindFolder))
    {
    }

    ExitCode run()
    {
        source = SourceTree::scan(request.source);
        report.passedOver = source.passedOver;
        removals = RemovalPlan::make(request.removals, source, request.separator);
        report.refusals = source.refusals + removals.refusals;
        if (!report.refusals.isEmpty())
            return ExitCode::Findings;
        if (!request.dryRun && !steps.attempt(takeServedFolder()))
            return ExitCode::InputOutput;
        live = readPublication(livePath, request.kind);
        compareNames();
        judge();
        if (report.refusals.isEmpty() || request.dryRun)
            proceed();
        if (!steps.succeeded())
            return ExitCode::InputOutput;
        return report.refusals.isEmpty() ? ExitCode::Fine : ExitCode::Findings;
    }

private:
    /// What is to be copied, found by reading and without copying.
    QList<PlaceCheck::MissingFile> filesToCopy()
    {
        BuildRequest looking = request;
        looking.dryRun = true;
        QList<PlaceCheck::MissingFile> missing;
        const QList<StagedFile> found
            = Staging(looking, published, cache, stagingFolder).run(source.files);
        for (const StagedFile& item : found) {
            // What cannot be read is told when it is to be published.
            if (!item.inPlace && !item.problem)
                missing.append({ item.serverPath(request.kind), item.file.size });
        }
        return missing;
    }

    bool hasPlace()
    {
        const auto missing = [this] {
            return filesToCopy();
        };
        return steps.attempt(PlaceCheck::fault(request.server, request.kind, source, missing));
    }

    void proceed()
    {
        if (!request.dryRun && !hasPlace())
            return;
        items = Staging(request, published, cache, stagingFolder).run(std::move(source.files));
        for (const StagedFile& item : items)
            steps.attempt(item.problem);
        if (!steps.succeeded()) {
            takeBack();
            return;
        }
        compare();
        draft();
        if (!request.dryRun)
            publish();
        if (request.prune && steps.succeeded())
            prune();
    }

    /// What has been placed, and never was live, goes again.
    void takeBack()
    {
        for (const StagedFile& item : std::as_const(items)) {
            if (!item.isPlaced)
                continue;
            const QString path = onServer(item.serverPath(request.kind));
            QFile::remove(path);
            removeEmptyFoldersAbove(path);
        }
    }

    void removeEmptyFoldersAbove(const QString& path) const
    {
        const QDir any;
        QString folder = path;
        do
            folder.truncate(folder.lastIndexOf(u'/'));
        while (folder.size() > kindFolder.size() && any.rmdir(folder));
    }

    /// What is seen before any file is read.
    void judge()
    {
        report.refusals
            += Precheck::changedKinds(source, live, History(request.server, request.kind));
        report.refusals += Precheck::manyRemoved(
            report.removed.size(), published.size(), request.confirmedDrops);
        if (!request.renew)
            report.refusals += Dates::ahead(manifestPath, clock);
        for (const auto name : { launcherFileName, updaterFileName })
            report.notes += Dates::noteOn(request.server + u'/' + name, clock);
    }

    /// The difference as far as names tell it.
    void compareNames()
    {
        QSet<QStringView> listed;
        listed.reserve(source.files.size());
        for (const SourceFile& file : std::as_const(source.files))
            listed.insert(file.path);
        for (const PublishedFile& file : published) {
            if (!listed.contains(file.path))
                report.removed.append({ file.path, QFileInfo(onServer(file.serverPath)).size() });
        }
        std::sort(report.removed.begin(), report.removed.end(), [](const auto& a, const auto& b) {
            return a.path < b.path;
        });
        report.removals = removals.removals;
        for (const PublishedRemoval& removal : live.removals) {
            if (!report.removals.contains(removal) && !report.droppedRemovals.contains(removal))
                report.droppedRemovals.append(removal);
        }
    }

    /// Each thread has a staging folder of its own.
    Problem takeServedFolder()
    {
        Problem problem = inOrder(
            [&] { return served.take(); }, [&] { return FileWork::createFolder(kindFolder); });
        for (int thread = 0; thread < request.threads && !problem; ++thread)
            problem = FileWork::createFolder(stagingFolder + u'/' + QString::number(thread));
        return problem;
    }

    void draft()
    {
        ManifestText::Writer manifest(
            removals.entries.size() + source.folders.size() + items.size());
        for (const PatchManifestEntry& entry : std::as_const(removals.entries))
            manifest.append(entry);
        for (const QString& folder : std::as_const(source.folders))
            manifest.append(ManifestDraft::folder(folder, request.separator));
        for (const StagedFile& item : std::as_const(items))
            manifest.append(ManifestDraft::file(
                item.file.path, ServerLayout::urlOffset(item.file.path, item.md5), item.md5,
                request.separator));
        text = manifest.text();
        report.manifestChanged = !holds(manifestPath, text);
        lookAtNext();
    }

    /// Whoever has the next manifest has what is about to go live, or goes on with
    /// something else.
    void lookAtNext()
    {
        if (request.next || request.kind != Kind::Live || !QFile::exists(nextPath))
            return;
        const QString name = ServerLayout::nextManifestName();
        isNextDone = holds(nextPath, text);
        report.notes.append(
            isNextDone ? u"%1 says the same and is removed."_s.arg(name)
                       : u"%1 goes on for the players that the server gives it to; remove it to "
                         "give them this one."_s.arg(name));
    }

    static bool holds(const QString& path, const QByteArray& content)
    {
        QFile before(path);
        return before.open(QIODevice::ReadOnly) && before.size() == content.size()
            && before.readAll() == content;
    }

    void compare()
    {
        for (const StagedFile& item : std::as_const(items))
            compareItem(item);
        live = {};
        report.compared = true;
    }

    void compareItem(const StagedFile& item)
    {
        const auto before = published.constFind(item.file.path);
        const BuildReport::Item line{ item.file.path, item.file.size };
        const bool isNew = before == published.cend();
        report.traffic.add(line.size, !isNew && before->hash == item.md5);
        if (isNew) {
            report.added.append(line);
        } else if (before->hash != item.md5) {
            report.changed.append(line);
        } else if (!item.inPlace && before->serverPath == item.serverPath(request.kind)) {
            report.repaired.append(line);
        } else {
            ++report.unchanged;
        }
    }

    void publish()
    {
        placeAll();
        if (!steps.succeeded()
            || (request.flush && !steps.attempt(FileWork::flushFileSystem(request.server))))
            return;
        // True whether or not the manifest goes live.
        remember();
        // What follows needs room, and of the files only pruning wants to know more.
        if (!request.prune)
            items = {};
        if (report.manifestChanged || request.renew)
            steps.attempt(publishManifest());
        if (isNextDone && steps.succeeded())
            steps.attempt(FileWork::remove(nextPath));
    }

    void placeAll()
    {
        StagedFile* const first = items.data();
        std::atomic_bool failed = false;
        Parallel::run(request.threads, items.size(), [&](qsizetype i, int) {
            if (failed)
                return;
            first[i].problem = place(first[i], i);
            failed = failed || first[i].problem;
        });
        for (const StagedFile& item : std::as_const(items))
            steps.attempt(item.problem);
    }

    /// Moves a copy to its place, where no live manifest leads yet. What is right is
    /// left alone: another admin may own it, and its date means nothing to launchers.
    Problem place(StagedFile& item, qsizetype number) const
    {
        if (item.inPlace || item.isPlaced)
            return std::nullopt;
        const QString copy = Staging::copyOf(stagingFolder, item.copiedBy, number);
        const QString target = onServer(item.serverPath(request.kind));
        Problem problem = inOrder(
            [&] { return FileWork::createFolder(target.left(target.lastIndexOf(u'/'))); },
            [&] { return FileWork::replace(copy, target); });
        item.served = FileFingerprint::of(target);
        return problem;
    }

    Problem publishManifest()
    {
        const ManifestExchange exchange{
            .kind = request.kind,
            .name = QFileInfo(manifestPath).fileName(),
            .text = std::exchange(text, {}),
            .note = PublicationNote::of(u"build"_s, request.message, clock.now()),
            .flush = request.flush,
            .isPublication = report.manifestChanged && !request.next,
        };
        return exchangeManifest(served, exchange, clock, [&exchange](const QString& path) {
            return ManifestDraft::misreading(exchange.text, path);
        });
    }

    void remember()
    {
        const QDateTime now = QDateTime::currentDateTimeUtc();
        for (const StagedFile& item : std::as_const(items)) {
            if (item.file.fingerprint.isSettled(now))
                cache.remember(
                    request.source + u'/' + item.file.path, item.file.fingerprint, item.md5);
            // Nobody else writes here, so what has just been placed is known.
            cache.remember(onServer(item.serverPath(request.kind)), item.served, item.md5);
        }
        cache.save();
    }

    void prune()
    {
        const QSet<QString> named = keptFiles();
        QDirIterator files(
            kindFolder, QDir::Files | QDir::Hidden | QDir::System, QDirIterator::Subdirectories);
        while (files.hasNext()) {
            const QFileInfo info = files.nextFileInfo();
            const QString path = info.filePath().sliced(request.server.size() + 1);
            if (!named.contains(path))
                pruneFile(info, path);
        }
        std::sort(report.pruned.begin(), report.pruned.end(), [](const auto& a, const auto& b) {
            return a.path < b.path;
        });
        tellWhatPruningEnds();
        if (!request.dryRun)
            removeEmptyFolders(kindFolder);
    }

    /// What the latest publications name, the new one included, which a dry run has
    /// not noted yet, and what is to be the next one.
    QSet<QString> keptFiles() const
    {
        QSet<QString> named;
        for (const StagedFile& item : items)
            named.insert(item.serverPath(request.kind));
        if (request.kind == Kind::Live) {
            const Publication next = readPublication(nextPath, request.kind);
            for (const PublishedFile& file : next.files)
                named.insert(file.serverPath);
        }
        const bool isNoted = !request.dryRun || !report.manifestChanged;
        const QList<Publication> kept
            = History(request.server, request.kind).latest(request.keep - (isNoted ? 0 : 1));
        for (const Publication& publication : kept) {
            for (const PublishedFile& file : publication.files)
                named.insert(file.serverPath);
        }
        return named;
    }

    /// Which publications the admin can no longer go back to.
    void tellWhatPruningEnds()
    {
        QSet<QString> gone;
        for (const BuildReport::Item& item : std::as_const(report.pruned))
            gone.insert(item.path);
        const History history(request.server, request.kind);
        const QList<HistoryEntry> entries = history.entries();
        for (const HistoryEntry& entry : entries) {
            const Publication former = readPublication(entry.manifestPath, request.kind);
            const bool ends = std::any_of(
                former.files.cbegin(), former.files.cend(),
                [&](const PublishedFile& file) { return gone.contains(file.serverPath); });
            if (ends)
                report.unreachable.append(entry.number);
        }
    }

    void pruneFile(const QFileInfo& info, const QString& path)
    {
        const qint64 size = info.size();
        if (request.dryRun || steps.attempt(FileWork::remove(info.filePath())))
            report.pruned.append({ path, size });
    }

    static void removeEmptyFolders(const QString& folder)
    {
        const QFileInfoList below = QDir(folder).entryInfoList(
            QDir::Dirs | QDir::Hidden | QDir::NoSymLinks | QDir::NoDotAndDotDot);
        for (const QFileInfo& info : below) {
            removeEmptyFolders(info.filePath());
            QDir().rmdir(info.filePath()); // refuses what is not empty
        }
    }

    QString onServer(const QString& path) const
    {
        return served.path(path);
    }

    const BuildRequest& request;
    Clock& clock;
    BuildReport& report;
    FirstProblem steps;
    ServedFolder served;
    QString kindFolder;
    QString stagingFolder;
    QString livePath;
    QString nextPath;
    QString manifestPath;
    bool isNextDone = false;
    HashCache cache;
    SourceTree source;
    RemovalPlan removals;
    Publication live;
    const QHash<QString, PublishedFile>& published = live.files;
    QList<StagedFile> items;
    QByteArray text;
};

} // namespace

ExitCode build(const BuildRequest& request, Clock& clock, BuildReport& report)
{
    return Build(request, clock, report).run();
}

} // namespace Publisher
