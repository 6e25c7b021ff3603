#include "app/constants.h"
#include "core/settingshandler.h"
#include "tests/support/applicationfolder.h"
#include "tests/support/realmsini.h"
#include "tests/support/testmain.h"

#include <QDir>
#include <QFileInfo>
#include <QRegularExpression>
#include <QSettings>

#include <climits>

using namespace TestSupport;

namespace {

const QString defaultRealmHost = HALDEN_DEFAULT_REALM_HOST;

/// What every reader says of entry n.
QVariantMap readEntry(int n)
{
    return {
        { "name", SettingsHandler::getRealmName(n) },
        { "host", SettingsHandler::getRealmHost(n) },
        { "path", SettingsHandler::getClientPath(n) },
        { "test", SettingsHandler::getTestRealm(n) },
        { "language", SettingsHandler::getLanguage(n) },
    };
}

/// What the readers say of an entry that is not in the file, but for one field.
QVariantMap missingEntryBut(const QString& field, const QVariant& value)
{
    QVariantMap entry{
        { "name", "" },    { "host", defaultRealmHost }, { "path", "" },
        { "test", false }, { "language", "deDE" },
    };
    if (!field.isEmpty())
        entry.insert(field, value);
    return entry;
}

/// Makes the store parse the file again, as the next start of the program would.
void forgetWhatWasRead()
{
    writeRealmsIni(readFile(realmsIniPath()));
}

} // namespace

/// Reading and writing of single values: where they stand, how they are spelt
/// and what takes their place when they are missing.
class tst_SettingsHandler : public QObject {
    Q_OBJECT

private slots:
    void init()
    {
        ApplicationFolder::clear();
        QTest::failOnWarning(QRegularExpression(".*"));
    }

    void namesTheFolders()
    {
        const QString folder = QCoreApplication::applicationDirPath() + QDir::separator();
        QCOMPARE(SettingsHandler::getSettingsPath(), folder + "Settings");
        QCOMPARE(SettingsHandler::getClientDataStoragePath(), folder + "ClientDataStorage");
    }

    void namingTheFoldersCreatesNone()
    {
        SettingsHandler::getSettingsPath();
        SettingsHandler::getClientDataStoragePath();
        QVERIFY(!QFileInfo::exists(ApplicationFolder::path("Settings")));
        QVERIFY(!QFileInfo::exists(ApplicationFolder::path("ClientDataStorage")));
    }

    void missingKeysReadAsDefaults_data()
    {
        QTest::addColumn<QByteArray>("content");
        QTest::addColumn<int>("n");
        const QByteArray three
            = realmsIniWith({ { .name = "A" }, { .name = "B" }, { .name = "C" } }, "realmid=1\n");
        QTest::newRow("no file") << QByteArray() << 1;
        QTest::newRow("empty file") << QByteArray("\n") << 1;
        QTest::newRow("count without entries") << QByteArray("[realms]\nsize=3\n") << 2;
        QTest::newRow("entry 9 of 3") << three << 9;
        QTest::newRow("entry 0") << three << 0;
        QTest::newRow("negative entry") << three << -1;
        QTest::newRow("largest number") << three << INT_MAX;
        QTest::newRow("smallest number") << three << INT_MIN;
        QTest::newRow("other section")
            << QByteArray("[other]\n1-realmName=A\n1-language=enUS\n") << 1;
        QTest::newRow("padded number") << QByteArray("[realms]\n01-realmName=A\n") << 1;
    }

    void missingKeysReadAsDefaults()
    {
        QFETCH(QByteArray, content);
        QFETCH(int, n);
        if (!content.isEmpty())
            writeRealmsIni(content);
        QCOMPARE(readEntry(n), missingEntryBut("", {}));
    }

