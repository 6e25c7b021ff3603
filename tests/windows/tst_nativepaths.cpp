#include "core/settingshandler.h"
#include "net/inithandler.h"
#include "tests/net/downloadprobe.h"
#include "tests/support/applicationfolder.h"
#include "tests/support/httpsserver.h"
#include "tests/support/logcapture.h"
#include "tests/support/mainwindowundertest.h"
#include "tests/support/realmsini.h"
#include "tests/support/reporter.h"
#include "tests/support/testmain.h"
#include "tests/support/widgets.h"
#include "ui/addclientdialog.h"
#include "update/patchlayout.h"
#include "update/updatingprocedures.h"

#include <QComboBox>
#include <QDesktopServices>
#include <QDir>
#include <QSignalSpy>
#include <QUrl>

using namespace TestSupport;

namespace {

const QString app = "C:/home/player/Halden Launcher";

const QByteArray fileAndFolder = "numberOfFiles=2\nfile1=a.mpq\nfile2=AddOns\nfile2-dirOnly=true\n";

PatchLayout layout()
{
    return { SettingsHandler::getSettingsPath(), SettingsHandler::getClientDataStoragePath() };
}

/// Stands in for the shell, which would open the folder.
class Shell : public QObject {
    Q_OBJECT

public:
    Shell()
    {
        QDesktopServices::setUrlHandler("c", this, "open");
    }
    ~Shell() override
    {
        QDesktopServices::unsetUrlHandler("c");
    }

    QStringList opened;

public slots:
    void open(const QUrl& url)
    {
        opened.append(url.toString(QUrl::FullyEncoded));
    }
};

/// A text as it stands in the log.
QString logged(const QString& text)
{
    return '"' + QString(text).replace('\\', "\\\\") + '"';
}

PatchManifestEntry entry(const QString& pathOffset)
{
    return {
        .save = true, .dirOnly = false, .pathOffset = pathOffset, .urlOffset = "u", .name = "n"
    };
}

QByteArray twoEntries(const QByteArray& secondPath)
{
    return realmsIniWith({ { "One" }, { "Two", "two.test", secondPath } }, "realmid=2\n");
}

} // namespace

/// Backslashes in what the launcher stores, builds and hands on, and drives.
class tst_NativePaths : public MainWindowTest {
    Q_OBJECT

private slots:
    void init()
    {
        MainWindowTest::init();
        QVERIFY(QDir::setCurrent(ApplicationFolder::path()));
    }

    void aStoredPathKeepsItsBackslashes_data()
    {
        QTest::addColumn<QString>("path");
        QTest::addColumn<QByteArray>("line");
        QTest::newRow("drive") << "C:\\Spiele\\WoW" << QByteArray("C:\\\\Spiele\\\\WoW");
        QTest::newRow("letters that mean something behind a backslash")
            << "C:\\new\\temp\\x41" << QByteArray("C:\\\\new\\\\temp\\\\x41");
        QTest::newRow("a computer in the network")
            << "\\\\server\\share" << QByteArray("\\\\\\\\server\\\\share");
        QTest::newRow("umlaut and blank") << "D:\\Für mich" << QByteArray("D:\\\\F\xC3\xBCr mich");
        QTest::newRow("slashes") << "C:/Spiele/WoW" << QByteArray("C:/Spiele/WoW");
    }

    void aStoredPathKeepsItsBackslashes()
    {
        QFETCH(QString, path);
        QFETCH(QByteArray, line);
        SettingsHandler::addClient("A", "logon.test", path, false);
        QCOMPARE(SettingsHandler::getClientPath(1), path);
        QCOMPARE(realmsIniValues().value("realms/1-clientPath"), line);
    }

    void aPathStaysAsItIsWhenItsEntryMoves()
    {
        SettingsHandler::addClient("A", "logon.test", "C:\\one", false);
        SettingsHandler::addClient("B", "logon.test", "C:\\two\\more", false);
        SettingsHandler::removeClient(1);
        QCOMPARE(SettingsHandler::getClientPath(1), "C:\\two\\more");
    }

