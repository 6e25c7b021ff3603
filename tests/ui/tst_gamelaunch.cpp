#include "tests/support/applicationfolder.h"
#include "tests/support/diskfaults.h"
#include "tests/support/httpsserver.h"
#include "tests/support/mainwindowundertest.h"
#include "tests/support/realmsini.h"
#include "tests/support/reporter.h"
#include "tests/support/testmain.h"
#include "tests/support/widgets.h"

#include <QComboBox>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QPushButton>

#include <optional>

using namespace TestSupport;

namespace {

QString gameFolder(int n)
{
    return ApplicationFolder::path("games/" + QString::number(n));
}

QString realmlist(int n, const QString& language = "deDE")
{
    return gameFolder(n) + "/Data/" + language + "/realmlist.wtf";
}

RealmEntry entry(int n, const QByteArray& language = "deDE")
{
    const QByteArray number = QByteArray::number(n);
    return { "Realm " + number, "logon" + number + ".test", gameFolder(n).toUtf8(), "false",
             language };
}

void makeLanguageFolder(int n, const QString& language = "deDE")
{
    QVERIFY(QDir().mkpath(gameFolder(n) + "/Data/" + language));
}

/// Two entries, of which the first is selected, and a client for each.
void setUpTwoClients()
{
    writeRealmsIni(realmsIniWith({ entry(1), entry(2) }, "realmid=1\n"));
    makeLanguageFolder(1);
    makeLanguageFolder(2);
}

constexpr auto allWriting
    = QFile::WriteOwner | QFile::WriteUser | QFile::WriteGroup | QFile::WriteOther;

/// Takes the right to write from a file while it lives.
class ReadOnlyFile {
public:
    explicit ReadOnlyFile(const QString& what)
        : path(what)
        , before(QFile::permissions(what))
    {
        QFile::setPermissions(path, before & ~allWriting);
    }
    ~ReadOnlyFile()
    {
        QFile::setPermissions(path, before);
    }
    ReadOnlyFile(const ReadOnlyFile&) = delete;
    ReadOnlyFile& operator=(const ReadOnlyFile&) = delete;

private:
    QString path;
    QFile::Permissions before;
};

QString reportPath()
{
    return ApplicationFolder::path("started.txt");
}

void placeGame(const QString& path)
{
    QVERIFY(QDir().mkpath(QFileInfo(path).path()));
    placeReporter(path, reportPath());
}

bool gameHasStarted()
{
    return !reportedStarts(reportPath()).isEmpty();
}

/// Its own path, its working folder and its arguments.
QStringList startedGame()
{
    return reportedStarts(reportPath()).value(0);
}

void startWith(QPushButton* button, bool mouse)
{
    if (mouse)
        QTest::mouseClick(button, Qt::LeftButton);
    else
        QTest::keyClick(button, Qt::Key_Space);
}

} // namespace

class tst_GameLaunch : public MainWindowTest {
    Q_OBJECT

private slots:
    void init()
    {
        // In this order: the folder one is in stays.
        QVERIFY(QDir::setCurrent(ApplicationFolder::path()));
        MainWindowTest::init();
    }

    void writesTheRealmlist_data()
    {
        QTest::addColumn<QByteArray>("host");
        QTest::newRow("plain") << QByteArray("logon.test");
        QTest::newRow("address and port") << QByteArray("10.0.0.1:3725");
        QTest::newRow("umlaut") << QByteArray("größe.test");
        QTest::newRow("beyond the first plane") << QByteArray("\xF0\x9F\x90\x89.test");
        QTest::newRow("empty") << QByteArray("");
    }

    void writesTheRealmlist()
    {
        QFETCH(QByteArray, host);
        RealmEntry second = entry(2);
        second.host = host;
        writeRealmsIni(realmsIniWith({ entry(1), second }, "realmid=1\n"));
        makeLanguageFolder(2);
        const MainWindowUnderTest window;
        QVERIFY(window.settle(2));
        window.show();
        pick(window.selector(), 1);
        QCOMPARE(readFile(realmlist(2)), "set realmlist " + host);
        QVERIFY2(!QFile::exists(realmlist(1)), "The other client was written");
    }

