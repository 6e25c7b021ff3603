#include "tests/support/applicationfolder.h"
#include "tests/support/diskfaults.h"
#include "tests/support/httpsserver.h"
#include "tests/support/mainwindowundertest.h"
#include "tests/support/realmsini.h"
#include "tests/support/testmain.h"

#include <QComboBox>
#include <QDir>
#include <QFile>
#include <QPushButton>

using namespace TestSupport;

namespace {

/// How far the updates are when the window is looked at.
enum class Stage { Idle, Launcher, Client, SecondUpdate };

QStringList names(int count)
{
    QStringList result;
    for (int n = 1; n <= count; ++n)
        result.append("Realm " + QString::number(n));
    return result;
}

/// Entries "Realm 1" to "Realm `count`".
QByteArray storeOf(int count, const QByteArray& selectedRealm)
{
    QList<RealmEntry> entries;
    for (const QString& name : names(count))
        entries.append({ name.toUtf8() });
    return realmsIniWith(entries, selectedRealm);
}

QStringList items(const QComboBox* list)
{
    QStringList result;
    for (int i = 0; i < list->count(); ++i)
        result.append(list->itemText(i));
    return result;
}

/// What the player can see and use of the selector and the six buttons.
struct Controls {
    bool selectorShown;
    bool removeShown;
    bool startShown;
    bool patchlessShown;
    bool entriesChangeable;
    bool startEnabled;
};

void compareEnabledState(const MainWindowUnderTest& window, const Controls& expected)
{
    QCOMPARE(window.selector()->isEnabled(), expected.entriesChangeable);
    QCOMPARE(window.button("AddClient")->isEnabled(), expected.entriesChangeable);
    QCOMPARE(window.button("EditClient")->isEnabled(), expected.entriesChangeable);
    QCOMPARE(window.button("RemoveClient")->isEnabled(), expected.entriesChangeable);
    QCOMPARE(window.button("StartWoW")->isEnabled(), expected.startEnabled);
    for (const char* always : { "Start_patchless_WoW", "Open_Client", "Open_SettingsFolder" })
        QVERIFY2(window.button(always)->isEnabled(), always);
}

void compareVisibility(const MainWindowUnderTest& window, const Controls& expected)
{
    QCOMPARE(window.selector()->isVisible(), expected.selectorShown);
    QCOMPARE(window.button("RemoveClient")->isVisible(), expected.removeShown);
    QCOMPARE(window.button("StartWoW")->isVisible(), expected.startShown);
    QCOMPARE(window.button("Start_patchless_WoW")->isVisible(), expected.patchlessShown);
    for (const char* always : { "AddClient", "EditClient", "Open_Client", "Open_SettingsFolder" })
        QVERIFY2(window.button(always)->isVisible(), always);
}

/// Makes the update runs stop at a stage. They go on when the server is gone.
class StagedServer {
public:
    explicit StagedServer(Stage stage)
    {
        if (stage == Stage::Launcher)
            server.answer("/Halden-Launcher-Updater.exe", HttpAnswer());
        if (stage == Stage::Client)
            server.answer("/patch.ini", HttpAnswer());
        server.listen();
    }

    void bringAbout(const MainWindowUnderTest& window, Stage stage)
    {
        if (stage == Stage::Idle)
            QVERIFY(window.settle(2));
        if (stage == Stage::Launcher)
            QTRY_COMPARE(server.requestCount("/Halden-Launcher-Updater.exe"), 2);
        if (stage == Stage::Client)
            QTRY_COMPARE(server.requestCount("/patch.ini"), 2);
        if (stage == Stage::SecondUpdate)
            startASecondUpdateDuringTheFirst(window);
    }

private:
    /// The first update's end then declares the clients ready while the second
    /// one still looks for a newer launcher. Both runs of the first have to be
    /// beyond that, hence with the later one's request.
    void startASecondUpdateDuringTheFirst(const MainWindowUnderTest& window)
    {
        server.answer("/patch.ini", [this, &window](const HttpRequest&) {
            if (server.requestCount("/patch.ini") == 2) {
                server.answer("/Halden-Launcher-Updater.exe", HttpAnswer());
                emit window->update();
            }
            return HttpAnswer::status(404);
        });
        QTRY_COMPARE(window.endedRuns(), 2);
        QCOMPARE(window.startedRuns(), 4);
        QTRY_COMPARE(server.requestCount("/Halden-Launcher-Updater.exe"), 4);
    }

