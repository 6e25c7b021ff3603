#include "app/constants.h"
#include "core/settingshandler.h"
#include "core/signalboolhelperclass.h"
#include "publisher/check/rehearsal.h"
#include "tests/publisher/check/randompublication.h"
#include "tests/support/applicationfolder.h"
#include "tests/support/httpsserver.h"
#include "tests/support/logcapture.h"
#include "tests/support/realmsini.h"
#include "tests/support/stderrcapture.h"
#include "tests/support/testmain.h"
#include "tests/update/updatefixture.h"
#include "update/updatingprocedures.h"

#include <QDir>
#include <QDirIterator>
#include <QFile>
#include <QFileInfo>
#include <QPointer>
#include <QSet>
#include <QSignalSpy>
#include <QStandardPaths>

#include <optional>

using namespace TestSupport;
using namespace Publisher;

namespace {

constexpr int seedsPerRow = 25;

using Disk = QMap<QString, QString>;

/// What comes of a start: the disk, and the addresses that are fetched.
struct Result {
    Disk disk;
    QStringList fetched;
};

/// How the update runs of a start follow each other.
enum class Course { OneRun, OneAfterTheOther, SideBySide };

/// One line a path, for messages that show the difference only.
QStringList difference(const Disk& really, const Disk& foretold)
{
    QStringList lines;
    const auto compare = [&](const Disk& one, const Disk& other, const QString& mark) {
        for (auto it = one.cbegin(); it != one.cend(); ++it) {
            if (!other.contains(it.key()) || other.value(it.key()) != it.value())
                lines.append(mark + it.key() + ' ' + it.value());
        }
    };
    compare(really, foretold, "really:   ");
    compare(foretold, really, "foretold: ");
    return lines;
}

void createFolder(const QString& path)
{
    // What is a file already stays one.
    QDir().mkpath(path);
}

void createFile(const QString& path, const QByteArray& content)
{
    QDir().mkpath(QFileInfo(path).path());
    QFile file(path);
    if (file.open(QIODevice::WriteOnly))
        file.write(content);
}

/// As the downloader leaves the answer of a server.
void deliver(const PatchDownloadItem& item, const QByteArray& body)
{
    const QString target = item.getTargetFolder() + '/' + item.getFileName();
    QFile temporary(target + "-new");
    if (body.isEmpty() || !temporary.open(QIODevice::WriteOnly))
        return;
    temporary.write(body);
    temporary.close();
    QFile::remove(target);
    QFile::rename(temporary.fileName(), target);
}

} // namespace

/// What the rehearsal foretells is what the launcher does: both work on the same
/// made-up manifests and disks, and then the two disks are the same to the last
/// file, on the whole throw-away machine.
class tst_Agreement : public QObject {
    Q_OBJECT

private slots:
    void initTestCase()
    {
        ApplicationFolder::clear();
        const QStringList entries = topLevel();
        machine = QSet<QString>(entries.cbegin(), entries.cend());
        machine.remove("home");
    }

    void init()
    {
        clearDisk();
    }

    /// The made-up cases are worth something: everything that can come of an
    /// effect comes of it again and again.
    void casesCoverEverything()
    {
        QMap<QString, int> seen;
        for (int seed = 0; seed < 30 * seedsPerRow; ++seed) {
            const RandomPublication publication(static_cast<unsigned>(seed));
            layOut(publication);
            RehearsalTree tree = treeOf(disk());
            const QList<Effect> effects = rehearsal(publication).run(tree);
            for (const Effect& effect : effects)
                ++seen[caseOf(effect)];
        }
        for (const QString& wanted : everyCase())
            QVERIFY2(
                seen.value(wanted) >= 10,
                qPrintable(QString("%1: %2 times").arg(wanted).arg(seen.value(wanted))));
    }

