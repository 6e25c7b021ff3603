#include "publisher/build/sourcetree.h"
#include "tests/publisher/buildfixture.h"
#include "tests/support/applicationfolder.h"
#include "tests/support/testmain.h"

#include <QDir>
#include <QRegularExpression>
#include <QUrl>

#ifndef Q_OS_WIN
#include <cerrno>
#include <dirent.h>
#include <dlfcn.h>
#include <sys/stat.h>
#include <unistd.h>
#endif

using namespace TestSupport;
using namespace BuildFixture;
using namespace Publisher;

namespace {

QStringList filesOf(const SourceTree& tree)
{
    QStringList paths;
    for (const SourceFile& file : tree.files)
        paths.append(file.path);
    return paths;
}

#ifndef Q_OS_WIN
void makeLink(const QString& target, const QString& relativePath)
{
    if (!QFile::link(target, source(relativePath)))
        qFatal("cannot link %s", qPrintable(relativePath));
}
#endif

} // namespace

#ifndef Q_OS_WIN
/// After so many names reading a folder fails; -1 for never.
static int namesUntilFailure = -1;

/// Stands before the system's own.
extern "C" dirent* readdir(DIR* folder)
{
    static const auto real = reinterpret_cast<dirent* (*)(DIR*)>(dlsym(RTLD_NEXT, "readdir"));
    if (namesUntilFailure == 0) {
        errno = EIO;
        return nullptr;
    }
    if (namesUntilFailure > 0)
        --namesUntilFailure;
    return real(folder);
}
#endif

class tst_SourceTree : public QObject {
    Q_OBJECT

private slots:
    void init()
    {
        QTest::failOnWarning(QRegularExpression(".*"));
        ApplicationFolder::clear();
        QDir().mkpath(source());
    }

    void listsFoldersBeforeWhatIsInThem()
    {
        put("wow.cfg", "x");
        put("Data/deDE/b.mpq", "xy");
        put("Data/a.mpq", "x");
        put("Data-2/c.mpq", "x");
        QDir().mkpath(source("Empty/Inner"));
        const SourceTree tree = SourceTree::scan(source());
        QCOMPARE(
            tree.folders, QStringList({ "Data", "Data-2", "Data/deDE", "Empty", "Empty/Inner" }));
        QCOMPARE(
            filesOf(tree),
            QStringList({ "Data-2/c.mpq", "Data/a.mpq", "Data/deDE/b.mpq", "wow.cfg" }));
        QCOMPARE(tree.files.at(2).size, 2);
        QCOMPARE(idsOf(tree.refusals), QStringList());
    }

    void ignoresJunk()
    {
        for (const char* junk : { "Thumbs.db", "Data/desktop.ini", ".DS_Store", "Data/a.mpq-new" })
            put(junk, "x");
        put("Data/a.mpq", "x");
        put("Data/.hidden", "x");
        const SourceTree tree = SourceTree::scan(source());
        QCOMPARE(filesOf(tree), QStringList({ "Data/.hidden", "Data/a.mpq" }));
        QCOMPARE(
            tree.passedOver,
            QStringList({ ".DS_Store", "Data/a.mpq-new", "Data/desktop.ini", "Thumbs.db" }));
        QCOMPARE(idsOf(tree.refusals), QStringList());
    }

    void refusesAFile_data()
    {
        QTest::addColumn<QString>("path");
        QTest::addColumn<QByteArray>("content");
        QTest::addColumn<QString>("id");
        const QByteArray x = "x";
        QTest::newRow("hash in the name") << "Data/a#b.mpq" << x << "name-not-for-urls";
        QTest::newRow("percents in the name") << "a%20b.mpq" << x << "name-not-for-urls";
        QTest::newRow("percents after a folder's") << "a#b/100%.txt" << x << "name-not-for-urls";
        QTest::newRow("percents twice") << "50%/100%.txt" << x << "name-not-for-urls";
        // Qt 6.4 takes such a folder out of an address, Qt 6.8 does not.
        const QUrl dotted("https://download.test/Data/.c/x");
        if (dotted.adjusted(QUrl::NormalizePathSegments).path() != "/Data/.c/x")
            QTest::newRow("folder of a dot and a letter")
                << "Data/.c/x" << x << "name-not-for-urls";
#ifndef Q_OS_WIN // where there are no such files
        QTest::newRow("question mark") << "a?b.mpq" << x << "name-not-for-windows";
        QTest::newRow("backslash") << "a\\b.mpq" << x << "name-not-for-windows";
        QTest::newRow("device") << "Data/con.mpq" << x << "name-not-for-windows";
        QTest::newRow("device as folder") << "aux/a.mpq" << x << "name-not-for-windows";
        QTest::newRow("trailing blank of a folder") << "Data /a.mpq" << x << "name-not-for-windows";
#endif
        QTest::newRow("reserved") << "Halden-Vacant/a.mpq" << x << "name-reserved";
        QTest::newRow("no bytes") << "Data/a.mpq" << QByteArray() << "file-empty";
    }

