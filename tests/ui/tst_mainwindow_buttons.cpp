#include "tests/support/applicationfolder.h"
#include "tests/support/mainwindowundertest.h"
#include "tests/support/modalanswers.h"
#include "tests/support/realmsini.h"
#include "tests/support/testmain.h"
#include "tests/support/widgets.h"
#include "ui/addclientdialog.h"
#include "ui/editclientselectdialog.h"
#include "ui/removeclientdialog.h"

#include <QComboBox>
#include <QDesktopServices>
#include <QDir>
#include <QFile>
#include <QLabel>
#include <QLineEdit>
#include <QProcess>
#include <QProcessEnvironment>
#include <QProgressBar>
#include <QPushButton>
#include <QUrl>

#include <cstdio>

using namespace TestSupport;

namespace {

/// Stands in for the desktop's file manager, for URLs of one scheme.
class FolderRecorder : public QObject {
    Q_OBJECT

public:
    explicit FolderRecorder(const QString& ofScheme = QString())
        : scheme(ofScheme)
    {
        QDesktopServices::setUrlHandler(scheme, this, "record");
    }
    ~FolderRecorder() override
    {
        QDesktopServices::unsetUrlHandler(scheme);
    }

    QList<QUrl> opened;

public slots:
    void record(const QUrl& url)
    {
        opened.append(url);
    }

private:
    QString scheme;
};

QString clientFolder(const QString& name)
{
    return makeClientFolder(ApplicationFolder::path("games/" + name));
}

QByteArray threeEntries(const QByteArray& selected = "1")
{
    QList<RealmEntry> entries;
    for (const char* name : { "One", "Two", "Three" }) {
        const QByteArray host = QByteArray(name).toLower() + ".test";
        entries.append({ name, host, clientFolder(name).toUtf8() });
    }
    return realmsIniWith(entries, "realmid=" + selected + '\n');
}

QStringList items(const QComboBox* list)
{
    QStringList result;
    for (int i = 0; i < list->count(); ++i)
        result.append(list->itemText(i));
    return result;
}

void fillIn(QDialog* dialog, const QString& name, const QString& host, const QString& folder)
{
    type(child<QLineEdit>(dialog, "lineEdit_RealmName"), name);
    type(child<QLineEdit>(dialog, "lineEdit_RealmURL"), host);
    type(child<QLineEdit>(dialog, "lineEdit_RealmPath"), folder);
}

ModalAnswers::Answer confirmed(QDialogButtonBox::StandardButton button)
{
    return [button](QDialog* dialog) {
        click(dialog, button);
    };
}

/// Picks a row of a selection dialog, then presses one of its buttons.
ModalAnswers::Answer picked(int row, QDialogButtonBox::StandardButton button)
{
    return [row, button](QDialog* dialog) {
        pick(child<QComboBox>(dialog, "comboBox_RemoveClient"), row);
        click(dialog, button);
    };
}

/// Every dialog of the window stands for itself: it has no parent.
template <typename Dialog> void requireParentless(const QDialog* dialog)
{
    QVERIFY2(qobject_cast<const Dialog*>(dialog), dialog->metaObject()->className());
    QCOMPARE(dialog->parent(), nullptr);
}

#ifndef Q_OS_WIN // where no folder has a backslash in its name
// The folder of this program itself has no backslash in its name, so a copy of
// it elsewhere presses the button.
const char openSettingsElsewhere[] = "HALDEN_TEST_OPEN_SETTINGS_ELSEWHERE";

/// Presses "Open Settings Folder" and prints the URL that the desktop is given.
int openSettingsFolder()
{
    const FolderRecorder desktop;
    MainWindow window;
    window.show();
    click(&window, "pushButton_Open_SettingsFolder");
    for (const QUrl& url : desktop.opened)
        std::puts(url.toEncoded().constData());
    return 0;
}

/// Runs a copy of this program in `folder` and waits for its end.
void runElsewhere(QProcess& copy, const QString& folder)
{
    writeFile(folder + "/Settings/realms.ini", "[realms]\nsize=0\n");
    const QString program = folder + "/copy";
    QVERIFY(QFile::copy(QCoreApplication::applicationFilePath(), program));
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert(openSettingsElsewhere, "1");
    copy.setProcessEnvironment(environment);
    copy.start(program);
    QVERIFY2(copy.waitForFinished(), qPrintable(copy.errorString()));
    QCOMPARE(copy.exitCode(), 0);
}
#endif

constexpr auto Ok = QDialogButtonBox::Ok;
constexpr auto Cancel = QDialogButtonBox::Cancel;

} // namespace