    void anEntryWithoutHostTakesTheDefault()
    {
        writeRealmsIni(
            "[realms]\nsize=2\n1-clientPath=" + gameFolder(1).toUtf8()
            + "\n2-realmName=Other\n[selected_realm]\nrealmid=2\n");
        makeLanguageFolder(1);
        const MainWindowUnderTest window;
        QVERIFY(window.settle(2));
        window->realmSelectorActivated(0);
        QCOMPARE(readFile(realmlist(1)), "set realmlist logon.tarnwick.example");
    }

    void pickingAgainWritesTheSameBytes()
    {
        setUpTwoClients();
        const MainWindowUnderTest window;
        QVERIFY(window.settle(2));
        window.show();
        pick(window.selector(), 1);
        QVERIFY(QFile::remove(realmlist(2)));
        pick(window.selector(), 1);
        QCOMPARE(readFile(realmlist(2)), "set realmlist logon2.test");
        pick(window.selector(), 1);
        QCOMPARE(readFile(realmlist(2)), "set realmlist logon2.test");
    }

    void pickingRowZeroWritesTheFirstClient()
    {
        setUpTwoClients();
        const MainWindowUnderTest window;
        QVERIFY(window.settle(2));
        window.show();
        pick(window.selector(), 0);
        QCOMPARE(readFile(realmlist(1)), "set realmlist logon1.test");
    }

    void replacesAnOldFile_data()
    {
        QTest::addColumn<QByteArray>("old");
        QTest::newRow("shorter") << QByteArray("set");
        QTest::newRow("longer")
            << QByteArray("set realmlist logon.elsewhere.test\r\nset patchlist x\r\n").repeated(9);
        QTest::newRow("empty") << QByteArray("");
    }

    void replacesAnOldFile()
    {
        QFETCH(QByteArray, old);
        setUpTwoClients();
        writeFile(realmlist(2), old);
        const MainWindowUnderTest window;
        QVERIFY(window.settle(2));
        window->realmSelectorActivated(1);
        QCOMPARE(readFile(realmlist(2)), "set realmlist logon2.test");
    }

    void usesTheLanguageOfTheEntry()
    {
        writeRealmsIni(realmsIniWith({ entry(1), entry(2, "enUS") }, "realmid=1\n"));
        makeLanguageFolder(2, "deDE");
        makeLanguageFolder(2, "enUS");
        const MainWindowUnderTest window;
        QVERIFY(window.settle(2));
        window->realmSelectorActivated(1);
        QCOMPARE(readFile(realmlist(2, "enUS")), "set realmlist logon2.test");
        QVERIFY(!QFile::exists(realmlist(2, "deDE")));
        QCOMPARE(realmsIniValues().value("realms/2-language"), "enUS");
    }

    void makesNoFolder_data()
    {
        QTest::addColumn<QString>("existing");
        QTest::newRow("no client") << "";
        QTest::newRow("no Data") << ".";
        QTest::newRow("no language folder") << "Data";
        QTest::newRow("another language") << "Data/enUS";
    }

    void makesNoFolder()
    {
        QFETCH(QString, existing);
        writeRealmsIni(realmsIniWith({ entry(1), entry(2) }, "realmid=1\n"));
        if (!existing.isEmpty())
            QVERIFY(QDir().mkpath(gameFolder(2) + '/' + existing));
        const MainWindowUnderTest window;
        QVERIFY(window.settle(2));
        const QStringList before = window.log.lines();
        window->realmSelectorActivated(1);
        QVERIFY(!QFile::exists(gameFolder(2) + "/Data/deDE"));
        QCOMPARE(window.log.lines(), before);
        QCOMPARE(realmsIniValues().value("selected_realm/realmid"), "2");
    }