    void updateCode_data()
    {
        QTest::addColumn<int>("firstSeed");
        QTest::addColumn<Course>("course");
        addRows("one run", 0, 16, Course::OneRun);
        addRows("one run after the other", 10'000, 6, Course::OneAfterTheOther);
        addRows("two runs side by side", 20'000, 6, Course::SideBySide);
    }

    void updateCode()
    {
        QFETCH(int, firstSeed);
        QFETCH(Course, course);
        for (int seed = firstSeed; seed < firstSeed + seedsPerRow; ++seed) {
            const RandomPublication publication(static_cast<unsigned>(seed));
            compareRuns(
                publication, seed, [&] { return runCode(publication, course); }, course);
            if (QTest::currentTestFailed())
                return;
        }
    }

    void wholeRunsWithDownloads_data()
    {
        QTest::addColumn<int>("firstSeed");
        for (int row = 0; row < 4; ++row)
            QTest::addRow("two runs, seeds from %d", 30'000 + row * seedsPerRow)
                << 30'000 + row * seedsPerRow;
    }

    void wholeRunsWithDownloads()
    {
        QFETCH(int, firstSeed);
        HttpsServer server;
        server.listen();
        for (int seed = firstSeed; seed < firstSeed + seedsPerRow; ++seed) {
            const RandomPublication publication(static_cast<unsigned>(seed));
            server.answerAnythingElse([&](const HttpRequest& request) {
                return publication.served.contains(request.path)
                    ? HttpAnswer::ok(publication.served.value(request.path))
                    : HttpAnswer::status(404, "no such file");
            });
            const auto start = []() -> std::optional<QStringList> {
                runStart();
                return std::nullopt;
            };
            compareRuns(publication, seed, start, Course::SideBySide);
            if (QTest::currentTestFailed())
                return;
        }
    }

private:
    static void addRows(const char* name, int firstSeed, int count, Course course)
    {
        for (int row = 0; row < count; ++row) {
            const int seed = firstSeed + row * seedsPerRow;
            QTest::addRow("%s, seeds from %d", name, seed) << seed << course;
        }
    }

    static QStringList topLevel()
    {
        return QDir("/").entryList(
            QDir::AllEntries | QDir::Hidden | QDir::System | QDir::NoDotAndDotDot);
    }

    void clearDisk() const
    {
        ApplicationFolder::clear();
        const QStringList entries = topLevel();
        for (const QString& name : entries) {
            if (machine.contains(name) || name == "home")
                continue;
            if (!QFile::remove('/' + name))
                QDir('/' + name).removeRecursively();
        }
    }

    /// Everything that is not the machine's own, with the digest of each file.
    Disk disk() const
    {
        Disk found;
        const QStringList entries = topLevel();
        for (const QString& name : entries) {
            if (!machine.contains(name))
                take('/' + name, found);
        }
        const QString settings = ApplicationFolder::path("Settings");
        found.removeIf([&](const auto& entry) { return entry.key().startsWith(settings); });
        return found;
    }

    static void take(const QString& path, Disk& found)
    {
        // Some toolkits keep a cache of their own.
        static const QString toolkits
            = QStandardPaths::writableLocation(QStandardPaths::GenericCacheLocation);
        if (path == QCoreApplication::applicationFilePath() || path == toolkits)
            return;
        if (!QFileInfo(path).isDir()) {
            found.insert(path, md5(readFile(path)));
            return;
        }
        found.insert(path, QString());
        QDirIterator entries(
            path, QDir::AllEntries | QDir::Hidden | QDir::System | QDir::NoDotAndDotDot);
        while (entries.hasNext())
            take(entries.next(), found);
    }

    void layOut(const RandomPublication& publication) const
    {
        clearDisk();
        QList<RealmEntry> entries;
        for (const RandomRealm& realm : publication.realms)
            entries.append({ .name = "Halden",
                             .path = realm.clientPath.toUtf8(),
                             .testRealm = realm.testRealm ? "true" : "false" });
        writeRealmsIni(realmsIniWith(entries, publication.developer ? "dev=true\n" : ""));
        if (!publication.live.isEmpty())
            UpdateFixture::writeManifest("patch.ini", publication.live);
        if (!publication.test.isEmpty())
            UpdateFixture::writeManifest("patchTest.ini", publication.test);
        for (const QString& path : publication.folders)
            createFolder(path);
        for (auto file = publication.files.cbegin(); file != publication.files.cend(); ++file)
            createFile(file.key(), file.value());
    }

    template <typename Run>
    void compareRuns(const RandomPublication& publication, int seed, const Run& run, Course course)
    {
        layOut(publication);
        const Result foretold = foretell(publication, disk(), course);
        std::optional<QStringList> fetched;
        {
            const LogCapture log;
            const StderrCapture complaints;
            fetched = run();
        }
        if (fetched)
            QCOMPARE(*fetched, foretold.fetched);
        const QStringList different = difference(disk(), foretold.disk);
        QVERIFY2(
            different.isEmpty(),
            qPrintable(QString("seed %1\n%2\npatch.ini:\n%3\npatchTest.ini:\n%4")
                           .arg(seed)
                           .arg(
                               different.join('\n'), publication.live.join('\n'),
                               publication.test.join('\n'))));
    }

    static QString caseOf(const Effect& effect)
    {
        static const QStringList phases{ "reconcile", "download", "install" };
        static const QStringList actions{ "fetch",         "cache folder", "remove file",
                                          "remove folder", "file",         "folder" };
        static const QStringList outcomes{ "nothing", "created", "overwritten", "deleted",
                                           "failed" };
        return phases.at(static_cast<int>(effect.phase)) + ' '
            + actions.at(static_cast<int>(effect.action)) + ' '
            + outcomes.at(static_cast<int>(effect.outcome)) + (effect.fromRoot ? " root" : "");
    }

    static QStringList everyCase()
    {
        return { "reconcile cache folder created",
                 "reconcile cache folder nothing",
                 "reconcile cache folder failed",
                 "reconcile remove file deleted",
                 "reconcile remove file deleted root",
                 "reconcile remove folder deleted",
                 "reconcile remove folder deleted root",
                 "download fetch created",
                 "download fetch overwritten",
                 "download fetch failed",
                 "install file created",
                 "install file overwritten",
                 "install file deleted",
                 "install file failed",
                 "install folder created",
                 "install folder nothing",
                 "install folder failed",
                 "install remove file deleted",
                 "install remove file deleted root",
                 "install remove folder deleted",
                 "install remove folder deleted root",
                 "install remove folder nothing" };
    }

    static RehearsalTree treeOf(const Disk& before)
    {
        RehearsalTree tree('/');
        for (auto entry = before.cbegin(); entry != before.cend(); ++entry) {
            if (entry.value().isNull())
                tree.makePath(entry.key());
            else
                tree.writeFile(entry.key(), entry.value());
        }
        tree.makePath(ApplicationFolder::path());
        return tree;
    }

    static Result foretell(const RandomPublication& publication, const Disk& before, Course course)
    {
        RehearsalTree tree = treeOf(before);
        Rehearsal first = rehearsal(publication);
        Rehearsal second = rehearsal(publication);
        const QStringList fetched = play(first, second, tree, course);
        return { tree.entries(), fetched };
    }

    static Rehearsal rehearsal(const RandomPublication& publication)
    {
        RehearsedPlayer player;
        player.cacheFolder = SettingsHandler::getClientDataStoragePath();
        player.baseUrl = livePatchBaseUrl;
        player.developer = publication.developer;
        for (const RandomRealm& realm : publication.realms)
            player.realms.append({ realm.clientPath, realm.testRealm });
        const auto read = [](const QStringList& rows, const QString& name) {
            return rows.isEmpty()
                ? std::nullopt
                : std::optional(ManifestContent::read(UpdateFixture::settingsPath(name), '/', 5));
        };
        return { player, read(publication.live, "patch.ini"),
                 read(publication.test, "patchTest.ini"),
                 [&publication](const QUrl& url) -> std::optional<QString> {
                     const QByteArray body
                         = publication.served.value(url.path(QUrl::FullyEncoded).toUtf8());
                     return body.isEmpty() ? std::nullopt : std::optional(md5(body));
                 } };
    }

    /// Side by side, a run whose queue is empty installs before the other one
    /// has begun.
    static QStringList play(Rehearsal& first, Rehearsal& second, RehearsalTree& tree, Course course)
    {
        QList<Effect> effects;
        if (course != Course::SideBySide) {
            effects = first.run(tree);
            if (course == Course::OneAfterTheOther)
                effects += second.run(tree);
            return addresses(effects);
        }
        first.reconcile(tree);
        const bool firstWaits = first.hasDownloads();
        if (!firstWaits)
            first.install(tree);
        second.reconcile(tree);
        effects = first.download(tree) + second.download(tree);
        if (firstWaits)
            first.install(tree);
        second.install(tree);
        return addresses(effects);
    }

    static QStringList addresses(const QList<Effect>& effects)
    {
        QStringList found;
        for (const Effect& effect : effects) {
            if (effect.action == Action::FetchFile)
                found.append(effect.source);
        }
        return found;
    }

    /// The launcher's code phase by phase, without a server.
    static QStringList runCode(const RandomPublication& publication, Course course)
    {
        if (course == Course::SideBySide) {
            const auto first = reconcile(publication);
            if (first.isEmpty())
                install();
            QStringList fetched = deliverAll(publication, first + reconcile(publication));
            if (!first.isEmpty())
                install();
            install();
            return fetched;
        }
        QStringList fetched;
        for (int run = 0; run < (course == Course::OneRun ? 1 : 2); ++run) {
            fetched += deliverAll(publication, reconcile(publication));
            install();
        }
        return fetched;
    }

    static QList<PatchDownloadItem> reconcile(const RandomPublication& publication)
    {
        UpdatingProcedures procedures(nullptr);
        QList<PatchDownloadItem> live;
        QList<PatchDownloadItem> test;
        procedures.reconcilePatchIni(livePatchBaseUrl, "patch.ini", live, "live");
        if (publication.developer)
            procedures.reconcilePatchIni(testPatchBaseUrl, "patchTest.ini", test, "test");
        return live + test;
    }

    /// Returns the addresses in the order of the queue.
    static QStringList
    deliverAll(const RandomPublication& publication, const QList<PatchDownloadItem>& queue)
    {
        QStringList fetched;
        for (const PatchDownloadItem& item : queue) {
            fetched.append(item.getUrl().toString());
            deliver(
                item, publication.served.value(item.getUrl().path(QUrl::FullyEncoded).toUtf8()));
        }
        return fetched;
    }

    static void install()
    {
        UpdatingProcedures(nullptr).copyPatchedFilesIntoClient();
    }

    /// Two whole runs, as the main window starts them, with real downloads.
    static void runStart()
    {
        QList<QPointer<UpdatingProcedures>> runs;
        for (int i = 0; i < 2; ++i) {
            runs.append(new UpdatingProcedures(nullptr));
            runs.last()->clientUpdate();
        }
        QTRY_VERIFY2_WITH_TIMEOUT(!runs.at(0) && !runs.at(1), "an update run does not end", 30'000);
    }

    /// Names at the root that were there before any test.
    QSet<QString> machine;
};

HALDEN_TEST_MAIN(tst_Agreement)
#include "tst_agreement.moc"
