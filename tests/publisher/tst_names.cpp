#include "publisher/common/names.h"
#include "tests/support/testmain.h"
#include "update/patchlayout.h"

#include <QRegularExpression>

using namespace Publisher;

namespace {

/// The path that a server sees of the address that the launcher builds.
QString askedFor(const QString& urlOffset, const QString& name)
{
    const PatchManifestEntry entry{
        .save = true, .dirOnly = false, .pathOffset = "", .urlOffset = urlOffset, .name = name
    };
    QByteArray request
        = PatchLayout::patchFile("https://host/", "live", entry)
              .toEncoded(QUrl::RemoveScheme | QUrl::RemoveAuthority | QUrl::RemoveFragment);
    if (request.contains('?'))
        request.truncate(request.indexOf('?'));
    return QString::fromUtf8(QByteArray::fromPercentEncoding(request));
}

} // namespace

class tst_Names : public QObject {
    Q_OBJECT

private slots:
    void init()
    {
        QTest::failOnWarning(QRegularExpression(".*"));
    }

    void windowsHolds_data()
    {
        QTest::addColumn<QString>("name");
        QTest::addColumn<QString>("fault");
        const QString character = "character";
        const QString end = "ends in";
        const QString device = "device";
        QTest::newRow("plain") << "patch-x.mpq"
                               << "";
        QTest::newRow("blanks and umlauts") << "Größe der Welt.MPQ"
                                            << "";
        QTest::newRow("comma, semicolon, at, hash, percent") << "a,b;c@d#e%f"
                                                             << "";
        QTest::newRow("leading full stop") << ".config"
                                           << "";
        QTest::newRow("begins like a device") << "console.txt"
                                              << "";
        QTest::newRow("device with a number of two digits") << "com10"
                                                            << "";
        for (const char c : { '<', '>', ':', '"', '|', '?', '*', '\\', '/', '\x01', '\x1f' })
            QTest::addRow("character %d", c) << QString("a%1b").arg(QChar(c)) << character;
        QTest::newRow("trailing full stop") << "folder." << end;
        QTest::newRow("trailing blank") << "folder " << end;
        for (const char* name : { "con", "PRN", "aux.txt", "nul.tar.gz", "COM1", "lpt9.mpq", "com0",
                                  "CONIN$", "nul .txt", "com\u00b2" })
            QTest::addRow("device %s", name) << name << device;
        QTest::newRow("251 characters") << QString(251, 'x') << "";
        QTest::newRow("252 characters") << QString(252, 'x') << "too long";
    }

    void windowsHolds()
    {
        QFETCH(QString, name);
        QFETCH(QString, fault);
        const QString why = whyNotOnWindows(name);
        QCOMPARE(why.isEmpty(), fault.isEmpty());
        QVERIFY2(why.contains(fault), qPrintable(why));
    }

    void junk_data()
    {
        QTest::addColumn<QString>("name");
        QTest::addColumn<bool>("junk");
        QTest::newRow("thumbnails") << "Thumbs.db" << true;
        QTest::newRow("thumbnails in lower case") << "thumbs.db" << true;
        QTest::newRow("folder view") << "desktop.ini" << true;
        QTest::newRow("other folder view") << ".DS_Store" << true;
        QTest::newRow("running download") << "patch-x.mpq-new" << true;
        QTest::newRow("patch file") << "patch-new.mpq" << false;
        QTest::newRow("ini file") << "my-desktop.ini" << false;
    }

    void junk()
    {
        QFETCH(QString, name);
        QTEST(isJunk(name), "junk");
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
        const QString expected = "wow-client-patch/live/" + folder + "/x.mpq";
        QCOMPARE(askedFor(urlOffsetOf(folder), "x.mpq"), '/' + expected);
        QCOMPARE(pathOnServer("live", urlOffsetOf(folder), "x.mpq"), expected);
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
        const QString expected = "wow-client-patch/live/Data/" + name;
        QCOMPARE(askedFor("Data", name) == '/' + expected, reaches);
        QCOMPARE(pathOnServer("live", "Data", name) == expected, reaches);
    }

    void addressWithAnotherPartHasNoPath()
    {
        QCOMPARE(pathOnServer("live", "Data", "patch#2.mpq"), QString());
        QCOMPARE(pathOnServer("live", "Data", "patch?2.mpq"), QString());
    }

    void manifestNames()
    {
        QCOMPARE(manifestNameOf("live"), QString("patch.ini"));
        QCOMPARE(manifestNameOf("test"), QString("patchTest.ini"));
    }
};

HALDEN_TEST_MAIN(tst_Names)
#include "tst_names.moc"
