#include "publisher/build/republication.h"

#include "publisher/build/history.h"
#include "publisher/build/manifestdraft.h"
#include "publisher/build/manifestexchange.h"
#include "publisher/build/precheck.h"
#include "publisher/build/servedfolder.h"
#include "publisher/build/sourcetree.h"
#include "publisher/common/clock.h"
#include "publisher/common/dates.h"
#include "publisher/common/filework.h"
#include "publisher/common/hashcache.h"
#include "publisher/common/manifesttext.h"
#include "publisher/common/parallel.h"

#include <QFile>

#include <optional>

using namespace Qt::StringLiterals;

namespace Publisher {

namespace {

class Republication {
public:
    Republication(
        const RepublicationRequest& republicationRequest, Clock& time, RepublicationReport& target)
        : request(republicationRequest)
        , clock(time)
        , report(target)
        , steps(target.error)
        , served(request.server)
        , livePath(onServer(ServerLayout::manifestName(request.kind)))
        , cache(HashCache::forTarget(onServer(ServerLayout::kindFolder(request.fromKind))))
    {
    }

    ExitCode run()
    {
        if (!request.dryRun && !steps.attempt(takeServedFolder()))
            return ExitCode::InputOutput;
        readManifests();
        compare();
        judge();
        findFiles();
        if (report.refusals.isEmpty() && steps.succeeded() && !request.dryRun)
            publish();
        if (!steps.succeeded())
            return ExitCode::InputOutput;
        return report.refusals.isEmpty() ? ExitCode::Fine : ExitCode::Findings;
    }

private:
    /// A file of the manifest on its way to its place.
    struct Item {
        PublishedFile file;
        /// Below the server folder; where the file lies now.
        QString found;
        qint64 size = 0;
        /// What keeps it back, if anything does.
        QList<Finding> refusals = {};
        Problem problem = {};
    };

    QString onServer(const QString& path) const
    {
        return served.path(path);
    }

    Problem takeServedFolder()
    {
        return inOrder(
            [&] { return served.take(); },
            [&] { return FileWork::createFolder(served.stagingFolder()); });
    }

    void readManifests()
    {
        QFile manifest(request.manifestPath);
        if (manifest.open(QIODevice::ReadOnly))
            text = manifest.readAll();
        QFile live(livePath);
        report.manifestChanged = !live.open(QIODevice::ReadOnly) || live.readAll() != text;
        wanted = readPublication(request.manifestPath, request.kind);
        before = readPublication(livePath, request.kind);
        if (wanted.files.isEmpty())
            report.refusals.append({ FindingId::SourceEmpty, request.manifestPath, 0,
                                     u"It names no file to publish."_s,
                                     u"Publish the source folder with build."_s });
    }

    bool isUnchanged(const PublishedFile& file) const
    {
        const auto last = before.files.constFind(file.path);
        return last != before.files.cend() && last->hash == file.hash;
    }

    void compare()
    {
        for (const PublishedFile& file : std::as_const(wanted.files)) {
            if (!before.files.contains(file.path))
                report.added.append(file.path);
            else if (!isUnchanged(file))
                report.changed.append(file.path);
            else
                ++report.unchanged;
        }
        for (const PublishedFile& file : std::as_const(before.files)) {
            if (!wanted.files.contains(file.path))
                report.removed.append(file.path);
        }
        for (QStringList* paths : { &report.added, &report.changed, &report.removed })
            paths->sort();
    }

    /// The paths of the manifest, as if they were laid out in a source folder.
    SourceTree laidOut() const
    {
        SourceTree tree;
        for (const PublishedFile& file : std::as_const(wanted.files))
            tree.files.append({ file.path });
        tree.folders = wanted.folders.values();
        return tree;
    }

    void judge()
    {
        report.refusals
            += Precheck::changedKinds(laidOut(), before, History(request.server, request.kind));
        report.refusals += Precheck::manyRemoved(
            report.removed.size(), before.files.size(), request.confirmedDrops);
        report.refusals += Dates::ahead(livePath, clock);
    }