class tst_MainWindow_buttons : public QObject {
    Q_OBJECT

private slots:
    void init()
    {
        ApplicationFolder::clear();
    }

    void theButtonsAnswerMouseAndKeyboard_data()
    {
        QTest::addColumn<bool>("mouse");
        QTest::newRow("mouse") << true;
        QTest::newRow("keyboard") << false;
    }

    void theButtonsAnswerMouseAndKeyboard()
    {
        QFETCH(bool, mouse);
        writeRealmsIni(threeEntries());
        const MainWindowUnderTest window;
        QVERIFY(window.settle(2));
        window.show();
        for (const char* name : { "AddClient", "EditClient", "RemoveClient" }) {
            const ModalAnswers answers({ confirmed(Cancel) });
            if (mouse)
                QTest::mouseClick(window.button(name), Qt::LeftButton);
            else
                QTest::keyClick(window.button(name), Qt::Key_Space);
            QVERIFY2(answers.allGiven(), name);
        }
    }

    void theEntryButtonsSleepDuringTheLauncherCheck()
    {
        writeRealmsIni(threeEntries());
        const MainWindowUnderTest window;
        QVERIFY(window.settle(2));
        window.show();
        emit window->update();
        const ModalAnswers noDialog;
        for (const char* name : { "AddClient", "EditClient", "RemoveClient" })
            QTest::mouseClick(window.button(name), Qt::LeftButton);
        QVERIFY(window.settle(4));
        QCOMPARE(noDialog.opened(), 0);
    }

    void addsAnEntry()
    {
        const QString folder = clientFolder("Four");
        writeRealmsIni(threeEntries("2"));
        const MainWindowUnderTest window;
        QVERIFY(window.settle(2));
        window.show();
        const ModalAnswers answers({ [&](QDialog* dialog) {
            requireParentless<AddClientDialog>(dialog);
            QCOMPARE(child<QLineEdit>(dialog, "lineEdit_RealmName")->text(), "Tarnwick");
            QCOMPARE(child<QLineEdit>(dialog, "lineEdit_RealmURL")->text(), "tarnwick.example");
            QCOMPARE(child<QLineEdit>(dialog, "lineEdit_RealmPath")->text(), "");
            fillIn(dialog, "Four", "four.test", folder);
            click(dialog, Ok);
        } });
        click(window.get(), "pushButton_AddClient");
        QVERIFY(answers.allGiven());
        QCOMPARE(storedRealmNames(), (QStringList{ "One", "Two", "Three", "Four" }));
        QCOMPARE(items(window.selector()), storedRealmNames());
        QCOMPARE(window.selector()->currentText(), "Two");
        QCOMPARE(realmsIniValues().value("realms/4-realmHost"), "four.test");
        QCOMPARE(realmsIniValues().value("realms/4-clientPath"), folder.toUtf8());
    }

    void theFirstEntryBringsTheButtons()
    {
        const QString folder = clientFolder("One");
        writeRealmsIni("[realms]\nsize=0\n");
        const MainWindowUnderTest window;
        QVERIFY(window.settle(2));
        window.show();
        QVERIFY(!window.button("StartWoW")->isVisible());
        const ModalAnswers answers({ [&](QDialog* dialog) {
            fillIn(dialog, "One", "one.test", folder);
            click(dialog, Ok);
        } });
        click(window.get(), "pushButton_AddClient");
        QVERIFY(window.button("StartWoW")->isVisible());
        QVERIFY(window.button("RemoveClient")->isVisible());
        QVERIFY2(!window.selector()->isVisible(), "There is nothing to choose among");
        QCOMPARE(window.selector()->currentText(), "One");
    }

