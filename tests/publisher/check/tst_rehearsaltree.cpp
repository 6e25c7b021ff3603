#include "publisher/check/rehearsaltree.h"
#include "tests/support/testmain.h"

#include <QTest>

using namespace Publisher;

using Entries = QMap<QString, QString>;

namespace {

RehearsalTree tree(QChar separator)
{
    RehearsalTree made(separator);
    made.makePath("/client/Data/deDE");
    made.writeFile("/client/Data/a.mpq", "A");
    made.writeFile("/client/wow.exe", "W");
    return made;
}

} // namespace

/// The disk on which update runs are rehearsed. For the separator '/' the real
/// disk is held against it elsewhere; Windows' rules are asserted here.
class tst_RehearsalTree : public QObject {
    Q_OBJECT

private slots:
    void windowsPaths_data()
    {
        QTest::addColumn<QString>("path");
        QTest::addColumn<bool>("exists");
        QTest::newRow("backslashes") << R"(\client\Data\a.mpq)" << true;
        QTest::newRow("mixed and doubled") << R"(\client/Data\\a.mpq)" << true;
        QTest::newRow("another case") << R"(\CLIENT\data\A.MPQ)" << true;
        QTest::newRow("umlauts' case") << R"(\client\ä)" << false;
        QTest::newRow("dots and blanks at the end") << R"(\client.\Data \a.mpq. )" << true;
        QTest::newRow("detour over a missing folder") << R"(\client\none\..\wow.exe)" << true;
        QTest::newRow("above the root") << R"(\..\client\wow.exe)" << true;
        QTest::newRow("file as a folder") << R"(\client\wow.exe\)" << false;
        QTest::newRow("missing") << R"(\client\b)" << false;
    }

    void windowsPaths()
    {
        QFETCH(QString, path);
        QTEST(tree('\\').exists(path), "exists");
    }

    void otherPaths_data()
    {
        QTest::addColumn<QString>("path");
        QTest::addColumn<bool>("exists");
        QTest::newRow("slashes") << "/client//Data/./a.mpq" << true;
        QTest::newRow("backslash is a letter") << R"(/client\Data)" << false;
        QTest::newRow("another case") << "/client/data" << false;
        QTest::newRow("detour") << "/client/Data/../wow.exe" << true;
        QTest::newRow("detour over a missing folder") << "/client/none/../wow.exe" << false;
        QTest::newRow("detour over a file") << "/client/wow.exe/../Data" << false;
    }

    void otherPaths()
    {
        QFETCH(QString, path);
        QTEST(tree('/').exists(path), "exists");
    }

    void removingTheRootEmptiesIt()
    {
        RehearsalTree made = tree('\\');
        const QStringList gone = made.removeFolder(R"(\\)");
        QCOMPARE(gone.size(), 5);
        QCOMPARE(made.entries(), Entries());
        QVERIFY(made.makeFolder(R"(\new)"));
    }

    void removingAFolderNamesWhatIsGone()
    {
        RehearsalTree made = tree('/');
        QCOMPARE(
            made.removeFolder("/client/Data/."),
            QStringList({ "/client/Data/deDE", "/client/Data/a.mpq", "/client/Data" }));
        QCOMPARE(made.entries(), Entries({ { "/client", QString() }, { "/client/wow.exe", "W" } }));
    }

    void impossibleNames_data()
    {
        QTest::addColumn<QString>("path");
        QTest::newRow("too long a name") << "/client/" + QString(256, 'x');
        QTest::newRow("too long a path") << "/client/" + QString("x/").repeated(2'100);
        QTest::newRow("null character") << QString("/client/a") + QChar(0) + 'b';
        QTest::newRow("below a file") << "/client/wow.exe/x";
    }

    void impossibleNames()
    {
        QFETCH(QString, path);
        RehearsalTree made = tree('/');
        const Entries before = made.entries();
        QVERIFY(!made.makePath(path));
        QVERIFY(!made.writeFile(path, "X"));
        QCOMPARE(made.entries(), before);
    }

    void filesAndFoldersDoNotReplaceEachOther()
    {
        RehearsalTree made = tree('/');
        QVERIFY(!made.writeFile("/client/Data", "X"));
        QVERIFY(!made.removeFile("/client/Data"));
        QVERIFY(made.removeFolder("/client/wow.exe").isEmpty());
        QVERIFY(!made.makeFolder("/client/wow.exe"));
        QVERIFY(made.writeFile("/client/wow.exe", "V"));
        QCOMPARE(made.digest("/client/wow.exe").value_or("none"), QString("V"));
    }
};

HALDEN_TEST_MAIN(tst_RehearsalTree)
#include "tst_rehearsaltree.moc"