    bool isRight(const QString& path, const QString& md5) const
    {
        const FileFingerprint fingerprint = FileFingerprint::of(path);
        if (!fingerprint.isFile())
            return false;
        const QString known = request.rehash ? QString() : cache.find(path, fingerprint);
        return (known.isEmpty() ? FileWork::hash(path, nullptr).md5 : known) == md5;
    }

    void find(Item& item) const
    {
        const QString prefix = ServerLayout::kindFolder(request.kind) + u'/';
        const QString source = ServerLayout::kindFolder(request.fromKind) + u'/'
            + item.file.serverPath.mid(prefix.size());
        const QStringList places{ item.file.serverPath, source };
        for (const QString& place : places) {
            if (item.file.serverPath.startsWith(prefix)
                && isRight(onServer(place), item.file.hash)) {
                item.found = place;
                item.size = FileFingerprint::of(onServer(place)).size;
                return;
            }
        }
        const bool isThere = QFile::exists(onServer(source));
        const FindingId id = isThere ? FindingId::FileWrong : FindingId::FileMissing;
        const QString what = isThere ? u"%1 has another content than the manifest says."_s
                                     : u"%1 is not on the server; it may have been pruned."_s;
        item.refusals.append({ id, item.file.path, 0, what.arg(source),
                               u"Publish the source folder of that time with build."_s });
    }

    /// Looks for every file of the manifest, as `check` would.
    void findFiles()
    {
        QList<PublishedFile> files = wanted.files.values();
        std::sort(files.begin(), files.end(), [](const auto& one, const auto& other) {
            return one.path < other.path;
        });
        items.resize(files.size());
        for (qsizetype i = 0; i < files.size(); ++i)
            items[i].file = files.at(i);
        Item* const first = items.data();
        Parallel::run(request.threads, items.size(), [&](qsizetype i, int) { find(first[i]); });
        for (const Item& item : std::as_const(items)) {
            if (item.refusals.isEmpty())
                report.traffic.add(item.size, isUnchanged(item.file));
            else
                report.refusals += item.refusals;
        }
    }

    /// Where the file is at another kind's address alone it gets this one as well.
    Problem place(const Item& item, qsizetype number) const
    {
        if (item.found == item.file.serverPath)
            return std::nullopt;
        const QString target = onServer(item.file.serverPath);
        const QString ready = served.stagingFolder() + u'/' + QString::number(number);
        return inOrder(
            [&] { return FileWork::createFolder(target.left(target.lastIndexOf(u'/'))); },
            [&] { return FileWork::linkOrCopy(onServer(item.found), ready, item.file.hash); },
            [&] { return FileWork::replace(ready, target); });
    }

    void publish()
    {
        Item* const first = items.data();
        Parallel::run(request.threads, items.size(), [&](qsizetype i, int) {
            first[i].problem = place(first[i], i);
        });
        for (const Item& item : std::as_const(items))
            steps.attempt(item.problem);
        if (steps.succeeded() && request.flush)
            steps.attempt(FileWork::flushFileSystem(request.server));
        if (steps.succeeded() && report.manifestChanged)
            steps.attempt(exchange());
    }

    Problem exchange()
    {
        const ManifestExchange wantedExchange{
            .kind = request.kind,
            .name = ServerLayout::manifestName(request.kind),
            .text = text,
            .note = PublicationNote::of(request.command, request.message, clock.now()),
            .flush = request.flush,
        };
        return exchangeManifest(served, wantedExchange, clock, [this](const QString& path) {
            return differenceTo(path);
        });
    }

    /// A manifest that was written by hand means what it has meant to launchers.
    Problem differenceTo(const QString& path) const
    {
        const bool isOwn = ManifestText::read(text, [](const PatchManifestEntry&) {});
        return isOwn ? ManifestDraft::misreading(text, path) : Problem();
    }

    const RepublicationRequest& request;
    Clock& clock;
    RepublicationReport& report;
    FirstProblem steps;
    ServedFolder served;
    QString livePath;
    HashCache cache;
    QByteArray text;
    Publication wanted;
    Publication before;
    QList<Item> items;
};

} // namespace

ExitCode republish(const RepublicationRequest& request, Clock& clock, RepublicationReport& report)
{
    return Republication(request, clock, report).run();
}

} // namespace Publisher