    /// What the file system refuses is left undone without a word. A file that
    /// can be written but not removed is overwritten from its start.
    void keepsSilentWhenItMayNotWrite_data()
    {
        QTest::addColumn<bool>("fileLocked");
        QTest::addColumn<bool>("folderLocked");
        QTest::addColumn<QByteArray>("left");
        const QByteArray old = "set realmlist logon.elsewhere.test";
        const QByteArray replaced = "set realmlist logon2.test";
#ifdef Q_OS_WIN // a read-only file cannot be removed, whatever its folder permits
        QTest::newRow("file") << true << false << old;
#else
        QTest::newRow("file") << true << false << replaced;
        QTest::newRow("folder") << false << true << replaced + old.mid(replaced.size());
        QTest::newRow("both") << true << true << old;
#endif
    }

    void keepsSilentWhenItMayNotWrite()
    {
        QFETCH(bool, fileLocked);
        QFETCH(bool, folderLocked);
        QFETCH(QByteArray, left);
        setUpTwoClients();
        writeFile(realmlist(2), "set realmlist logon.elsewhere.test");
        const MainWindowUnderTest window;
        QVERIFY(window.settle(2));
        const QStringList before = window.log.lines();
        {
            const ReadOnlyFile file(fileLocked ? realmlist(2) : reportPath());
            std::optional<ReadOnlyFolder> folder;
            if (folderLocked)
                folder.emplace(gameFolder(2) + "/Data/deDE");
            window->realmSelectorActivated(1);
        }
        QCOMPARE(readFile(realmlist(2)), left);
        QCOMPARE(window.log.lines(), before);
    }

    void createsNothingInALockedFolder()
    {
        setUpTwoClients();
        const MainWindowUnderTest window;
        QVERIFY(window.settle(2));
        const QStringList before = window.log.lines();
        const ReadOnlyFolder folder(gameFolder(2) + "/Data/deDE");
        window->realmSelectorActivated(1);
        QVERIFY(!QFile::exists(realmlist(2)));
        QCOMPARE(window.log.lines(), before);
    }

    void aFolderInItsPlaceStays()
    {
        setUpTwoClients();
        QVERIFY(QDir().mkpath(realmlist(2)));
        const MainWindowUnderTest window;
        QVERIFY(window.settle(2));
        window->realmSelectorActivated(1);
        QVERIFY(QDir(realmlist(2)).exists());
    }

    /// The selector is hidden then, and starting the game does not write either.
    void aSingleEntryIsNeverWritten()
    {
        writeRealmsIni(realmsIniWith({ entry(1) }, "realmid=1\n"));
        makeLanguageFolder(1);
        placeGame(gameFolder(1) + "/patched_wow.exe");
        const MainWindowUnderTest window;
        QVERIFY(window.settle(2));
        window.show();
        QVERIFY(!window.selector()->isVisible());
        click(window.get(), "pushButton_StartWoW");
        QTRY_VERIFY(gameHasStarted());
        QVERIFY(!QFile::exists(realmlist(1)));
    }

    void startsTheGame_data()
    {
        QTest::addColumn<QString>("button");
        QTest::addColumn<QString>("program");
        QTest::addColumn<bool>("mouse");
        QTest::newRow("patched, mouse") << "StartWoW"
                                        << "patched_wow.exe" << true;
        QTest::newRow("patched, keyboard") << "StartWoW"
                                           << "patched_wow.exe" << false;
        QTest::newRow("patchless, mouse") << "Start_patchless_WoW"
                                          << "wow.exe" << true;
        QTest::newRow("patchless, keyboard") << "Start_patchless_WoW"
                                             << "wow.exe" << false;
    }

