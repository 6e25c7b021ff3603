#include "tests/support/applicationfolder.h"
#include "tests/support/diskfaults.h"
#include "tests/support/logcapture.h"
#include "tests/support/testmain.h"
#include "tests/update/updatefixture.h"
#include "update/updatingprocedures.h"

#include <QDir>
#include <QFileInfo>
#include <QSignalSpy>

using namespace TestSupport;
using namespace UpdateFixture;

namespace {

QString client(const QString& relativePath = QString())
{
    return ApplicationFolder::path("client" + relativePath);
}

/// One installation, without a window: no download starts.
class Installation {
public:
    Installation()
    {
        LogCapture log;
        UpdatingProcedures run(nullptr);
        QSignalSpy completed(&run, &UpdatingProcedures::clientUpdateComplete);
        run.copyPatchedFilesIntoClient();
        completions = completed.size();
        lines = withSlashes(log.lines());
    }

    /// The log behind its opening line.
    QStringList linesOfEntries() const
    {
        return lines.mid(1);
    }

    qsizetype completions = 0;
    QStringList lines;
};

QStringList
deletionLines(const QString& name, const QString& folder, const QString& target, bool deleted)
{
    return { QString("found  \"%1\"  in  \"%2\"").arg(name, folder),
             QString("combined path+filename:  \"%1\"").arg(target),
             QString("result of deletion:  %1").arg(deleted ? "true" : "false") };
}

/// What a successful copy is logged as.
QString copiedLine(const QString& name, const QString& folder)
{
    return QString("could not write file  \"%1\"  into  \"%2\"").arg(name, folder);
}

/// What a failed copy is logged as.
QString failedLine(const QString& name, const QString& folder)
{
    return QString("copy of file   \"%1\"  into  \"%2\" succeded").arg(name, folder);
}

QString closingLine(int n, const QString& pathOffset = "Data/")
{
    return QString("%1   true   false   \"%2\"").arg(n).arg(pathOffset);
}

void writeSingleFileManifest(const QString& manifestName = "patch.ini")
{
    writeManifest(manifestName, QStringList{ "numberOfFiles=1", "file1=a.mpq" });
}

/// A player with a client, and one file in the cache that goes there.
void placeOneFile(const QByteArray& inTheCache = "new")
{
    addRealm(client());
    if (!inTheCache.isNull())
        writeFile(cachePath("live/Data/a.mpq"), inTheCache);
    writeSingleFileManifest();
}

/// What an installation over that file logs when the client has something there.
QStringList linesOverTheOneFile(bool deleted, bool copied)
{
    const QString folder = client("/Data/");
    return deletionLines("a.mpq", folder, folder + "/a.mpq", deleted)
        + QStringList{ copied ? copiedLine("a.mpq", folder) : failedLine("a.mpq", folder),
                       closingLine(1) };
}

} // namespace

class tst_Installation : public QObject {
    Q_OBJECT

private slots:
    void init()
    {
        ApplicationFolder::clear();
    }

    void cleanup()
    {
        QDir("/Data").removeRecursively();
    }

    void withoutRealmsNothingIsInstalled()
    {
        writeSingleFileManifest();
        const Installation run;
        QCOMPARE(run.lines, QStringList({ "now copy Data into Client" }));
        QCOMPARE(run.completions, 1);
    }

    void withoutManifestNothingIsInstalled()
    {
        addRealm(client());
        addRealm(client("2"), true);
        const Installation run;
        QCOMPARE(run.lines, QStringList({ "now copy Data into Client" }));
        QCOMPARE(run.completions, 1);
        QVERIFY(!QFileInfo::exists(client()));
    }

    void aNewFileIsCopied()
    {
        placeOneFile();
        QVERIFY(QDir().mkpath(client("/Data")));
        const Installation run;
        QCOMPARE(
            run.lines,
            QStringList({ "now copy Data into Client", copiedLine("a.mpq", client("/Data/")),
                          closingLine(1) }));
        QCOMPARE(readFile(client("/Data/a.mpq")), "new");
        QCOMPARE(readFile(cachePath("live/Data/a.mpq")), "new");
        QCOMPARE(run.completions, 1);
    }

