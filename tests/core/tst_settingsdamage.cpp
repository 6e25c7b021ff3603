#include "core/settingshandler.h"
#include "tests/support/applicationfolder.h"
#include "tests/support/diskfaults.h"
#include "tests/support/realmsini.h"
#include "tests/support/testmain.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QRegularExpression>

using namespace TestSupport;

namespace {

/// Takes away the right to write into a file, and on Windows to remove it.
class ReadOnlyFile {
public:
    explicit ReadOnlyFile(const QString& path)
        : target(path)
        , before(QFile::permissions(path))
    {
        if (!QFile::setPermissions(target, QFile::ReadOwner))
            qFatal("cannot set the permissions of %s", qPrintable(target));
    }
    ~ReadOnlyFile()
    {
        QFile::setPermissions(target, before);
    }
    ReadOnlyFile(const ReadOnlyFile&) = delete;
    ReadOnlyFile& operator=(const ReadOnlyFile&) = delete;

private:
    QString target;
    QFile::Permissions before;
};

void writeByEveryOperation()
{
    SettingsHandler::addClient("New", "new.test", "/new", true);
    SettingsHandler::writeClient(1, "New", "new.test", "/new", true, "frFR");
    SettingsHandler::setSelectedRealm(2);
    SettingsHandler::removeClientKeys(1);
    SettingsHandler::removeClient(1);
}

QByteArray rubbish()
{
    QByteArray bytes;
    for (int i = 0; i < 4096; ++i)
        bytes.append(static_cast<char>((i * 131 + i / 7) % 256));
    return bytes;
}

} // namespace

/// Files that were broken by hand, and a disk that refuses: nothing is reported,
/// nothing hangs, and what cannot be read is an empty store.
class tst_SettingsDamage : public QObject {
    Q_OBJECT

private slots:
    void init()
    {
        ApplicationFolder::clear();
        QTest::failOnWarning(QRegularExpression(".*"));
    }

    /// The settings layer repeats a write that failed with the next one that does
    /// not, so that one is made here and not in the middle of another test.
    void cleanup()
    {
        ApplicationFolder::clear();
        SettingsHandler::setSelectedRealm(0);
    }

    void impossibleNumbers_data()
    {
        QTest::addColumn<QByteArray>("content");
        QTest::addColumn<int>("count");
        QTest::addColumn<int>("selected");
        const auto row
            = [](const char* tag, const char* size, const char* realmid, int count, int selected) {
                  QTest::newRow(tag) << "[realms]\nsize=" + QByteArray(size)
                          + "\n\n[selected_realm]\nrealmid=" + realmid + '\n'
                                     << count << selected;
              };
        row("text", "three", "first", 0, 0);
        row("empty", "", "", 0, 0);
        row("number and text", "3 realms", "1st", 0, 0);
        row("list", "1, 2", "1, 2", 0, 0);
        row("negative", "-3", "-1", -3, -1);
        row("smallest", "-2147483648", "-2147483648", INT_MIN, INT_MIN);
        row("many", "1001", "1001", 1'001, 1'001);
        row("huge", "2000000000", "2000000000", 2'000'000'000, 2'000'000'000);
        row("beyond 32 bits", "99999999999", "99999999999", 1'215'752'191, 1'215'752'191);
    }

    void impossibleNumbers()
    {
        QFETCH(QByteArray, content);
        writeRealmsIni(content);
        QTEST(SettingsHandler::getClientCount(), "count");
        QTEST(SettingsHandler::getSelectedRealm(), "selected");
    }

    void addAfterAnImpossibleCount_data()
    {
        QTest::addColumn<QByteArray>("size");
        QTest::addColumn<int>("added");
        QTest::addColumn<int>("selected");
        QTest::newRow("text") << QByteArray("three") << 1 << 1;
        QTest::newRow("negative") << QByteArray("-3") << -2 << 0;
        QTest::newRow("one below none") << QByteArray("-1") << 0 << 0;
        QTest::newRow("a thousand") << QByteArray("1000") << 1'001 << 0;
        QTest::newRow("more than a thousand") << QByteArray("1001") << 1'002 << 0;
        QTest::newRow("largest") << QByteArray("2147483647") << INT_MIN << 0;
    }

    void addAfterAnImpossibleCount()
    {
        QFETCH(QByteArray, size);
        QFETCH(int, added);
        QFETCH(int, selected);
        writeRealmsIni("[realms]\nsize=" + size + '\n');
        SettingsHandler::addClient("New", "new.test", "/new", false);
        QCOMPARE(SettingsHandler::getClientCount(), added);
        QCOMPARE(SettingsHandler::getRealmName(added), "New");
        QCOMPARE(SettingsHandler::getSelectedRealm(), selected);
    }