    void editsAnEntry()
    {
        writeRealmsIni(threeEntries("3"));
        const QString folder = clientFolder("elsewhere");
        const MainWindowUnderTest window;
        QVERIFY(window.settle(2));
        window.show();
        const ModalAnswers answers(
            { [](QDialog* dialog) {
                 requireParentless<editClientSelectDialog>(dialog);
                 picked(1, Ok)(dialog);
             },
              [&](QDialog* dialog) {
                  requireParentless<AddClientDialog>(dialog);
                  QCOMPARE(child<QLineEdit>(dialog, "lineEdit_RealmName")->text(), "Two");
                  fillIn(dialog, "Second", "second.test", folder);
                  click(dialog, Ok);
              } });
        click(window.get(), "pushButton_EditClient");
        QVERIFY(answers.allGiven());
        QCOMPARE(items(window.selector()), (QStringList{ "One", "Second", "Three" }));
        QCOMPARE(window.selector()->currentText(), "Three");
        QCOMPARE(realmsIniValues().value("realms/2-realmHost"), "second.test");
    }

    void removesAnEntry_data()
    {
        QTest::addColumn<int>("row");
        QTest::addColumn<QByteArray>("selected");
        QTest::addColumn<QStringList>("left");
        QTest::addColumn<QString>("shown");
        QTest::newRow("first") << 0 << QByteArray("3") << QStringList{ "Two", "Three" } << "Three";
        QTest::newRow("second") << 1 << QByteArray("1") << QStringList{ "One", "Three" } << "One";
        QTest::newRow("last") << 2 << QByteArray("2") << QStringList{ "One", "Two" } << "Two";
        QTest::newRow("the selected one")
            << 2 << QByteArray("3") << QStringList{ "One", "Two" } << "One";
    }

    void removesAnEntry()
    {
        QFETCH(int, row);
        QFETCH(QByteArray, selected);
        QFETCH(QStringList, left);
        QFETCH(QString, shown);
        writeRealmsIni(threeEntries(selected));
        const MainWindowUnderTest window;
        QVERIFY(window.settle(2));
        window.show();
        const ModalAnswers answers({ [row](QDialog* dialog) {
            requireParentless<RemoveClientDialog>(dialog);
            picked(row, Ok)(dialog);
        } });
        click(window.get(), "pushButton_RemoveClient");
        QVERIFY(answers.allGiven());
        QCOMPARE(storedRealmNames(), left);
        QCOMPARE(items(window.selector()), left);
        QCOMPARE(window.selector()->currentText(), shown);
    }

    void removesTheShownEntryWhenNoneWasPicked()
    {
        writeRealmsIni(threeEntries("3"));
        const MainWindowUnderTest window;
        QVERIFY(window.settle(2));
        window.show();
        const ModalAnswers answers({ confirmed(Ok) });
        click(window.get(), "pushButton_RemoveClient");
        QCOMPARE(storedRealmNames(), (QStringList{ "Two", "Three" }));
    }

    void removingAllHidesTheButtons()
    {
        writeRealmsIni(realmsIniWith({ { "One" } }, "realmid=1\n"));
        const MainWindowUnderTest window;
        QVERIFY(window.settle(2));
        window.show();
        const ModalAnswers answers({ confirmed(Ok) });
        click(window.get(), "pushButton_RemoveClient");
        QVERIFY(!window.button("StartWoW")->isVisible());
        QVERIFY(!window.button("RemoveClient")->isVisible());
        QVERIFY(window.button("AddClient")->isVisible());
        QCOMPARE(realmsIniValues().value("selected_realm/realmid"), "0");
    }

    void aCancelledDialogWritesNothing_data()
    {
        QTest::addColumn<QString>("button");
        QTest::addColumn<QList<ModalAnswers::Answer>>("answers");
        QTest::addColumn<bool>("refreshes");
        using Answers = QList<ModalAnswers::Answer>;
        QTest::newRow("add") << "AddClient" << Answers{ confirmed(Cancel) } << true;
        QTest::newRow("edit, at the choice")
            << "EditClient" << Answers{ picked(1, Cancel) } << true;
        QTest::newRow("edit, at the form")
            << "EditClient" << Answers{ picked(1, Ok), confirmed(Cancel) } << true;
        QTest::newRow("remove") << "RemoveClient" << Answers{ picked(1, Cancel) } << false;
    }