    void anExistingFileIsDeletedAndReplaced()
    {
        addRealm(client());
        writeFile(client("/Data/deDE/a.mpq"), "old and longer");
        writeFile(cachePath("live/Data/deDE/a.mpq"), "new");
        writeManifest(
            "patch.ini",
            QStringList{ "numberOfFiles=1", "file1=a.mpq", "file1-pathOffset=Data/deDE" });
        const Installation run;
        const QString folder = client("/Data/deDE");
        QCOMPARE(
            run.linesOfEntries(),
            deletionLines("a.mpq", folder, folder + "/a.mpq", true)
                + QStringList({ copiedLine("a.mpq", folder), closingLine(1, "Data/deDE") }));
        QCOMPARE(readFile(client("/Data/deDE/a.mpq")), "new");
    }

    void aMissingSourceLeavesTheClientWithoutTheFile()
    {
        placeOneFile(QByteArray());
        writeFile(client("/Data/a.mpq"), "old");
        const Installation run;
        QCOMPARE(run.linesOfEntries(), linesOverTheOneFile(true, false));
        QVERIFY(!QFileInfo::exists(client("/Data/a.mpq")));
        QCOMPARE(run.completions, 1);
    }

    void aClientFolderThatIsGoneStaysGone()
    {
        placeOneFile();
        const Installation run;
        QCOMPARE(
            run.linesOfEntries(),
            QStringList({ failedLine("a.mpq", client("/Data/")), closingLine(1) }));
        QVERIFY2(!QFileInfo::exists(client()), "copying makes no folders");
        QCOMPARE(run.completions, 1);
    }

    void aReadOnlyClientKeepsItsFile()
    {
        placeOneFile();
        writeFile(client("/Data/a.mpq"), "old");
        const UnremovableFile unremovable(client("/Data/a.mpq"));
        const Installation run;
        QCOMPARE(run.linesOfEntries(), linesOverTheOneFile(false, false));
        QCOMPARE(readFile(client("/Data/a.mpq")), "old");
        QCOMPARE(run.completions, 1);
    }

    void aFolderInPlaceOfTheFileStays()
    {
        placeOneFile();
        writeFile(client("/Data/a.mpq/inside"), "kept");
        const Installation run;
        QCOMPARE(run.linesOfEntries(), linesOverTheOneFile(false, false));
        QCOMPARE(readFile(client("/Data/a.mpq/inside")), "kept");
    }

    void entriesAreInstalledInTheOrderOfTheirNumbers()
    {
        addRealm(client());
        QVERIFY(QDir().mkpath(client("/Data")));
        for (const char* name : { "one", "two", "three" })
            writeFile(cachePath(QString("live/Data/") + name), name);
        writeManifest(
            "patch.ini", QStringList{ "file3=three", "file2=two", "file1=one", "numberOfFiles=3" });
        const Installation run;
        const QString folder = client("/Data/");
        QCOMPARE(
            run.linesOfEntries(),
            QStringList({ copiedLine("one", folder), closingLine(1), copiedLine("two", folder),
                          closingLine(2), copiedLine("three", folder), closingLine(3) }));
    }

    void entriesPastTheNumberAreNotInstalled()
    {
        addRealm(client());
        QVERIFY(QDir().mkpath(client("/Data")));
        writeFile(cachePath("live/Data/b.mpq"), "new");
        writeManifest("patch.ini", QStringList{ "numberOfFiles=1", "file1=a.mpq", "file2=b.mpq" });
        const Installation run;
        QVERIFY(!QFileInfo::exists(client("/Data/b.mpq")));
    }

    void foldersAreMadeInTheClient_data()
    {
        QTest::addColumn<QString>("offset");
        QTest::addColumn<QString>("made");
        QTest::newRow("separator behind the offset") << "Data/"
                                                     << "/Data/AddOns";
        QTest::newRow("missing parents") << "Data/deDE/new"
                                         << "/Data/deDE/new/AddOns";
        QTest::newRow("no offset") << ""
                                   << "/AddOns";
    }