    void removeAfterAnImpossibleCount_data()
    {
        QTest::addColumn<QByteArray>("size");
        QTest::addColumn<int>("n");
        QTest::addColumn<QByteArray>("sizeAfterwards");
        QTest::newRow("text") << QByteArray("three") << 1 << QByteArray("-1");
        QTest::newRow("negative") << QByteArray("-3") << 1 << QByteArray("-4");
        QTest::newRow("smallest") << QByteArray("-2147483648") << 1 << QByteArray("2147483647");
        QTest::newRow("huge, high entry")
            << QByteArray("2000000000") << 1'999'999'999 << QByteArray("1999999999");
        QTest::newRow("huge, last entry")
            << QByteArray("2000000000") << 2'000'000'000 << QByteArray("1999999999");
        QTest::newRow("huge, number past it")
            << QByteArray("2000000000") << 2'000'000'001 << QByteArray("1999999999");
        QTest::newRow("huge, tenth thousand")
            << QByteArray("2000000000") << 9'999 << QByteArray("1999999999");
    }

    void removeAfterAnImpossibleCount()
    {
        QFETCH(QByteArray, size);
        QFETCH(int, n);
        writeRealmsIni("[realms]\nsize=" + size + '\n');
        SettingsHandler::removeClient(n);
        QTEST(realmsIniValues().value("realms/size"), "sizeAfterwards");
    }

    void rubbishIsAnEmptyStore_data()
    {
        QTest::addColumn<QByteArray>("content");
        QTest::newRow("binary") << rubbish();
        QTest::newRow("zero bytes") << QByteArray(1000, '\0');
        QTest::newRow("no section") << QByteArray("size=3\nrealmid=2\ndev=true\n");
        QTest::newRow("open section") << QByteArray("[realms\nsize");
        QTest::newRow("a web page") << QByteArray("<html><body>size=3</body></html>\n");
    }

    void rubbishIsAnEmptyStore()
    {
        QFETCH(QByteArray, content);
        writeRealmsIni(content);
        QCOMPARE(SettingsHandler::getClientCount(), 0);
        QCOMPARE(SettingsHandler::getSelectedRealm(), 0);
        QCOMPARE(SettingsHandler::getDev(), false);
        QCOMPARE(SettingsHandler::getLanguage(1), "deDE");
    }

    void rubbishIsStillWrittenTo()
    {
        writeRealmsIni(rubbish());
        SettingsHandler::addClient("New", "new.test", "/new", false);
        QCOMPARE(storedRealmNames(), QStringList("New"));
        QCOMPARE(SettingsHandler::getSelectedRealm(), 1);
    }

    void unreadableFileIsAnEmptyStore()
    {
        writeRealmsIni(realmsIniWith({ { .name = "A" } }, "realmid=1\ndev=true\n"));
        const UnreadableFile unreadable(realmsIniPath());
        QCOMPARE(SettingsHandler::getClientCount(), 0);
        QCOMPARE(SettingsHandler::getSelectedRealm(), 0);
        QCOMPARE(SettingsHandler::getDev(), false);
        QCOMPARE(SettingsHandler::getRealmName(1), "");
    }

    void unreadableFileIsNotReplaced()
    {
        const QByteArray content = realmsIniWith({ { .name = "A" } }, "realmid=1\n");
        writeRealmsIni(content);
        {
            const UnreadableFile unreadable(realmsIniPath());
            writeByEveryOperation();
        }
        QCOMPARE(readFile(realmsIniPath()), content);
    }

    void readOnlyFileIsNotReplaced()
    {
        const QByteArray content = realmsIniWith({ { .name = "A" } }, "realmid=1\n");
        writeRealmsIni(content);
        {
            const ReadOnlyFile readOnly(realmsIniPath());
            QCOMPARE(SettingsHandler::getRealmName(1), "A");
            writeByEveryOperation();
        }
        QCOMPARE(readFile(realmsIniPath()), content);
    }

    void readOnlyFolderKeepsItsFile()
    {
        const QByteArray content = realmsIniWith({ { .name = "A" } }, "realmid=1\n");
        writeRealmsIni(content);
        const ReadOnlyFolder readOnly(ApplicationFolder::path("Settings"));
        QCOMPARE(SettingsHandler::getRealmName(1), "A");
        writeByEveryOperation();
        QCOMPARE(readFile(realmsIniPath()), content);
    }

    void readOnlyFolderGetsNoFile()
    {
        QDir().mkpath(ApplicationFolder::path("Settings"));
        const ReadOnlyFolder readOnly(ApplicationFolder::path("Settings"));
        writeByEveryOperation();
        QVERIFY(!QFileInfo::exists(realmsIniPath()));
        QCOMPARE(SettingsHandler::getClientCount(), 0);
    }

    void folderInPlaceOfTheFileIsAnEmptyStore()
    {
        QDir().mkpath(realmsIniPath());
        writeByEveryOperation();
        QCOMPARE(SettingsHandler::getClientCount(), 0);
        QCOMPARE(SettingsHandler::getRealmName(1), "");
        QVERIFY(QFileInfo(realmsIniPath()).isDir());
    }

    void fileInPlaceOfTheSettingsFolderIsAnEmptyStore()
    {
        writeFile(ApplicationFolder::path("Settings"), "not a folder");
        writeByEveryOperation();
        QCOMPARE(SettingsHandler::getClientCount(), 0);
        QCOMPARE(readFile(ApplicationFolder::path("Settings")), QByteArray("not a folder"));
    }
};

HALDEN_TEST_MAIN(tst_SettingsDamage)
#include "tst_settingsdamage.moc"
