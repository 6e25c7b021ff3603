#include "publisher/build.h"

#include "publisher/clock.h"
#include "publisher/filework.h"
#include "publisher/hashcache.h"
#include "publisher/manifestdraft.h"
#include "publisher/names.h"
#include "publisher/publication.h"
#include "publisher/sourcetree.h"
#include "publisher/staging.h"
#include "publisher/treelock.h"

#include <QDir>
#include <QDirIterator>
#include <QFile>
#include <QFileInfo>
#include <QSet>

#include <algorithm>
#include <memory>

using namespace Qt::StringLiterals;

namespace {

class Build {
public:
    Build(const BuildRequest& buildRequest, Clock& time, BuildReport& target)
        : request(buildRequest)
        , clock(time)
        , report(target)
        , patchFolder(request.server + "/wow-client-patch"_L1)
        , kindFolder(patchFolder + u'/' + request.kind)
        , stagingFolder(patchFolder + "/.halden-publish"_L1)
        , manifestPath(request.server + u'/' + manifestNameOf(request.kind))
        , cache(HashCache::forTarget(kindFolder))
    {
    }

    ExitCode run()
    {
        source = SourceTree::scan(request.source);
        const RemovalPlan removals = RemovalPlan::make(request.removals, source, request.separator);
        report.refusals = source.refusals + removals.refusals;
        if (!report.refusals.isEmpty())
            return ExitCode::Findings;
        if (!takeServerFolder())
            return ExitCode::InputOutput;
        published = readPublication(manifestPath, request.kind);
        items = Staging(request, published, cache, stagingFolder).run(source.files);
        for (const StagedFile& item : items)
            attempt(item.error);
        if (succeeded()) {
            draft(removals);
            compare();
            if (!request.dryRun)
                publish();
            if (request.prune && succeeded())
                prune();
        }
        release();
        return succeeded() ? ExitCode::Fine : ExitCode::InputOutput;
    }

private:
    bool succeeded() const
    {
        return report.error.isEmpty();
    }

    /// Keeps the first failure. Returns whether this step went well.
    bool attempt(const QString& error)
    {
        if (succeeded())
            report.error = error;
        return error.isEmpty();
    }

    bool takeServerFolder()
    {
        if (request.dryRun)
            return true;
        if (!attempt(FileWork::createFolder(kindFolder)))
            return false;
        lock = std::make_unique<TreeLock>(request.server);
        if (!lock->isHeld())
            return attempt(u"another halden-publish is at work in %1"_s.arg(request.server));
        // What a run that was cut off has left.
        QDir(stagingFolder).removeRecursively();
        return attempt(FileWork::createFolder(stagingFolder));
    }

    void release()
    {
        if (!request.dryRun)
            QDir(stagingFolder).removeRecursively();
        lock.reset();
    }

    void draft(const RemovalPlan& removals)
    {
        manifest.entries = removals.entries;
        for (const QString& folder : source.folders)
            manifest.entries.append(ManifestDraft::folder(folder, request.separator));
        for (const StagedFile& item : items)
            manifest.entries.append(ManifestDraft::file(
                item.file.path, urlOffsetOf(serverFolderOf(item.file, item.md5)), item.md5,
                request.separator));
    }

    void compare()
    {
        QHash<QString, PublishedFile> gone = published;
        for (const StagedFile& item : items) {
            compareItem(item);
            gone.remove(item.file.path);
            report.bytesInAll += item.file.size;
        }
        for (const PublishedFile& file : gone)
            report.removed.append({ file.path, QFileInfo(onServer(file.serverPath)).size() });
        std::sort(report.removed.begin(), report.removed.end(), [](const auto& a, const auto& b) {
            return a.path < b.path;
        });
        QFile live(manifestPath);
        report.manifestChanged
            = !live.open(QIODevice::ReadOnly) || live.readAll() != manifest.toIni();
    }

    void compareItem(const StagedFile& item)
    {
        const auto before = published.find(item.file.path);
        const BuildReport::Item line{ item.file.path, item.file.size };
        if (before == published.end()) {
            report.added.append(line);
            report.bytesToUpdate += line.size;
        } else if (before->hash != item.md5) {
            report.changed.append(line);
            report.bytesToUpdate += line.size;
        } else if (!item.inPlace && before->serverPath == item.serverPath) {
            report.repaired.append(line);
        } else {
            ++report.unchanged;
        }
    }