    void foldersAreMadeInTheClient()
    {
        QFETCH(QString, offset);
        QFETCH(QString, made);
        addRealm(client());
        writeManifest(
            "patch.ini",
            QStringList{ "numberOfFiles=1", "file1=AddOns", "file1-dirOnly=true",
                         "file1-pathOffset=" + offset });
        const Installation run;
        QCOMPARE(
            run.linesOfEntries(),
            QStringList({ "Case2: Folder create",
                          QString("realm:  1 \"%1\" '%2' \"%3/\" \"AddOns\"")
                              .arg(client(), QString(QDir::separator()), offset) }));
        QVERIFY(QFileInfo(client(made)).isDir());
    }

    void theFolderLineNamesTheRealm()
    {
        addRealm(client("1"));
        addRealm(client("2"));
        writeManifest(
            "patch.ini", QStringList{ "numberOfFiles=1", "file1=AddOns", "file1-dirOnly=true" });
        const QStringList lines = Installation().lines.filter("realm: ");
        QCOMPARE(lines.size(), 2);
        QVERIFY2(lines.at(0).startsWith("realm:  1 "), qPrintable(lines.at(0)));
        QVERIFY2(lines.at(1).startsWith("realm:  2 "), qPrintable(lines.at(1)));
    }

    void aFileRemovalTakesTheNameNumberedLikeTheRealm()
    {
        addRealm(client());
        for (const char* file : { "/one/first", "/one/second", "/two/first", "/two/second" })
            writeFile(client(file), "content");
        writeManifest(
            "patch.ini",
            QStringList{ "numberOfFiles=2", "file1=first", "file1-pathOffset=one",
                         "file1-dirOnly=true", "file2=second", "file2-pathOffset=two",
                         "file2-save=false" });
        const Installation run;
        QCOMPARE(run.lines.constLast(), "Case3: File remove");
        QVERIFY2(!QFileInfo::exists(client("/two/first")), "name of 1, offset of 2");
        QVERIFY(QFileInfo::exists(client("/two/second")));
        QVERIFY(QFileInfo::exists(client("/one/first")));
        QVERIFY(QFileInfo::exists(client("/one/second")));
    }

    void aFolderRemovalTakesTheNameNumberedLikeTheRealmAndNoKind()
    {
        addRealm(client());
        for (const char* folder : { "/two/first", "/two/second", "/live/two/first" })
            writeFile(client(folder) + "/deep/file", "content");
        writeManifest(
            "patch.ini",
            QStringList{ "numberOfFiles=2", "file1=first", "file1-dirOnly=true", "file2=second",
                         "file2-pathOffset=two", "file2-save=false", "file2-dirOnly=true" });
        const Installation run;
        QCOMPARE(run.lines.constLast(), "Case1: Folder remove");
        QVERIFY2(!QFileInfo::exists(client("/two/first")), "gone with its contents");
        QVERIFY(QFileInfo::exists(client("/two/second/deep/file")));
        QVERIFY2(
            QFileInfo::exists(client("/live/two/first/deep/file")), "the kind is no folder here");
    }

    void theSecondRealmTakesTheSecondName()
    {
        addRealm(client("1"));
        addRealm(client("2"));
        for (const char* file :
             { "1/Data/first", "1/Data/second", "2/Data/first", "2/Data/second" })
            writeFile(client(file), "content");
        writeManifest(
            "patch.ini",
            QStringList{ "numberOfFiles=1", "file1=first", "file1-save=false", "file2=second" });
        const Installation run;
        QCOMPARE(run.linesOfEntries(), QStringList(2, "Case3: File remove"));
        QVERIFY(!QFileInfo::exists(client("1/Data/first")));
        QVERIFY(QFileInfo::exists(client("1/Data/second")));
        QVERIFY(QFileInfo::exists(client("2/Data/first")));
        QVERIFY(!QFileInfo::exists(client("2/Data/second")));
    }