    void emptyStoreHasNothingSelected_data()
    {
        QTest::addColumn<QByteArray>("content");
        QTest::newRow("no file") << QByteArray();
        QTest::newRow("empty file") << QByteArray("\n");
        QTest::newRow("sections without keys") << QByteArray("[realms]\n\n[selected_realm]\n");
        QTest::newRow("keys in the wrong section")
            << QByteArray("[realms]\nrealmid=3\ndev=true\n\n[selected_realm]\nsize=2\n");
    }

    void emptyStoreHasNothingSelected()
    {
        QFETCH(QByteArray, content);
        if (!content.isEmpty())
            writeRealmsIni(content);
        QCOMPARE(SettingsHandler::getClientCount(), 0);
        QCOMPARE(SettingsHandler::getSelectedRealm(), 0);
        QCOMPARE(SettingsHandler::getDev(), false);
    }

    void readingCreatesNoFile()
    {
        readEntry(1);
        SettingsHandler::getClientCount();
        SettingsHandler::getSelectedRealm();
        SettingsHandler::getDev();
        QVERIFY(!QFileInfo::exists(ApplicationFolder::path("Settings")));
    }

    void readsEachKeyOfAnEntry_data()
    {
        QTest::addColumn<int>("n");
        QTest::addColumn<QByteArray>("line");
        QTest::addColumn<QVariantMap>("entry");
        const auto row = [](const char* tag, int n, const char* line, const char* field,
                            const QVariant& value) {
            QTest::newRow(tag) << n << QByteArray(line) << missingEntryBut(field, value);
        };
        row("realm name", 1, "1-realmName=Halden", "name", "Halden");
        row("realm host", 2, "2-realmHost=logon.test", "host", "logon.test");
        row("empty realm host", 2, "2-realmHost=", "host", "");
        row("client path", 3, "3-clientPath=/games/wow", "path", "/games/wow");
        row("test realm", 4, "4-testRealm=true", "test", true);
        row("no test realm", 4, "4-testRealm=false", "test", false);
        row("test realm in capitals", 4, "4-testRealm=TRUE", "test", true);
        row("test realm as a number", 4, "4-testRealm=1", "test", true);
        row("language", 5, "5-language=enUS", "language", "enUS");
        row("empty language", 5, "5-language=", "language", "");
        row("two digits", 10, "10-realmName=Ten", "name", "Ten");
        row("largest number", INT_MAX, "2147483647-realmName=Last", "name", "Last");
        row("entry 0", 0, "0-realmName=Zero", "name", "Zero");
    }

    void readsEachKeyOfAnEntry()
    {
        QFETCH(int, n);
        QFETCH(QByteArray, line);
        writeRealmsIni("[realms]\n" + line + '\n');
        QTEST(readEntry(n), "entry");
    }

    void readsCountAndSelection()
    {
        writeRealmsIni("[realms]\nsize=4\n\n[selected_realm]\nrealmid=3\n");
        QCOMPARE(SettingsHandler::getClientCount(), 4);
        QCOMPARE(SettingsHandler::getSelectedRealm(), 3);
    }

    void readsTheDeveloperSwitch_data()
    {
        QTest::addColumn<QByteArray>("value");
        QTest::addColumn<bool>("developer");
        QTest::newRow("true") << QByteArray("true") << true;
        QTest::newRow("True") << QByteArray("True") << true;
        QTest::newRow("1") << QByteArray("1") << true;
        QTest::newRow("false") << QByteArray("false") << false;
        QTest::newRow("0") << QByteArray("0") << false;
        QTest::newRow("empty") << QByteArray("") << false;
    }

    void readsTheDeveloperSwitch()
    {
        QFETCH(QByteArray, value);
        writeRealmsIni("[selected_realm]\ndev=" + value + '\n');
        QTEST(SettingsHandler::getDev(), "developer");
    }

    void selectionIsWrittenAsADecimalNumber_data()
    {
        QTest::addColumn<int>("n");
        for (const int n : { 0, 1, 12, INT_MAX, -1 })
            QTest::addRow("%d", n) << n;
    }

