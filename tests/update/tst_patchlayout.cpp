#include "tests/support/applicationfolder.h"
#include "tests/support/testmain.h"
#include "update/patchlayout.h"

#include <QDir>
#include <QRegularExpression>

namespace {

const QString applicationFolder = TestSupport::sandboxApplicationFolder();
/// The platform's own separator, apart from the literal slashes.
const QString sep = QString(QDir::separator());
const PatchLayout
    layout(applicationFolder + sep + "Settings", applicationFolder + sep + "ClientDataStorage");

PatchManifestEntry
makeEntry(const QString& pathOffset, const QString& name, const QString& urlOffset = QString())
{
    return {
        .save = true,
        .dirOnly = false,
        .pathOffset = pathOffset,
        .urlOffset = urlOffset,
        .name = name,
    };
}

} // namespace

class tst_PatchLayout : public QObject {
    Q_OBJECT

private slots:
    void init()
    {
        QTest::failOnWarning(QRegularExpression(".*"));
    }

    void manifestsLieInTheSettingsFolder()
    {
        QCOMPARE(
            layout.manifest("patchTest.ini"),
            applicationFolder + sep + "Settings" + sep + "patchTest.ini");
    }

    void cacheKindFolder()
    {
        QCOMPARE(
            layout.cacheKindFolder("live"),
            applicationFolder + sep + "ClientDataStorage" + "/live");
    }

    void cachedFileFolder_data()
    {
        QTest::addColumn<QString>("offset");
        QTest::addColumn<QString>("tail");
        QTest::newRow("offset with a separator behind it") << "Data/"
                                                           << "/test/Data/";
        QTest::newRow("offset without one") << "Data/deDE"
                                            << "/test/Data/deDE";
        QTest::newRow("no offset") << ""
                                   << "/test/";
        QTest::newRow("doubled slashes stay") << "Data//deDE/"
                                              << "/test/Data//deDE/";
        QTest::newRow("steps upwards stay") << "../Data/"
                                            << "/test/../Data/";
        QTest::newRow("backslashes stay") << "Data\\"
                                          << "/test/Data\\";
    }

    void cachedFileFolder()
    {
        QFETCH(QString, offset);
        QFETCH(QString, tail);
        QCOMPARE(
            layout.cachedFileFolder("test", makeEntry(offset, "a.mpq")),
            applicationFolder + sep + "ClientDataStorage" + tail);
    }

    void cachedFolder()
    {
        QCOMPARE(
            layout.cachedFolder("live", makeEntry("Interface/", "AddOns")),
            applicationFolder + sep + "ClientDataStorage" + sep + "live" + sep + "Interface/" + sep
                + "AddOns");
    }

    void installFolder()
    {
        QCOMPARE(PatchLayout::installFolder("/client", makeEntry("Data/", "a")), "/client/Data/");
        QCOMPARE(PatchLayout::installFolder("", makeEntry("Data/", "a")), "/Data/");
    }

    void inClient_data()
    {
        QTest::addColumn<QString>("client");
        QTest::addColumn<QString>("offset");
        QTest::addColumn<QString>("name");
        QTest::addColumn<QString>("path");
        QTest::newRow("all given") << "/client"
                                   << "Data"
                                   << "a"
                                   << "/client" + sep + "Data" + sep + "a";
        QTest::newRow("separators are not merged") << "/client/"
                                                   << "Data/"
                                                   << "a"
                                                   << "/client/" + sep + "Data/" + sep + "a";
        QTest::newRow("no client starts at the root") << ""
                                                      << "Data"
                                                      << "a" << sep + "Data" + sep + "a";
        QTest::newRow("no name ends with the separator") << "/client"
                                                         << "Data"
                                                         << ""
                                                         << "/client" + sep + "Data" + sep;
        QTest::newRow("nothing at all") << ""
                                        << ""
                                        << "" << sep + sep;
    }

    void inClient()
    {
        QFETCH(QString, client);
        QFETCH(QString, offset);
        QFETCH(QString, name);
        QFETCH(QString, path);
        QCOMPARE(layout.inClient(client, offset, name), path);
    }

    void patchFile_data()
    {
        QTest::addColumn<QString>("urlOffset");
        QTest::addColumn<QString>("name");
        QTest::addColumn<QString>("tail");
        QTest::newRow("plain") << "v2/deDE"
                               << "a.mpq"
                               << "v2/deDE/a.mpq";
        QTest::newRow("an empty offset leaves a double slash") << ""
                                                               << "a.mpq"
                                                               << "/a.mpq";
        QTest::newRow("an offset with a slash behind it") << "v2/"
                                                          << "a.mpq"
                                                          << "v2//a.mpq";
        QTest::newRow("umlauts") << ""
                                 << "Größe.mpq"
                                 << "/Gr%C3%B6%C3%9Fe.mpq";
        QTest::newRow("blanks") << "new files"
                                << "a b.mpq"
                                << "new%20files/a%20b.mpq";
        QTest::newRow("encoded already") << ""
                                         << "a%20b.mpq"
                                         << "/a%20b.mpq";
        QTest::newRow("a lone percent sign is mended") << ""
                                                       << "100%.mpq"
                                                       << "/100%25.mpq";
        QTest::newRow("a number sign starts a fragment") << ""
                                                         << "a#b.mpq"
                                                         << "/a#b.mpq";
        QTest::newRow("a question mark starts a query") << ""
                                                        << "a?b.mpq"
                                                        << "/a?b.mpq";
        QTest::newRow("an empty name") << "v2"
                                       << ""
                                       << "v2/";
    }

    void patchFile()
    {
        QFETCH(QString, urlOffset);
        QFETCH(QString, name);
        QFETCH(QString, tail);
        const QUrl url = PatchLayout::patchFile(
            "https://download.tarnwick.example/", "live", makeEntry("Data/", name, urlOffset));
        QCOMPARE(
            url.toString(QUrl::FullyEncoded),
            "https://download.tarnwick.example/wow-client-patch/live/" + tail);
        QVERIFY2(url.isValid(), qPrintable(url.errorString()));
    }

    void marksOfTheUrlAreNoPartOfThePath()
    {
        const auto pathOf = [](const QString& name) {
            return PatchLayout::patchFile("https://host/", "test", makeEntry("Data/", name)).path();
        };
        QCOMPARE(pathOf("a#b.mpq"), "/wow-client-patch/test//a");
        QCOMPARE(pathOf("a?b.mpq"), "/wow-client-patch/test//a");
        QCOMPARE(pathOf("a&b.mpq"), "/wow-client-patch/test//a&b.mpq");
    }
};

HALDEN_TEST_MAIN(tst_PatchLayout)
#include "tst_patchlayout.moc"