    /// The game gets no arguments and the launcher's own working directory.
    void startsTheGame()
    {
        QFETCH(QString, button);
        QFETCH(QString, program);
        QFETCH(bool, mouse);
        writeRealmsIni(realmsIniWith({ entry(1), entry(2) }, "realmid=2\ndev=true\n"));
        placeGame(gameFolder(1) + '/' + program);
        placeGame(gameFolder(2) + "/patched_wow.exe");
        placeGame(gameFolder(2) + "/wow.exe");
        const QString current = ApplicationFolder::path("somewhere else");
        QVERIFY(QDir().mkdir(current) && QDir::setCurrent(current));
        const MainWindowUnderTest window;
        QVERIFY(window.settle(2));
        window.show();
        startWith(window.button(button), mouse);
        QTRY_VERIFY(gameHasStarted());
        QCOMPARE(startedGame(), (QStringList{ gameFolder(2) + '/' + program, current }));
        QVERIFY2(window->isVisible(), "The launcher went away");
    }

    void startsTheGameOfTheEntryJustPicked()
    {
        setUpTwoClients();
        placeGame(gameFolder(2) + "/patched_wow.exe");
        const MainWindowUnderTest window;
        QVERIFY(window.settle(2));
        window.show();
        pick(window.selector(), 1);
        click(window.get(), "pushButton_StartWoW");
        QTRY_VERIFY(gameHasStarted());
        QCOMPARE(startedGame().constFirst(), gameFolder(2) + "/patched_wow.exe");
    }

    /// The path is taken as it stands, so an empty one leads to the root folder.
    void anEntryWithoutFolderStartsFromTheRoot()
    {
        writeRealmsIni(realmsIniWith({ entry(1) }, "realmid=0\n"));
        placeGame("/patched_wow.exe");
        const MainWindowUnderTest window;
        QVERIFY(window.settle(2));
        window.show();
        click(window.get(), "pushButton_StartWoW");
        QTRY_VERIFY(gameHasStarted());
        QCOMPARE(startedGame().constFirst(), QFileInfo("/patched_wow.exe").absoluteFilePath());
        // Windows keeps a program's file for as long as it runs.
        QTRY_VERIFY(QFile::remove("/patched_wow.exe") || !QFile::exists("/patched_wow.exe"));
    }

    void keepsSilentWhenTheGameDoesNotStart_data()
    {
        QTest::addColumn<bool>("there");
        QTest::newRow("missing") << false;
        QTest::newRow("not a program") << true;
    }

    void keepsSilentWhenTheGameDoesNotStart()
    {
        QFETCH(bool, there);
        writeRealmsIni(realmsIniWith({ entry(1) }, "realmid=1\ndev=true\n"));
        if (there) {
            writeFile(gameFolder(1) + "/patched_wow.exe", "no program");
            writeFile(gameFolder(1) + "/wow.exe", "no program");
        }
        const MainWindowUnderTest window;
        QVERIFY(window.settle(2));
        window.show();
        const QStringList before = window.log.lines();
        click(window.get(), "pushButton_StartWoW");
        click(window.get(), "pushButton_Start_patchless_WoW");
        QCOMPARE(window.log.lines(), before);
        QVERIFY(window->isVisible());
        for (const QWidget* widget : QApplication::topLevelWidgets())
            QVERIFY2(widget == window.get() || !widget->isVisible(), "Something has popped up");
    }

    void thePatchlessGameStartsDuringAClientUpdate()
    {
        writeRealmsIni(realmsIniWith({ entry(1) }, "realmid=1\ndev=true\n"));
        placeGame(gameFolder(1) + "/wow.exe");
        const MainWindowUnderTest window;
        HttpsServer server;
        server.answer("/patch.ini", HttpAnswer());
        server.listen();
        window.show();
        QTRY_COMPARE(server.requestCount("/patch.ini"), 2);
        QVERIFY(!window.button("StartWoW")->isEnabled());
        click(window.get(), "pushButton_Start_patchless_WoW");
        QTRY_VERIFY(gameHasStarted());
        QCOMPARE(startedGame().constFirst(), gameFolder(1) + "/wow.exe");
    }
};

HALDEN_TEST_MAIN(tst_GameLaunch)
#include "tst_gamelaunch.moc"