    void selectionIsWrittenAsADecimalNumber()
    {
        QFETCH(int, n);
        writeRealmsIni(realmsIniWith({ { .name = "A" } }, "realmid=7\n"));
        const auto before = realmsIniValues();
        SettingsHandler::setSelectedRealm(n);
        auto expected = before;
        expected["selected_realm/realmid"] = QByteArray::number(n);
        QCOMPARE(realmsIniValues(), expected);
        QCOMPARE(SettingsHandler::getSelectedRealm(), n);
    }

    void createsTheFileWithTheFirstWrite()
    {
        QDir().mkpath(ApplicationFolder::path("Settings"));
        SettingsHandler::setSelectedRealm(2);
        QCOMPARE(readFile(realmsIniPath()), withSystemsLineEnds("[selected_realm]\nrealmid=2\n"));
    }

    void bothSpellingsNameOneValue_data()
    {
        QTest::addColumn<QString>("fullKey");
        QTest::addColumn<QString>("group");
        QTest::addColumn<QString>("shortKey");
        QTest::newRow("realm name") << "realms//3-realmName"
                                    << "realms"
                                    << "3-realmName";
        QTest::newRow("client path") << "realms//3-clientPath"
                                     << "realms"
                                     << "3-clientPath";
        QTest::newRow("count") << "realms//size"
                               << "realms"
                               << "size";
        QTest::newRow("selection") << "selected_realm//realmid"
                                   << "selected_realm"
                                   << "realmid";
        QTest::newRow("developer") << "selected_realm//dev"
                                   << "selected_realm"
                                   << "dev";
    }

    void bothSpellingsNameOneValue()
    {
        QFETCH(QString, fullKey);
        QFETCH(QString, group);
        QFETCH(QString, shortKey);
        writeRealmsIni("[realms]\nsize=11\n3-realmName=11\n3-clientPath=11\n"
                       "[selected_realm]\nrealmid=11\ndev=11\n");
        QSettings store(realmsIniPath(), QSettings::IniFormat);
        QCOMPARE(store.value(fullKey).toString(), "11");
        store.beginGroup(group);
        QCOMPARE(store.value(shortKey).toString(), "11");
    }

    void valuesSurviveTheFile_data()
    {
        QTest::addColumn<QString>("text");
        QTest::newRow("empty") << "";
        QTest::newRow("blanks around") << "  Halden  ";
        QTest::newRow("backslashes") << R"(C:\Spiele\neu\World of Warcraft)";
        QTest::newRow("backslash at the end") << R"(D:\)";
        QTest::newRow("network share") << R"(\\server\share\wow)";
        QTest::newRow("umlauts") << "Größe äöü ÄÖÜ ß";
        QTest::newRow("Cyrillic") << "Игры";
        QTest::newRow("beyond 16 bits") << "Halden 🐉";
        QTest::newRow("commas") << "eins, zwei,drei";
        QTest::newRow("semicolon") << "eins;zwei";
        QTest::newRow("equals sign") << "a=b";
        QTest::newRow("quotation marks") << R"("Halden" 'Realm')";
        QTest::newRow("section") << "[selected_realm]";
        QTest::newRow("per cent") << "100%20%";
        QTest::newRow("number sign") << "# 1";
        QTest::newRow("at sign") << "@Halden";
        QTest::newRow("looks like a typed value") << "@Invalid()";
        QTest::newRow("slashes") << "//a//b/";
        QTest::newRow("line break") << "eins\nzwei\r\ndrei\tvier";
        QTest::newRow("looks like a boolean") << "true";
        QTest::newRow("long") << QString(5000, u'x');
    }