    void publish()
    {
        for (const StagedFile& item : items) {
            if (!attempt(place(item)))
                return;
        }
        if (request.flush && !attempt(FileWork::flushFileSystem(request.server)))
            return;
        if (report.manifestChanged && !attempt(publishManifest()))
            return;
        remember();
    }

    /// Moves a copy to its place, where no live manifest leads yet.
    QString place(const StagedFile& item) const
    {
        const QString target = onServer(item.serverPath);
        const auto before = published.find(item.file.path);
        const bool wasLive = before != published.end() && before->serverPath == item.serverPath;
        if (item.inPlace && wasLive)
            return {};
        const QDateTime date = dateFor(item);
        if (item.inPlace)
            return FileWork::dateOf(target) == date ? QString() : FileWork::setDate(target, date);
        QString error = FileWork::createFolder(QFileInfo(target).path());
        if (error.isEmpty())
            error = FileWork::setDate(item.copy, date);
        if (error.isEmpty())
            error = FileWork::replace(item.copy, target);
        return error;
    }

    /// A file that only moves keeps its date. Any other is newer than what it
    /// replaces, be that the same path's last content or an older copy that an
    /// earlier publication left at the very address.
    QDateTime dateFor(const StagedFile& item) const
    {
        const QString target = onServer(item.serverPath);
        QDateTime replaced = FileWork::dateOf(target);
        const auto before = published.find(item.file.path);
        if (before != published.end()) {
            QDateTime last = FileWork::dateOf(onServer(before->serverPath));
            if (before->hash == item.md5 && before->serverPath != item.serverPath && last.isValid())
                return last;
            replaced = replaced.isValid() ? std::max(replaced, last) : last;
        }
        return clock.newerThan(replaced);
    }

    QString publishManifest() const
    {
        const QString fresh
            = request.server + "/."_L1 + manifestNameOf(request.kind) + ".halden-publish"_L1;
        QString error = FileWork::write(fresh, manifest.toIni());
        if (error.isEmpty() && request.flush)
            error = FileWork::flush(fresh);
        if (error.isEmpty())
            error = FileWork::setDate(fresh, clock.nextAfter(FileWork::dateOf(manifestPath)));
        // Read with its own date: files of one name, size and date are one file
        // to the settings layer.
        if (error.isEmpty())
            error = manifest.differenceTo(fresh);
        if (error.isEmpty())
            error = FileWork::replace(fresh, manifestPath);
        if (!error.isEmpty())
            QFile::remove(fresh);
        else if (request.flush)
            error = FileWork::flushFileSystem(request.server);
        return error;
    }

    void remember()
    {
        for (const StagedFile& item : items) {
            const QString path = request.source + u'/' + item.file.path;
            if (FileWork::isSettled(path))
                cache.remember(path, item.stamp, item.md5);
            // Nobody else writes here, so what has just been placed is known.
            const QString target = onServer(item.serverPath);
            cache.remember(target, FileWork::stamp(target), item.md5);
        }
        cache.save();
    }

    void prune()
    {
        QSet<QString> named;
        for (const StagedFile& item : items)
            named.insert(item.serverPath);
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
        if (!request.dryRun)
            removeEmptyFolders(kindFolder);
    }

    void pruneFile(const QFileInfo& info, const QString& path)
    {
        const qint64 size = info.size();
        if (request.dryRun || QFile::remove(info.filePath()))
            report.pruned.append({ path, size });
        else
            attempt(u"%1 cannot be removed"_s.arg(info.filePath()));
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
        return request.server + u'/' + path;
    }

    const BuildRequest& request;
    Clock& clock;
    BuildReport& report;
    QString patchFolder;
    QString kindFolder;
    QString stagingFolder;
    QString manifestPath;
    HashCache cache;
    std::unique_ptr<TreeLock> lock;
    SourceTree source;
    QHash<QString, PublishedFile> published;
    QList<StagedFile> items;
    ManifestDraft manifest;
};

} // namespace

ExitCode build(const BuildRequest& request, Clock& clock, BuildReport& report)
{
    return Build(request, clock, report).run();
}