    void refusesAFile()
    {
        QFETCH(QString, path);
        QFETCH(QByteArray, content);
        put("ordinary.mpq", "x");
        put(path, content);
        const SourceTree tree = SourceTree::scan(source());
        QTEST(idsOf(tree.refusals).join(' '), "id");
        QVERIFY2(
            path.startsWith(tree.refusals.at(0).subject), qPrintable(tree.refusals.at(0).subject));
        QVERIFY2(!reasonOf(tree.refusals.at(0)).contains("%37"), qPrintable(path));
    }

    void acceptsInAFolderWhatANameMayNotHave()
    {
        put("100%23 #1/a.mpq", "x");
        QCOMPARE(idsOf(SourceTree::scan(source()).refusals), QStringList());
    }

#ifndef Q_OS_WIN // every name is Unicode, and there are no pipes in folders
    void refusesANameThatIsNoUnicode()
    {
        put("ordinary.mpq", "x");
        const QByteArray path = QFile::encodeName(source()) + "/patch-\xff.mpq";
        QVERIFY(::mkfifo(path.constData(), 0600) == 0);
        const SourceTree tree = SourceTree::scan(source());
        // No later test could clear it away: the toolkit does not see it.
        QVERIFY(::unlink(path.constData()) == 0);
        QCOMPARE(idsOf(tree.refusals), QStringList("name-not-unicode"));
    }

    void refusesWhatIsNoFile()
    {
        put("ordinary.mpq", "x");
        QVERIFY(::mkfifo(QFile::encodeName(source("pipe")).constData(), 0600) == 0);
        QCOMPARE(idsOf(SourceTree::scan(source()).refusals), QStringList("not-a-file"));
    }
#endif

#ifndef Q_OS_WIN // no two names differ by that there
    void refusesNamesThatDifferInCase_data()
    {
        QTest::addColumn<QString>("one");
        QTest::addColumn<QString>("other");
        QTest::addColumn<QStringList>("refused");
        const QStringList refused{ "names-differ-in-case" };
        QTest::newRow("files") << "Data/Patch.mpq"
                               << "Data/patch.MPQ" << refused;
        QTest::newRow("folders") << "Data/a.mpq"
                                 << "data/b.mpq" << refused;
        QTest::newRow("file and folder") << "Data/a.mpq"
                                         << "DATA" << refused;
        QTest::newRow("umlauts") << "Über.mpq"
                                 << "über.mpq" << refused;
        QTest::newRow("in two folders") << "Data/a.mpq"
                                        << "Other/A.mpq" << QStringList();
    }

    void refusesNamesThatDifferInCase()
    {
        QFETCH(QString, one);
        QFETCH(QString, other);
        put(one, "x");
        put(other, "x");
        QTEST(idsOf(SourceTree::scan(source()).refusals), "refused");
    }
#endif

#ifndef Q_OS_WIN // a link is a file with another name there
    void followsLinksInside()
    {
        put("Data/a.mpq", "x");
        makeLink(source("Data/a.mpq"), "b.mpq");
        makeLink(source("Data"), "Copy");
        const SourceTree tree = SourceTree::scan(source());
        QCOMPARE(filesOf(tree), QStringList({ "Copy/a.mpq", "Data/a.mpq", "b.mpq" }));
        QCOMPARE(idsOf(tree.refusals), QStringList());
    }

    void refusesALink_data()
    {
        QTest::addColumn<QString>("target");
        QTest::addColumn<QString>("id");
        QTest::newRow("file outside") << "/etc/hosts"
                                      << "link-leads-out";
        QTest::newRow("folder outside") << "/etc"
                                        << "link-leads-out";
        QTest::newRow("folder whose name begins alike") << source() + "-2"
                                                        << "link-leads-out";
        QTest::newRow("nowhere") << source("missing") << "link-leads-out";
        QTest::newRow("folder above") << source() << "link-in-circles";
    }