    void valuesSurviveTheFile()
    {
        QFETCH(QString, text);
        QDir().mkpath(ApplicationFolder::path("Settings"));
        SettingsHandler::writeClient(1, text, text, text, true, text);
        forgetWhatWasRead();
        QCOMPARE(SettingsHandler::getRealmName(1), text);
        QCOMPARE(SettingsHandler::getRealmHost(1), text);
        QCOMPARE(SettingsHandler::getClientPath(1), text);
        QCOMPARE(SettingsHandler::getLanguage(1), text);
    }

    void seesEditsOfTheFileAtOnce_data()
    {
        QTest::addColumn<QByteArray>("before");
        QTest::addColumn<QByteArray>("after");
        QTest::newRow("another size") << QByteArray("Halden") << QByteArray("Halden Test");
        QTest::newRow("same size") << QByteArray("Halden") << QByteArray("Nadler");
    }

    void seesEditsOfTheFileAtOnce()
    {
        QFETCH(QByteArray, before);
        QFETCH(QByteArray, after);
        writeRealmsIni(realmsIniWith({ { .name = before } }, "realmid=1\n"));
        QCOMPARE(SettingsHandler::getRealmName(1), QString(before));
        writeRealmsIni(realmsIniWith({ { .name = after } }, "realmid=1\n"));
        QCOMPARE(SettingsHandler::getRealmName(1), QString(after));
    }

    void seesTheFileGoAndComeBack()
    {
        writeRealmsIni(realmsIniWith({ { .name = "A" } }, "realmid=1\ndev=true\n"));
        QCOMPARE(SettingsHandler::getClientCount(), 1);
        QVERIFY(QFile::remove(realmsIniPath()));
        QCOMPARE(SettingsHandler::getClientCount(), 0);
        QCOMPARE(SettingsHandler::getDev(), false);
        writeRealmsIni(realmsIniWith({ { .name = "A" }, { .name = "B" } }, "realmid=2\n"));
        QCOMPARE(SettingsHandler::getSelectedRealm(), 2);
    }

    void othersSeeChangesAtOnce()
    {
        writeRealmsIni(realmsIniWith({ { .name = "A" } }, "realmid=1\n"));
        QSettings other(realmsIniPath(), QSettings::IniFormat);
        QCOMPARE(other.value("realms/1-realmName").toString(), "A");
        SettingsHandler::writeClient(1, "B", "logon.test", "/games", false, "deDE");
        SettingsHandler::setSelectedRealm(0);
        QCOMPARE(other.value("realms/1-realmName").toString(), "B");
        QCOMPARE(other.value("selected_realm/realmid").toInt(), 0);
    }

    void writesKeepWhatIsAddedByHand()
    {
        writeRealmsIni(
            "[realms]\nsize=0\nremark=mine\n\n[selected_realm]\ndev=true\n\n[other]\nkey=7\n");
        SettingsHandler::addClient("A", "logon.test", "/games", false);
        SettingsHandler::removeClient(1);
        const auto values = realmsIniValues();
        QCOMPARE(values.value("realms/remark"), QByteArray("mine"));
        QCOMPARE(values.value("selected_realm/dev"), QByteArray("true"));
        QCOMPARE(values.value("other/key"), QByteArray("7"));
        QVERIFY(SettingsHandler::getDev());
    }

    void neverWritesTheDeveloperSwitch()
    {
        QDir().mkpath(ApplicationFolder::path("Settings"));
        SettingsHandler::addClient("A", "logon.test", "/games", true);
        SettingsHandler::addClient("B", "logon.test", "/games", true);
        SettingsHandler::setSelectedRealm(2);
        SettingsHandler::writeClient(1, "C", "logon.test", "/games", true, "deDE");
        SettingsHandler::removeClient(1);
        SettingsHandler::removeClientKeys(1);
        QCOMPARE(SettingsHandler::getClientCount(), 1);
        QVERIFY2(
            !readFile(realmsIniPath()).contains("dev"),
            "the developer switch is the player's to set");
    }
};

HALDEN_TEST_MAIN(tst_SettingsHandler)
#include "tst_settingshandler.moc"
