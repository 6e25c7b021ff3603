#include "tests/publisher/buildfixture.h"
#include "tests/support/applicationfolder.h"
#include "tests/support/testmain.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QLibraryInfo>
#include <QProcess>
#include <QProcessEnvironment>
#include <QVersionNumber>

using namespace TestSupport;
using namespace BuildFixture;
using namespace Publisher;

/// What `check` finds in a tree besides manifests and patch files.
class tst_CheckServed : public QObject {
    Q_OBJECT

private slots:
    void init()
    {
        ApplicationFolder::clear();
        put("Data/a.mpq", "x");
        published();
        setDate(server("patch.ini"), QDateTime::currentDateTimeUtc().addDays(-1));
    }

    void findsWhatLocksTheWindow_data()
    {
        QTest::addColumn<QByteArray>("text");
        QTest::addColumn<bool>("locks");
        QTest::newRow("a greeting") << QByteArray("<h1>Willkommen</h1><p>Neuer Patch!") << false;
        QTest::newRow("a table") << QByteArray(
            "<table cellpadding=\"4\" width=\"100%\"><tr><td>a<td>b</table>")
                                 << false;
        // Qt 6.8 comes to an end with it.
        if (QLibraryInfo::version() < QVersionNumber(6, 8))
            QTest::newRow("nothing that ends")
                << QByteArray("<table cellpadding=\"1e9\"><tr><td>a</table>") << true;
        QTest::newRow("tables in tables")
            << QByteArray("<table><tr><td>").repeated(30) + "x" << true;
        QTest::newRow("many megabytes") << QByteArray("<p>Hallo <b>Welt").repeated(4 << 20) << true;
    }

    void findsWhatLocksTheWindow()
    {
        QFETCH(QByteArray, text);
        QFETCH(bool, locks);
        writeFile(server("launcher.info"), text);
        const QJsonObject json = check();
        QVERIFY(json["infoLaidOut"].toBool());
        QCOMPARE(found(json), locks ? QStringList("info-freezes launcher.info") : QStringList());
    }

    /// As on a server without the toolkit for windows.
    void layoutProgramWithoutItsLibraries()
    {
        writeFile(server("launcher.info"), "<p>Hallo");
        writeFile(ApplicationFolder::path("lib/libQt6Gui.so.6"), "none");
        QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
        environment.insert("LD_LIBRARY_PATH", ApplicationFolder::path("lib"));
        const QJsonObject json = check(environment);
        QCOMPARE(json["infoLaidOut"], QJsonValue(false));
        QCOMPARE(found(json), QStringList());
    }

    void findsDatesAhead()
    {
        const QDateTime tomorrow = QDateTime::currentDateTimeUtc().addDays(1);
        writeFile(server("Halden-Launcher.exe"), "x");
        for (const char* name : { "patch.ini", "Halden-Launcher.exe" })
            setDate(server(name), tomorrow);
        QCOMPARE(
            found(check()),
            QStringList({ "date-ahead patch.ini", "date-ahead Halden-Launcher.exe" }));
    }

private:
    static QJsonObject
    check(const QProcessEnvironment& environment = QProcessEnvironment::systemEnvironment())
    {
        QProcess program;
        program.setProcessEnvironment(environment);
        program.start(HALDEN_PUBLISH, { "check", "--json", "--realms", "1", server() });
        if (!program.waitForFinished(200'000))
            qFatal("check does not end");
        return QJsonDocument::fromJson(program.readAllStandardOutput()).object();
    }

    static QStringList found(const QJsonObject& json)
    {
        QStringList all;
        const QJsonArray findings = json["findings"].toArray();
        for (const QJsonValue finding : findings)
            all.append(finding["id"].toString() + ' ' + finding["subject"].toString());
        return all;
    }
};

HALDEN_TEST_MAIN(tst_CheckServed)
#include "tst_checkserved.moc"