    void refusesALink()
    {
        QFETCH(QString, target);
        put("ordinary.mpq", "x");
        writeFile(source() + "-2/a.mpq", "x");
        makeLink(target, "link");
        const SourceTree tree = SourceTree::scan(source());
        QTEST(idsOf(tree.refusals).join(' '), "id");
        QCOMPARE(tree.refusals.at(0).subject, QString("link"));
        QCOMPARE(filesOf(tree), QStringList("ordinary.mpq"));
    }
#endif

    void refusesAnEmptySource_data()
    {
        QTest::addColumn<QString>("onlyFile");
        QTest::newRow("nothing") << "";
        QTest::newRow("junk") << "Data/Thumbs.db";
    }

    void refusesAnEmptySource()
    {
        QFETCH(QString, onlyFile);
        if (!onlyFile.isEmpty())
            put(onlyFile, "x");
        QCOMPARE(idsOf(SourceTree::scan(source()).refusals), QStringList("source-empty"));
    }

#ifndef Q_OS_WIN // rights are no bits there
    /// Its files would count as removed, and be pruned from the server.
    void refusesAFolderThatCannotBeRead_data()
    {
        QTest::addColumn<int>("mode");
        QTest::addColumn<QString>("refused");
        QTest::newRow("neither read nor entered") << 0 << "folder-unreadable Interface/AddOns";
        QTest::newRow("not read") << 0300 << "folder-unreadable Interface/AddOns";
        QTest::newRow("not entered") << 0600 << "file-unreadable Interface/AddOns/a.lua";
    }

    void refusesAFolderThatCannotBeRead()
    {
        QFETCH(int, mode);
        put("ordinary.mpq", "x");
        put("Interface/AddOns/a.lua", "x");
        const QByteArray folder = QFile::encodeName(source("Interface/AddOns"));
        QVERIFY(::chmod(folder.constData(), static_cast<mode_t>(mode)) == 0);
        const SourceTree tree = SourceTree::scan(source());
        QVERIFY(::chmod(folder.constData(), 0700) == 0);
        QCOMPARE(tree.refusals.size(), 1);
        QTEST(tree.refusals.at(0).identifier() + ' ' + tree.refusals.at(0).subject, "refused");
        QVERIFY2(
            reasonOf(tree.refusals.at(0)).contains("Permission denied"),
            qPrintable(reasonOf(tree.refusals.at(0))));
    }

    /// A disk that dies gives some of the names and then an error.
    void refusesAFolderThatCannotBeReadToItsEnd()
    {
        for (const char* path : { "Data/a.mpq", "Data/b.mpq", "Data/c.mpq" })
            put(path, "x");
        namesUntilFailure = 2;
        const SourceTree tree = SourceTree::scan(source("Data"));
        namesUntilFailure = -1;
        QCOMPARE(idsOf(tree.refusals), QStringList("folder-unreadable"));
        QCOMPARE(tree.refusals.at(0).subject, QString("."));
        QVERIFY2(
            reasonOf(tree.refusals.at(0)).contains("Input/output error"),
            qPrintable(reasonOf(tree.refusals.at(0))));
    }
#endif

#ifndef Q_OS_WIN // there is no file of such a name there
    void tellsEverythingAtOnce()
    {
        put("con", "x");
        put("a.mpq", "");
        QCOMPARE(
            idsOf(SourceTree::scan(source()).refusals),
            QStringList({ "file-empty", "name-not-for-windows" }));
    }
#endif

    void reaches_data()
    {
        QTest::addColumn<QString>("path");
        QTest::addColumn<bool>("reached");
        QTest::newRow("file") << "Data/deDE/a.mpq" << true;
        QTest::newRow("file in other case") << "DATA/dede/A.mpq" << true;
        QTest::newRow("folder") << "Data/deDE" << true;
        QTest::newRow("folder above") << "Data" << true;
        QTest::newRow("sibling") << "Data/deDE/b.mpq" << false;
        QTest::newRow("begins alike") << "Data/de" << false;
    }

    void reaches()
    {
        QFETCH(QString, path);
        put("Data/deDE/a.mpq", "x");
        QTEST(SourceTree::scan(source()).reaches(path), "reached");
    }
};

HALDEN_TEST_MAIN(tst_SourceTree)
#include "tst_sourcetree.moc"