    /// Adding and editing refresh the window in any case, removing does not.
    void aCancelledDialogWritesNothing()
    {
        QFETCH(QString, button);
        QFETCH(QList<ModalAnswers::Answer>, answers);
        QFETCH(bool, refreshes);
        const QByteArray edited = threeEntries("2").replace("=Three", "=Changed");
        writeRealmsIni(threeEntries("1"));
        const MainWindowUnderTest window;
        QVERIFY(window.settle(2));
        window.show();
        answers.prepend([&, first = answers.takeFirst()](QDialog* dialog) {
            writeRealmsIni(edited);
            first(dialog);
        });
        const ModalAnswers player(answers);
        click(window.get(), "pushButton_" + button);
        QVERIFY(player.allGiven());
        QCOMPARE(readFile(realmsIniPath()), edited);
        QCOMPARE(window.selector()->itemText(2), refreshes ? "Changed" : "Three");
    }

    void opensTheClientFolder_data()
    {
        QTest::addColumn<QByteArray>("path");
        QTest::addColumn<QString>("scheme");
        QTest::addColumn<QUrl>("url");
        QTest::newRow("plain") << QByteArray("/games/wow") << "" << QUrl("/games/wow");
        QTest::newRow("blanks and umlauts")
            << QByteArray("/Spiele/Für mich") << "" << QUrl("/Spiele/F%C3%BCr%20mich");
        QTest::newRow("not escaped again") << QByteArray("/a%20b") << "" << QUrl("/a%20b");
        QTest::newRow("a drive is taken for a scheme")
            << QByteArray("C:/Games/WoW") << "c" << QUrl("c:/Games/WoW");
        QTest::newRow("a file URL")
            << QByteArray("file:///games") << "file" << QUrl("file:///games");
    }

    void opensTheClientFolder()
    {
        QFETCH(QByteArray, path);
        QFETCH(QString, scheme);
        QFETCH(QUrl, url);
        writeRealmsIni(realmsIniWith({ { "One" }, { "Two", "two.test", path } }, "realmid=2\n"));
        const MainWindowUnderTest window;
        QVERIFY(window.settle(2));
        window.show();
        const FolderRecorder desktop(scheme);
        click(window.get(), "pushButton_Open_Client");
        QCOMPARE(desktop.opened, QList<QUrl>{ url });
    }

    void hasNoFolderToOpenWithoutASelection()
    {
        writeRealmsIni(realmsIniWith({ { "One" } }, "realmid=0\n"));
        const MainWindowUnderTest window;
        QVERIFY(window.settle(2));
        window.show();
        const FolderRecorder desktop;
        click(window.get(), "pushButton_Open_Client");
        QCOMPARE(desktop.opened, QList<QUrl>{ QUrl() });
    }

    void opensTheSettingsFolder()
    {
        writeRealmsIni(threeEntries());
        const MainWindowUnderTest window;
        QVERIFY(window.settle(2));
        window.show();
        const qsizetype before = window.log.lines().size();
        // A drive is taken for a scheme.
        const FolderRecorder desktop(QUrl(ApplicationFolder::path()).scheme());
        click(window.get(), "pushButton_Open_SettingsFolder");
        const QString folder = ApplicationFolder::path("Settings");
        QCOMPARE(
            withSlashes(window.log.lines().sliced(before)),
            QStringList{ "test \"" + folder + '"' });
        QCOMPARE(desktop.opened, QList<QUrl>{ QUrl(folder) });
        QCOMPARE(desktop.opened.constFirst().path(), "/home/player/Halden Launcher/Settings");
    }

#ifndef Q_OS_WIN
    void opensTheSettingsFolderWithSlashesOnly()
    {
        QProcess copy;
        runElsewhere(copy, ApplicationFolder::path("back\\slash"));
        QCOMPARE(
            copy.readAllStandardOutput(), "/home/player/Halden%20Launcher/back/slash/Settings\n");
        QVERIFY(copy.readAllStandardError().contains(
            "test \"/home/player/Halden Launcher/back\\\\slash/Settings\""));
    }
#endif

    void selectsByMouse()
    {
        writeRealmsIni(threeEntries("1"));
        const MainWindowUnderTest window;
        QVERIFY(window.settle(2));
        window.show();
        pick(window.selector(), 2);
        QCOMPARE(realmsIniValues().value("selected_realm/realmid"), "3");
        QCOMPARE(window.selector()->currentText(), "Three");
    }

    void selectsByKeyboard_data()
    {
        QTest::addColumn<int>("key");
        QTest::addColumn<QByteArray>("realmid");
        QTest::newRow("up") << int(Qt::Key_Up) << QByteArray("1");
        QTest::newRow("down") << int(Qt::Key_Down) << QByteArray("3");
        QTest::newRow("first") << int(Qt::Key_Home) << QByteArray("1");
        QTest::newRow("last") << int(Qt::Key_End) << QByteArray("3");
        QTest::newRow("initial letter") << int(Qt::Key_O) << QByteArray("1");
    }