    void aFolderRemovalWithoutThatNameEmptiesTheWholeOffset()
    {
        addRealm(client());
        writeFile(client("/Data/a"), "content");
        writeFile(client("/Data/deDE/b"), "content");
        writeFile(client("/Interface/c"), "content");
        writeManifest(
            "patch.ini",
            QStringList{ "numberOfFiles=1", "file2=AddOns", "file1-save=false",
                         "file1-dirOnly=true" });
        const Installation run;
        QVERIFY(!QFileInfo::exists(client("/Data/a")));
        QVERIFY(!QFileInfo::exists(client("/Data/deDE")));
        QVERIFY(QFileInfo::exists(client("/Interface/c")));
    }

    void aFileRemovalWithoutThatNameRemovesNothing()
    {
        addRealm(client());
        writeFile(client("/Data/a"), "kept");
        writeManifest("patch.ini", QStringList{ "numberOfFiles=1", "file1-save=false" });
        const Installation run;
        QCOMPARE(run.linesOfEntries(), QStringList({ "Case3: File remove" }));
        QCOMPARE(readFile(client("/Data/a")), "kept");
    }

    void failedRemovalsAreNotReported()
    {
        addRealm(client());
        writeManifest(
            "patch.ini",
            QStringList{ "numberOfFiles=2", "file1=gone", "file1-save=false", "file2-save=false",
                         "file2-dirOnly=true" });
        const Installation run;
        QCOMPARE(
            run.linesOfEntries(), QStringList({ "Case3: File remove", "Case1: Folder remove" }));
        QCOMPARE(run.completions, 1);
    }

    void theCacheIsNotTouchedByRemovals()
    {
        addRealm(client());
        writeFile(cachePath("live/Data/old"), "cached");
        writeManifest(
            "patch.ini", QStringList{ "numberOfFiles=1", "file1=old", "file1-save=false" });
        const Installation run;
        QCOMPARE(readFile(cachePath("live/Data/old")), "cached");
    }

    void everyRealmGetsTheManifestOfItsKind_data()
    {
        QTest::addColumn<bool>("developerMode");
        QTest::newRow("developer mode off") << false;
        QTest::newRow("developer mode on") << true;
    }

    void everyRealmGetsTheManifestOfItsKind()
    {
        QFETCH(bool, developerMode);
        addRealm(client("1"));
        addRealm(client("2"), true);
        setDeveloperMode(developerMode);
        QVERIFY(QDir().mkpath(client("1/Data")));
        QVERIFY(QDir().mkpath(client("2/Data")));
        for (const char* file : { "live/Data/a", "live/Data/b", "test/Data/a", "test/Data/b" })
            writeFile(cachePath(file), file);
        writeManifest("patch.ini", QStringList{ "numberOfFiles=1", "file1=a" });
        writeManifest("patchTest.ini", QStringList{ "numberOfFiles=1", "file1=b" });
        const Installation run;
        QCOMPARE(
            run.linesOfEntries(),
            QStringList({ copiedLine("a", client("1/Data/")), closingLine(1),
                          copiedLine("b", client("2/Data/")), closingLine(1) }));
        QCOMPARE(readFile(client("1/Data/a")), "live/Data/a");
        QCOMPARE(readFile(client("2/Data/b")), "test/Data/b");
        QCOMPARE(QDir(client("1/Data")).entryList(QDir::Files), QStringList({ "a" }));
        QCOMPARE(QDir(client("2/Data")).entryList(QDir::Files), QStringList({ "b" }));
        QCOMPARE(run.completions, 1);
    }

    void aTestRealmWithoutTestManifestIsPassedOver()
    {
        addRealm(client("1"), true);
        addRealm(client("2"));
        QVERIFY(QDir().mkpath(client("1/Data")));
        QVERIFY(QDir().mkpath(client("2/Data")));
        writeFile(cachePath("live/Data/a.mpq"), "new");
        writeSingleFileManifest();
        const Installation run;
        QVERIFY(!QFileInfo::exists(client("1/Data/a.mpq")));
        QCOMPARE(readFile(client("2/Data/a.mpq")), "new");
    }