    void everyFolderOfItsOwn()
    {
        QCOMPARE(QDir::separator(), '\\');
        QCOMPARE(SettingsHandler::getSettingsPath(), app + "\\Settings");
        QCOMPARE(SettingsHandler::getClientDataStoragePath(), app + "\\ClientDataStorage");
        QCOMPARE(layout().manifest("patch.ini"), app + "\\Settings\\patch.ini");
    }

    /// Backslashes and slashes are mixed in fixed places.
    void everyPathOfAPatch()
    {
        const PatchManifestEntry data = entry("Data\\deDE");
        QCOMPARE(layout().cacheKindFolder("live"), app + "\\ClientDataStorage/live");
        QCOMPARE(
            layout().cachedFileFolder("live", data), app + "\\ClientDataStorage/live/Data\\deDE");
        QCOMPARE(
            layout().cachedFolder("live", data), app + "\\ClientDataStorage\\live\\Data\\deDE\\n");
        QCOMPARE(PatchLayout::installFolder("C:\\WoW", data), "C:\\WoW/Data\\deDE");
        QCOMPARE(layout().inClient("C:\\WoW", "Data", "n"), "C:\\WoW\\Data\\n");
        QCOMPARE(
            layout().reconciledFolder("C:\\WoW", "live", data), "C:\\WoW\\live\\Data\\deDE\\n");
    }

    void aManifestWithoutAFolderMeansDataWithABackslash()
    {
        writeFile(app + "/Settings/patch.ini", "numberOfFiles=1\nfile1=a.mpq\n");
        const PatchManifest manifest(layout().manifest("patch.ini"));
        QCOMPARE(manifest.entry(1).pathOffset, "Data\\");
    }

    void theLogOfAReconciliation()
    {
        writeFile(app + "/Settings/patch.ini", fileAndFolder);
        const LogCapture log;
        QList<PatchDownloadItem> queue;
        UpdatingProcedures run(nullptr);
        run.reconcilePatchIni("https://download.tarnwick.example/", "patch.ini", queue, "live");
        const QString cached = app + "\\ClientDataStorage";
        QCOMPARE(
            log.lines(),
            QStringList({ logged("https://download.tarnwick.example/") + ' ' + logged("patch.ini"),
                          logged(app + "\\Settings\\patch.ini"), "Case4: File Download",
                          "check if hashEquals",
                          "file:  " + logged(cached + "/live/Data\\/a.mpq")
                              + "  with hash:  \"\"  is already up-to-date",
                          "Client UpdateQueue size:  0", "Case2: Folder create",
                          logged(cached + "\\live\\Data\\\\AddOns") }));
    }

    void theLogOfAnInstallation()
    {
        SettingsHandler::addClient("A", "a.test", "C:\\home\\player\\Halden Launcher\\game", false);
        writeFile(app + "/game/Data/a.mpq", "old");
        writeFile(app + "/ClientDataStorage/live/Data/a.mpq", "new");
        writeFile(app + "/Settings/patch.ini", fileAndFolder);
        const LogCapture log;
        UpdatingProcedures run(nullptr);
        run.copyPatchedFilesIntoClient();
        const QString game = "C:\\home\\player\\Halden Launcher\\game";
        QCOMPARE(
            log.lines(),
            QStringList({ "now copy Data into Client",
                          "found  " + logged("a.mpq") + "  in  " + logged(game + "/Data\\"),
                          "combined path+filename:  " + logged(game + "/Data\\\\a.mpq"),
                          "result of deletion:  true",
                          "could not write file  " + logged("a.mpq") + "  into  "
                              + logged(game + "/Data\\"),
                          "1   true   false   " + logged("Data\\"), "Case2: Folder create",
                          "realm:  1 " + logged(game) + " '\\' " + logged("Data\\\\") + ' '
                              + logged("AddOns") }));
        QCOMPARE(readFile(app + "/game/Data/a.mpq"), "new");
        QVERIFY(QDir(app + "/game/Data/AddOns").exists());
    }

    void aDownloadJoinsFolderAndNameByABackslash()
    {
        HttpsServer server;
        server.listen();
        server.answer("/f", HttpAnswer::ok("new"));
        DownloadProbe probe("f");
        probe.folder = app + "/target";
        QVERIFY(QDir().mkpath(probe.folder));
        probe.start(onDownloadHost("/f"));
        QSignalSpy written(probe.downloader, SIGNAL(filePreWriteFinished(QString,QString)));
        QTRY_COMPARE(written.size(), 1);
        QCOMPARE(written.constFirst().constFirst().toString(), app + "/target\\");
        QTRY_COMPARE(readFile(app + "/target/f"), "new");
    }