    void selectsByKeyboard()
    {
        QFETCH(int, key);
        QFETCH(QByteArray, realmid);
        writeRealmsIni(threeEntries("2"));
        const MainWindowUnderTest window;
        QVERIFY(window.settle(2));
        window.show();
        QTest::keyClick(window.selector(), static_cast<Qt::Key>(key));
        QCOMPARE(realmsIniValues().value("selected_realm/realmid"), realmid);
    }

    /// Row 0 counts as entry 1 also when it is chosen again.
    void selectsTheShownEntryAgain()
    {
        writeRealmsIni(threeEntries("1"));
        const MainWindowUnderTest window;
        QVERIFY(window.settle(2));
        window.show();
        pick(window.selector(), 0);
        QCOMPARE(realmsIniValues().value("selected_realm/realmid"), "1");
        QVERIFY(!QFile::exists(clientFolder("One") + "/Data/deDE"));
    }

    void showsAndHidesTheDownload_data()
    {
        QTest::addColumn<QString>("name");
        QTest::newRow("a file") << "patch-4.MPQ";
        QTest::newRow("umlauts and blanks") << "Über alles.txt";
        QTest::newRow("no name") << "";
    }

    void showsAndHidesTheDownload()
    {
        QFETCH(QString, name);
        writeRealmsIni(threeEntries());
        const MainWindowUnderTest window;
        QVERIFY(window.settle(2));
        window.show();
        QVERIFY(QMetaObject::invokeMethod(
            window.get(), "setDownloadLabelAndProgressBar", Q_ARG(QString, name)));
        QCOMPARE(window.downloadLabel()->text(), "Current Download: " + name);
        QVERIFY(window.downloadLabel()->isVisible());
        QVERIFY(window.progressBar()->isVisible());
        QVERIFY(QMetaObject::invokeMethod(window.get(), "hideDownloadLabelAndProgressBar"));
        QVERIFY(!window.downloadLabel()->isVisible());
        QVERIFY(!window.progressBar()->isVisible());
    }

    void movesTheProgressBar_data()
    {
        QTest::addColumn<qint64>("received");
        QTest::addColumn<qint64>("total");
        QTest::addColumn<int>("value");
        QTest::newRow("half") << qint64(25) << qint64(50) << 50;
        QTest::newRow("all") << qint64(50) << qint64(50) << 100;
        QTest::newRow("nothing counts as one byte") << qint64(0) << qint64(50) << 2;
        QTest::newRow("rounded down") << qint64(2) << qint64(3) << 66;
        QTest::newRow("total unknown") << qint64(10) << qint64(0) << 42;
        QTest::newRow("negative total") << qint64(10) << qint64(-1) << 42;
        QTest::newRow("last without wrapping") << qint64(21'474'836) << qint64(21'474'836) << 100;
        QTest::newRow("wrapped below zero") << qint64(21'474'837) << qint64(30'000'000) << 42;
        QTest::newRow("wrapped around") << qint64(42'949'673) << qint64(42'949'673) << 0;
    }

    /// A value outside 0 to 100 leaves the bar where it was, at 42.
    void movesTheProgressBar()
    {
        QFETCH(qint64, received);
        QFETCH(qint64, total);
        QFETCH(int, value);
        writeRealmsIni(threeEntries());
        const MainWindowUnderTest window;
        QVERIFY(window.settle(2));
        window.progressBar()->setValue(42);
        QVERIFY(QMetaObject::invokeMethod(
            window.get(), "updateProgressBar", Q_ARG(qint64, received), Q_ARG(qint64, total)));
        QCOMPARE(window.progressBar()->value(), value);
    }
};

int main(int argc, char* argv[])
{
    TestSupport::settleEnvironment();
    const QApplication application(argc, argv);
#ifndef Q_OS_WIN
    if (qEnvironmentVariableIsSet(openSettingsElsewhere))
        endProcess(openSettingsFolder());
#endif
    endProcess(TestSupport::runTest<tst_MainWindow_buttons>(argc, argv));
}

#include "tst_mainwindow_buttons.moc"