    HttpsServer server;
};

} // namespace

Q_DECLARE_METATYPE(Controls)
Q_DECLARE_METATYPE(Stage)

class tst_MainWindow_syncui : public MainWindowTest {
    Q_OBJECT

private slots:
    void showsAndEnables_data()
    {
        QTest::addColumn<int>("entries");
        QTest::addColumn<Stage>("stage");
        QTest::addColumn<bool>("dev");
        QTest::addColumn<Controls>("expected");
        addRows("no updates", Stage::Idle, true, true);
        addRows("the launcher is checked", Stage::Launcher, false, false);
        addRows("the clients are patched", Stage::Client, true, false);
        addRows("the launcher alone is checked", Stage::SecondUpdate, false, true);
    }

    void showsAndEnables()
    {
        QFETCH(int, entries);
        QFETCH(Stage, stage);
        QFETCH(bool, dev);
        QFETCH(Controls, expected);
        writeRealmsIni(storeOf(entries, dev ? "realmid=1\ndev=true\n" : "realmid=1\n"));
        const MainWindowUnderTest window;
        StagedServer server(stage);
        window.show();
        server.bringAbout(window, stage);
        compareVisibility(window, expected);
        compareEnabledState(window, expected);
        QCOMPARE(items(window.selector()), names(entries));
    }

    void selectsTheStoredEntry_data()
    {
        QTest::addColumn<QByteArray>("realmid");
        QTest::addColumn<int>("index");
        QTest::newRow("none") << QByteArray("0") << -1;
        QTest::newRow("first") << QByteArray("1") << 0;
        QTest::newRow("second") << QByteArray("2") << 1;
        QTest::newRow("last") << QByteArray("3") << 2;
        QTest::newRow("beyond the count") << QByteArray("4") << -1;
        QTest::newRow("far beyond") << QByteArray("2147483647") << -1;
        QTest::newRow("negative") << QByteArray("-2147483648") << -1;
        QTest::newRow("not a number") << QByteArray("first") << -1;
        QTest::newRow("empty") << QByteArray("") << -1;
    }

    void selectsTheStoredEntry()
    {
        QFETCH(QByteArray, realmid);
        QFETCH(int, index);
        writeRealmsIni(storeOf(3, "realmid=" + realmid + '\n'));
        const MainWindowUnderTest window;
        QCOMPARE(window.selector()->currentIndex(), index);
        QCOMPARE(window.selector()->currentText(), names(3).value(index));
    }

    void addsPlainItems()
    {
        writeRealmsIni(storeOf(2, "realmid=1\n"));
        const MainWindowUnderTest window;
        for (int i = 0; i < 2; ++i) {
            QVERIFY(window.selector()->itemIcon(i).isNull());
            QVERIFY(!window.selector()->itemData(i).isValid());
        }
    }

    void followsTheStore()
    {
        writeRealmsIni(storeOf(1, "realmid=1\n"));
        const MainWindowUnderTest window;
        writeRealmsIni(storeOf(3, "realmid=3\n"));
        QVERIFY(QMetaObject::invokeMethod(window.get(), "syncUI"));
        QCOMPARE(items(window.selector()), names(3));
        QCOMPARE(window.selector()->currentIndex(), 2);
        QVERIFY(!window.selector()->isHidden());
        writeRealmsIni(storeOf(0, "realmid=0\n"));
        window->syncUI();
        QCOMPARE(items(window.selector()), QStringList());
        QVERIFY(window.selector()->isHidden());
        QVERIFY(window.button("StartWoW")->isHidden());
        QVERIFY(window.button("RemoveClient")->isHidden());
    }

    /// Filling the selector must not count as the player's choice.
    void writesNothing()
    {
        writeRealmsIni(storeOf(3, "realmid=2\n"));
        const QByteArray before = readFile(realmsIniPath());
        const MainWindowUnderTest window;
        window->syncUI();
        QVERIFY(window.settle(2));
        QCOMPARE(readFile(realmsIniPath()), before);
    }