    void oneClientServedByTwoRealmsIsInstalledTwice()
    {
        addRealm(client());
        placeOneFile();
        QVERIFY(QDir().mkpath(client("/Data")));
        const Installation run;
        QCOMPARE(
            run.linesOfEntries(),
            QStringList({ copiedLine("a.mpq", client("/Data/")), closingLine(1) })
                + linesOverTheOneFile(true, true));
        QCOMPARE(readFile(client("/Data/a.mpq")), "new");
    }

    void anEmptyClientPathInstallsBelowTheRoot()
    {
        addRealm(QString());
        QVERIFY(QDir().mkpath("/Data"));
        writeFile(cachePath("live/Data/a.mpq"), "new");
        writeSingleFileManifest();
        const Installation run;
        QCOMPARE(
            run.linesOfEntries(), QStringList({ copiedLine("a.mpq", "/Data/"), closingLine(1) }));
        QCOMPARE(readFile("/Data/a.mpq"), "new");
    }

    void theNumberOfRealmsIsReadAgainAfterEachRealm()
    {
        // The first realm's client lies where the store is, so that its own
        // manifest takes the store away before the second realm comes up.
        addRealm(ApplicationFolder::path());
        addRealm(client());
        writeManifest(
            "patch.ini",
            QStringList{ "numberOfFiles=1", "file1=realms.ini", "file1-pathOffset=Settings",
                         "file1-save=false" });
        const Installation run;
        QVERIFY(!QFileInfo::exists(settingsPath("realms.ini")));
        QCOMPARE(run.linesOfEntries(), QStringList({ "Case3: File remove" }));
        QCOMPARE(run.completions, 1);
    }

    void aManifestThatReplacesItselfIsWalkedAsItWasOpened()
    {
        addRealm(ApplicationFolder::path());
        writeFile(cachePath("live/Settings/patch.ini"), "numberOfFiles=3\nfile1=patch.ini\n");
        writeManifest(
            "patch.ini",
            QStringList{ "numberOfFiles=2", "file1=patch.ini", "file1-pathOffset=Settings",
                         "file2=b", "file2-dirOnly=1" });
        const Installation run;
        QCOMPARE(run.lines.filter("Case2: Folder create").size(), 1);
        QCOMPARE(readFile(settingsPath("patch.ini")), "numberOfFiles=3\nfile1=patch.ini\n");
    }

    void theCompletionComesLast()
    {
        placeOneFile();
        QVERIFY(QDir().mkpath(client("/Data")));
        LogCapture log;
        UpdatingProcedures run(nullptr);
        QStringList linesBefore;
        connect(&run, &UpdatingProcedures::clientUpdateComplete, this, [&] {
            linesBefore = withSlashes(log.lines());
        });
        run.copyPatchedFilesIntoClient();
        QCOMPARE(linesBefore.value(linesBefore.size() - 1), closingLine(1));
        QCOMPARE(withSlashes(log.lines()), linesBefore);
    }

#ifndef Q_OS_WIN // a read-only file cannot be removed there
    void permissionsAndContentOfAReadOnlyCopyDoNotStopTheNextRun()
    {
        addRealm(client());
        QVERIFY(QDir().mkpath(client("/Data")));
        writeFile(cachePath("live/Data/a.mpq"), "first");
        QVERIFY(QFile::setPermissions(cachePath("live/Data/a.mpq"), QFileDevice::ReadOwner));
        writeSingleFileManifest();
        const Installation first;
        const Installation second;
        QCOMPARE(second.lines.filter("result of deletion:  true").size(), 1);
        QCOMPARE(readFile(client("/Data/a.mpq")), "first");
    }
#endif
};

HALDEN_TEST_MAIN(tst_Installation)
#include "tst_installation.moc"
