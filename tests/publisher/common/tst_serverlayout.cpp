#include "publisher/common/serverlayout.h"
#include "tests/support/testmain.h"
#include "update/patchlayout.h"

#include <QRegularExpression>

using namespace Publisher;

namespace {

const QString hash = QString(32, 'a');

PatchManifestEntry entryOf(const QString& urlOffset, const QString& name)
{
    return {
        .save = true, .dirOnly = false, .pathOffset = "", .urlOffset = urlOffset, .name = name
    };
}

/// The path that a server sees of the address that the launcher builds.
QString askedFor(const PatchManifestEntry& entry)
{
    QByteArray request
        = PatchLayout::patchFile("https://host/", "live", entry)
              .toEncoded(QUrl::RemoveScheme | QUrl::RemoveAuthority | QUrl::RemoveFragment);
    if (request.contains('?'))
        request.truncate(request.indexOf('?'));
    return QString::fromUtf8(QByteArray::fromPercentEncoding(request));
}

} // namespace

class tst_ServerLayout : public QObject {
    Q_OBJECT

private slots:
    void init()
    {
        QTest::failOnWarning(QRegularExpression(".*"));
    }

    void wordsOfTheKinds()
    {
        for (const Kind kind : { Kind::Live, Kind::Test })
            QVERIFY(ServerLayout::kindOf(ServerLayout::word(kind)) == kind);
        for (const QString word : { "", "Live", "both" })
            QVERIFY(!ServerLayout::kindOf(word));
        QVERIFY(ServerLayout::other(Kind::Live) == Kind::Test);
        QVERIFY(ServerLayout::other(Kind::Test) == Kind::Live);
    }

    void manifestNames()
    {
        QCOMPARE(ServerLayout::manifestName(Kind::Live), QString("patch.ini"));
        QCOMPARE(ServerLayout::manifestName(Kind::Test), QString("patchTest.ini"));
    }

    void filePath()
    {
        QCOMPARE(
            ServerLayout::filePath(Kind::Live, "Data/deDE/a.mpq", hash),
            "wow-client-patch/live/Data/deDE/" + hash + "/a.mpq");
        QCOMPARE(
            ServerLayout::filePath(Kind::Test, "a.exe", hash),
            "wow-client-patch/test/" + hash + "/a.exe");
    }

    void folderReachesTheServer_data()
    {
        QTest::addColumn<QString>("folder");
        for (const char* folder :
             { "Data/deDE", "Interface/AddOns/Halden Karten", "Data/Übersicht", "a#b", "a?b",
               "100%", "a%20b", "a%2Fb", "a%23b?c#d", "a;b,c@d&e=f+g", "[a]{b}^`|" })
            QTest::newRow(folder) << folder;
    }

    void folderReachesTheServer()
    {
        QFETCH(QString, folder);
        const QString path = folder + "/x.mpq";
        const PatchManifestEntry entry = entryOf(ServerLayout::urlOffset(path, hash), "x.mpq");
        const QString expected = ServerLayout::filePath(Kind::Live, path, hash);
        QCOMPARE(askedFor(entry), '/' + expected);
        QCOMPARE(ServerLayout::askedPath(Kind::Live, entry), expected);
        QCOMPARE(ServerLayout::statedPath(Kind::Live, entry), expected);
    }

    void nameReachesTheServer_data()
    {
        QTest::addColumn<QString>("name");
        QTest::addColumn<bool>("reaches");
        for (const char* name :
             { "patch x.mpq", "Größe.MPQ", "a,b;c@d&e=f+g", "100% more.mpq", "[a]{b}^`.mpq", "@x" })
            QTest::newRow(name) << name << true;
        for (const char* name : { "patch#2.mpq", "patch?.mpq", "a%20b.mpq", "%41.mpq", "50%ab" })
            QTest::newRow(name) << name << false;
    }

    void nameReachesTheServer()
    {
        QFETCH(QString, name);
        QFETCH(bool, reaches);
        const PatchManifestEntry entry = entryOf("Data", name);
        const QString expected = "wow-client-patch/live/Data/" + name;
        QCOMPARE(askedFor(entry) == '/' + expected, reaches);
        QCOMPARE(ServerLayout::askedPath(Kind::Live, entry) == expected, reaches);
        QCOMPARE(ServerLayout::statedPath(Kind::Live, entry), reaches ? expected : QString());
    }

    /// What is asked for is always told where there is a request at all; what is
    /// stated only where the two agree.
    void oddEntries_data()
    {
        QTest::addColumn<QString>("urlOffset");
        QTest::addColumn<QString>("name");
        QTest::addColumn<QString>("asked");
        QTest::addColumn<QString>("stated");
        const auto row = [](const char* tag, const QString& urlOffset, const QString& name,
                            const QString& asked, const QString& stated) {
            const auto below = [](const QString& path) {
                return path.isEmpty() ? path : "wow-client-patch/live/" + path;
            };
            QTest::newRow(tag) << urlOffset << name << below(asked) << below(stated);
        };
        row("no offset", "", "a.mpq", "/a.mpq", "a.mpq");
        row("no name", "Data", "", "Data/", "Data");
        row("slash at the end", "Data/", "a", "Data//a", "Data/a");
        row("percents in the offset", "100%25", "a", "100%/a", "100%/a");
        row("percents in the name", "Data", "%41", "Data/A", "");
        row("lone percent", "Data", "100%", "Data/100%", "Data/100%");
        row("number sign", "Data", "a#b", "", "");
        row("question mark", "Data", "a?b", "", "");
        row("upwards", "Data/..", "a", "a", "");
        row("a lone dot", "./Data", "a", "Data/a", "Data/a");
        // Qt 6.4 takes such a folder out of an address, Qt 6.8 does not.
        const QUrl dotted("https://download.test/Data/.c/x");
        const bool isKept = dotted.adjusted(QUrl::NormalizePathSegments).path() == "/Data/.c/x";
        row("a folder of a dot and a character", "Data/.c", "x", isKept ? "Data/.c/x" : "Data//x",
            isKept ? "Data/.c/x" : "");
        row("backslash", "Data\\deDE", "a", "Data\\deDE/a", "");
    }

    void oddEntries()
    {
        QFETCH(QString, urlOffset);
        QFETCH(QString, name);
        const PatchManifestEntry entry = entryOf(urlOffset, name);
        QTEST(ServerLayout::askedPath(Kind::Live, entry), "asked");
        QTEST(ServerLayout::statedPath(Kind::Live, entry), "stated");
    }
};

HALDEN_TEST_MAIN(tst_ServerLayout)
#include "tst_serverlayout.moc"