    void thePatchlessButtonStaysHiddenOnceHidden()
    {
        writeRealmsIni(storeOf(1, "realmid=1\ndev=true\n"));
        const MainWindowUnderTest window;
        QVERIFY(window.settle(2));
        const QPushButton* patchless = window.button("Start_patchless_WoW");
        QVERIFY2(!patchless->isHidden(), "Every look so far has found the switch on");
        writeRealmsIni(storeOf(1, "realmid=1\n"));
        window->syncUI();
        QVERIFY(patchless->isHidden());
        writeRealmsIni(storeOf(1, "realmid=1\ndev=true\n"));
        window->syncUI();
        QVERIFY2(patchless->isHidden(), "The button came back without a restart");
    }

    void readsTheSwitch_data()
    {
        QTest::addColumn<QByteArray>("value");
        QTest::addColumn<bool>("shown");
        QTest::newRow("true") << QByteArray("true") << true;
        QTest::newRow("capitals") << QByteArray("TRUE") << true;
        QTest::newRow("1") << QByteArray("1") << true;
        QTest::newRow("false") << QByteArray("false") << false;
        QTest::newRow("0") << QByteArray("0") << false;
        QTest::newRow("empty") << QByteArray("") << false;
    }

    void readsTheSwitch()
    {
        QFETCH(QByteArray, value);
        QFETCH(bool, shown);
        writeRealmsIni(storeOf(1, "realmid=1\ndev=" + value + '\n'));
        const MainWindowUnderTest window;
        QCOMPARE(!window.button("Start_patchless_WoW")->isHidden(), shown);
    }

    void livesWithABrokenStore_data()
    {
        QTest::addColumn<QByteArray>("content");
        QTest::addColumn<QStringList>("shown");
        QTest::addColumn<bool>("playable");
        const auto row = [](const char* tag, const QByteArray& content, const QStringList& shown,
                            bool playable) {
            QTest::newRow(tag) << content << shown << playable;
        };
        row("empty file", "", {}, false);
        row("not a store", QByteArray("\x00\x01[[[=\n==\xFF", 11), {}, false);
        row("count is no number", "[realms]\nsize=two\n1-realmName=One\n", {}, false);
        // Only a count of none hides the buttons.
        row("negative count", "[realms]\nsize=-3\n1-realmName=One\n", {}, true);
        row("count above the entries", "[realms]\nsize=3\n1-realmName=One\n", { "One", "", "" },
            true);
        row("count below the entries", "[realms]\nsize=1\n1-realmName=One\n2-realmName=Two\n",
            { "One" }, true);
        row("same name twice", "[realms]\nsize=2\n1-realmName=One\n2-realmName=One\n",
            { "One", "One" }, true);
    }

    void livesWithABrokenStore()
    {
        QFETCH(QByteArray, content);
        QFETCH(QStringList, shown);
        QFETCH(bool, playable);
        writeRealmsIni(content);
        const MainWindowUnderTest window;
        QCOMPARE(items(window.selector()), shown);
        QCOMPARE(window.selector()->isHidden(), shown.size() < 2);
        QCOMPARE(window.button("StartWoW")->isHidden(), !playable);
        QCOMPARE(window.button("RemoveClient")->isHidden(), !playable);
        QVERIFY(window.settle(2));
    }

    void anUnreadableStoreIsEmpty()
    {
        writeRealmsIni(storeOf(2, "realmid=1\n"));
        const UnreadableFile unreadable(realmsIniPath());
        const MainWindowUnderTest window;
        QCOMPARE(items(window.selector()), QStringList());
        QVERIFY(window.button("StartWoW")->isHidden());
    }

    void aFolderInTheStoresPlaceIsEmpty()
    {
        QVERIFY(QDir().mkpath(realmsIniPath()));
        const MainWindowUnderTest window;
        QCOMPARE(items(window.selector()), QStringList());
        QVERIFY(window.button("RemoveClient")->isHidden());
    }

private:
    static void addRows(const char* name, Stage stage, bool entriesChangeable, bool startEnabled)
    {
        for (int entries = 0; entries <= 3; ++entries) {
            for (const bool dev : { false, true }) {
                QTest::addRow("%d entries, %s%s", entries, name, dev ? ", developer" : "")
                    << entries << stage << dev
                    << Controls{ .selectorShown = entries >= 2,
                                 .removeShown = entries != 0,
                                 .startShown = entries != 0,
                                 .patchlessShown = dev,
                                 .entriesChangeable = entriesChangeable,
                                 .startEnabled = startEnabled };
            }
        }
    }
};

HALDEN_TEST_MAIN(tst_MainWindow_syncui)
#include "tst_mainwindow_syncui.moc"