    void aClientFolderIsFoundEitherWay_data()
    {
        QTest::addColumn<QString>("path");
        QTest::newRow("backslashes") << "C:\\home\\player\\Halden Launcher\\game";
        QTest::newRow("slashes") << "C:/home/player/Halden Launcher/game";
        QTest::newRow("another case") << "c:\\HOME\\Player\\halden launcher\\GAME";
        QTest::newRow("separator at the end") << "C:\\home\\player\\Halden Launcher\\game\\";
    }

    void aClientFolderIsFoundEitherWay()
    {
        QFETCH(QString, path);
        makeClientFolder(ApplicationFolder::path("game"));
        const AddClientDialog dialog("A", "a.test", path, false, nullptr);
        QVERIFY(dialog.checkClientPath(path));
        QVERIFY(!dialog.checkClientPath(path + "x"));
    }

    void theRealmlistOfABackslashedClientIsWritten()
    {
        QVERIFY(QDir().mkpath(ApplicationFolder::path("Größe Zwei/Data/deDE")));
        writeRealmsIni(twoEntries("C:\\\\home\\\\player\\\\Halden Launcher\\\\Größe Zwei"));
        const MainWindowUnderTest window;
        QVERIFY(window.settle(2));
        window.show();
        pick(window.selector(), 1);
        QCOMPARE(
            readFile(ApplicationFolder::path("Größe Zwei/Data/deDE/realmlist.wtf")),
            "set realmlist two.test");
    }

    void theGameOfABackslashedClientIsStarted()
    {
        const QString report = ApplicationFolder::path("started.txt");
        QVERIFY(QDir().mkpath(ApplicationFolder::path("Größe Zwei")));
        placeReporter(ApplicationFolder::path("Größe Zwei/patched_wow.exe"), report);
        writeRealmsIni(twoEntries("C:\\\\home\\\\player\\\\Halden Launcher\\\\Größe Zwei"));
        const MainWindowUnderTest window;
        QVERIFY(window.settle(2));
        window.show();
        click(window.get(), "pushButton_StartWoW");
        QTRY_COMPARE(
            reportedStarts(report),
            QList<QStringList>{ QStringList({ app + "/Größe Zwei/patched_wow.exe", app }) });
    }

    /// A drive letter is taken for a scheme and a backslash for a letter; the
    /// path goes to the shell as it stands.
    void theClientFolderIsOpenedAsItStands_data()
    {
        QTest::addColumn<QByteArray>("path");
        QTest::addColumn<QString>("url");
        QTest::newRow("slashes") << QByteArray("C:/Spiele/WoW") << "c:/Spiele/WoW";
        QTest::newRow("backslashes") << QByteArray("C:\\\\Spiele\\\\WoW") << "c:%5CSpiele%5CWoW";
        QTest::newRow("umlaut and blank") << QByteArray("C:/Für mich") << "c:/F%C3%BCr%20mich";
    }

    void theClientFolderIsOpenedAsItStands()
    {
        QFETCH(QByteArray, path);
        QFETCH(QString, url);
        writeRealmsIni(twoEntries(path));
        const MainWindowUnderTest window;
        QVERIFY(window.settle(2));
        window.show();
        const Shell shell;
        click(window.get(), "pushButton_Open_Client");
        QCOMPARE(shell.opened, QStringList(url));
    }

    void theSettingsFolderIsOpenedWithSlashes()
    {
        writeRealmsIni(twoEntries("C:/WoW"));
        const MainWindowUnderTest window;
        QVERIFY(window.settle(2));
        window.show();
        const qsizetype before = window.log.lines().size();
        const Shell shell;
        click(window.get(), "pushButton_Open_SettingsFolder");
        QCOMPARE(shell.opened, QStringList("c:/home/player/Halden%20Launcher/Settings"));
        QCOMPARE(
            window.log.lines().sliced(before),
            QStringList("test \"C:/home/player/Halden Launcher\\\\Settings\""));
    }
};

HALDEN_TEST_MAIN(tst_NativePaths)
#include "tst_nativepaths.moc"
