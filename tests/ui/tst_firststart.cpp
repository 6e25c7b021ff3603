#include "app/constants.h"
#include "tests/support/applicationfolder.h"
#include "tests/support/httpsserver.h"
#include "tests/support/mainwindowundertest.h"
#include "tests/support/modalanswers.h"
#include "tests/support/realmsini.h"
#include "tests/support/reporter.h"
#include "tests/support/testmain.h"
#include "tests/support/widgets.h"
#include "ui/addclientdialog.h"

#include <QCheckBox>
#include <QComboBox>
#include <QDir>
#include <QFile>
#include <QLabel>
#include <QLineEdit>
#include <QPointer>
#include <QPushButton>
#include <QTextBrowser>
#include <QTimer>

#include <functional>

using namespace TestSupport;

namespace {

constexpr int exitCodeOfTheTest = 7;

QString clientFolder()
{
    return makeClientFolder(ApplicationFolder::path("games/WoW"));
}

QStringList prefilled(const QDialog* dialog)
{
    QStringList texts;
    for (const char* name : { "lineEdit_RealmName", "lineEdit_RealmURL", "lineEdit_RealmPath" })
        texts.append(child<QLineEdit>(dialog, name)->text());
    return texts;
}

/// Moves on with the tab key until the widget of this name has the focus.
void tabTo(const QDialog* dialog, const QString& name)
{
    const auto* target = child<QWidget>(dialog, name);
    for (int i = 0; i < 20 && !target->hasFocus(); ++i)
        QTest::keyClick(dialog->focusWidget(), Qt::Key_Tab);
    QVERIFY2(target->hasFocus(), qPrintable("The tab key does not lead to " + name));
}

/// Tabs to a line edit, which selects its text, and types over it.
void overtype(const QDialog* dialog, const QString& name, const QString& text)
{
    tabTo(dialog, name);
    QTest::keyClicks(dialog->focusWidget(), text);
}

void cancel(const MainWindowUnderTest&, QDialog* dialog)
{
    click(dialog, QDialogButtonBox::Cancel);
}

/// Runs the program's own event loop until `window` has settled. Ends with
/// another code when something else has ended the loop before.
int runUntilSettled(const MainWindowUnderTest& window)
{
    QTimer watch;
    QObject::connect(&watch, &QTimer::timeout, [&window] {
        if (window.startedRuns() > 0 && window.startedRuns() == window.endedRuns())
            QCoreApplication::exit(exitCodeOfTheTest);
    });
    watch.start(0);
    return QApplication::exec();
}

} // namespace

class tst_FirstStart : public MainWindowTest {
    Q_OBJECT

private slots:
    void asksForAClientInsideTheConstructor()
    {
        QPointer<QDialog> question;
        const MainWindowUnderTest window([&](const MainWindowUnderTest&, QDialog* dialog) {
            question = dialog;
            QVERIFY(qobject_cast<AddClientDialog*>(dialog));
            QVERIFY(dialog->isVisible() && dialog->isModal());
            QCOMPARE(dialog->parent(), nullptr);
            QCOMPARE(prefilled(dialog), (QStringList{ "Tarnwick", "tarnwick.example", "" }));
            QVERIFY(child<QCheckBox>(dialog, "checkBox_TestRealm")->isHidden());
            for (const QWidget* widget : QApplication::topLevelWidgets())
                QVERIFY2(widget == dialog || !widget->isVisible(), "The window shows already");
            dialog->reject();
        });
        QVERIFY2(!question, "The dialog outlived the question");
    }

    void asksOnlyWithoutAStore_data()
    {
        QTest::addColumn<QByteArray>("store");
        QTest::newRow("one entry") << realmsIniWith({ { "One" } }, "realmid=1\n");
        QTest::newRow("no entries") << QByteArray("[realms]\nsize=0\n");
        QTest::newRow("empty file") << QByteArray("");
    }

    void asksOnlyWithoutAStore()
    {
        QFETCH(QByteArray, store);
        writeRealmsIni(store);
        const ModalAnswers noQuestion;
        const MainWindowUnderTest window;
        QVERIFY(window.settle(2));
        QCOMPARE(noQuestion.opened(), 0);
    }

    void theKeyboardIsEnough()
    {
        const QString folder = clientFolder();
        const MainWindowUnderTest window([&](const MainWindowUnderTest&, QDialog* dialog) {
            overtype(dialog, "lineEdit_RealmName", "Meine Welt");
            overtype(dialog, "lineEdit_RealmURL", "welt.test");
            overtype(dialog, "lineEdit_RealmPath", folder);
            QTest::keyClick(dialog->focusWidget(), Qt::Key_Tab);
            auto* ok = child<QDialogButtonBox>(dialog, "buttonBox")->button(QDialogButtonBox::Ok);
            QTest::keyClick(ok, Qt::Key_Return);
        });
        const QMap<QString, QByteArray> expected{ { "realms/size", "1" },
                                                  { "realms/1-realmName", "Meine Welt" },
                                                  { "realms/1-realmHost", "welt.test" },
                                                  { "realms/1-clientPath", folder.toUtf8() },
                                                  { "realms/1-testRealm", "false" },
                                                  { "realms/1-language", "deDE" },
                                                  { "selected_realm/realmid", "1" } };
        QCOMPARE(realmsIniValues(), expected);
    }

    /// The constructor itself brings the window in line with the new entry; no
    /// event loop has run since.
    void theNewEntryIsThereAtOnce()
    {
        const QString folder = clientFolder();
        const MainWindowUnderTest window([&](const MainWindowUnderTest&, QDialog* dialog) {
            type(child<QLineEdit>(dialog, "lineEdit_RealmPath"), folder);
            click(dialog, QDialogButtonBox::Ok);
        });
        QCOMPARE(window.selector()->currentText(), "Tarnwick");
        QVERIFY(!window.button("StartWoW")->isHidden());
        QVERIFY(!window.button("RemoveClient")->isHidden());
        QVERIFY(window.selector()->isHidden());
    }

    void okWithoutAFolderKeepsAsking()
    {
        const MainWindowUnderTest window([](const MainWindowUnderTest&, QDialog* dialog) {
            click(dialog, QDialogButtonBox::Ok);
            QVERIFY(dialog->isVisible());
            QVERIFY(child<QLabel>(dialog, "label_UserInteractionError_general")->isVisible());
            dialog->reject();
        });
        QVERIFY(!QFile::exists(realmsIniPath()));
    }

    void leavingTheQuestionWritesNothing_data()
    {
        QTest::addColumn<std::function<void(QDialog*)>>("leave");
        using Leave = std::function<void(QDialog*)>;
        QTest::newRow("cancel") << Leave(
            [](QDialog* dialog) { click(dialog, QDialogButtonBox::Cancel); });
        QTest::newRow("escape") << Leave(
            [](QDialog* dialog) { QTest::keyClick(dialog, Qt::Key_Escape); });
        QTest::newRow("close") << Leave([](QDialog* dialog) { dialog->close(); });
    }

    void leavingTheQuestionWritesNothing()
    {
        QFETCH(std::function<void(QDialog*)>, leave);
        const MainWindowUnderTest window(
            [&leave](const MainWindowUnderTest&, QDialog* dialog) { leave(dialog); });
        window.show();
        QVERIFY(QDir(ApplicationFolder::path("Settings")).exists());
        QVERIFY(!QFile::exists(realmsIniPath()));
        QVERIFY(!window.button("StartWoW")->isVisible());
        QVERIFY(!window.button("RemoveClient")->isVisible());
        QVERIFY(window.button("AddClient")->isVisible());
    }

    void asksAgainAtTheNextStart()
    {
        for (int start = 0; start < 2; ++start)
            const MainWindowUnderTest window(cancel);
    }

    void theUpdatesGoOnWhileTheQuestionIsOpen()
    {
        HttpsServer server;
        server.answer("/alert", HttpAnswer::ok("<b>Welcome</b>"));
        server.answer("/patch.ini", HttpAnswer::ok("numberOfFiles=0\n"));
        server.listen();
        const MainWindowUnderTest window([&](const MainWindowUnderTest& half, QDialog* dialog) {
            QVERIFY(half.settle(2));
            QCOMPARE(server.requestCount("/alert"), 1);
            QCOMPARE(server.requestCount("/patch.ini"), 2);
            QCOMPARE(readFile(ApplicationFolder::path("Settings/patch.ini")), "numberOfFiles=0\n");
            QVERIFY2(dialog->isVisible(), "The updates closed the question");
            dialog->reject();
        });
        QCOMPARE(window.startedRuns(), 2);
        QCOMPARE(window.infoBrowser()->toPlainText(), "Welcome");
        QVERIFY(!window.infoBrowser()->isHidden());
    }

    /// The buttons follow the updates although nobody sees the window yet.
    void theFlagsWorkWhileTheQuestionIsOpen()
    {
        HttpsServer server;
        server.answer("/patch.ini", HttpAnswer());
        server.listen();
        const MainWindowUnderTest window([&](const MainWindowUnderTest&, QDialog* dialog) {
            QTRY_COMPARE(server.requestCount("/patch.ini"), 2);
            dialog->reject();
        });
        QVERIFY(window.button("AddClient")->isEnabled());
        QVERIFY2(!window.button("StartWoW")->isEnabled(), "The clients are not ready yet");
        server.shutDown();
        QTRY_VERIFY(window.button("StartWoW")->isEnabled());
    }

    /// Before the program's own event loop runs there is nothing to end.
    void quittingDuringTheQuestionChangesNothing()
    {
        const MainWindowUnderTest window([](const MainWindowUnderTest& half, QDialog* dialog) {
            QCoreApplication::quit();
            QVERIFY(half.settle(2));
            QVERIFY2(dialog->isVisible(), "The question vanished");
            dialog->reject();
        });
        window.show();
        emit window->update();
        QCOMPARE(runUntilSettled(window), exitCodeOfTheTest);
        QVERIFY(window->isVisible());
    }

    /// A waiting launcher is handed over, but the program stays.
    void theHandOverDuringTheQuestionDoesNotEndTheProgram()
    {
        const QString report = ApplicationFolder::path("updater.txt");
        placeReporter(ApplicationFolder::path("Halden-Launcher-Updater.exe"), report);
        writeFile(ApplicationFolder::path("Halden-Launcher.tmp"), "new");
        const QString ownId = QString::number(QCoreApplication::applicationPid());
        const MainWindowUnderTest window([&](const MainWindowUnderTest& half, QDialog* dialog) {
            QTRY_COMPARE(reportedStarts(report).size(), 2);
            for (const QStringList& start : reportedStarts(report))
                QCOMPARE(start.sliced(2), QStringList(ownId));
            QVERIFY(half.settle(2));
            QVERIFY2(dialog->isVisible(), "The question vanished");
            dialog->reject();
        });
        window.show();
        QVERIFY(window->isVisible());
    }

    void closingTheQuestionDoesNotEndTheProgram()
    {
        const MainWindowUnderTest window(
            [](const MainWindowUnderTest&, QDialog* dialog) { dialog->close(); });
        window.show();
        QCOMPARE(runUntilSettled(window), exitCodeOfTheTest);
        QVERIFY(window->isVisible());
    }

    void closingTheWindowEndsTheProgram()
    {
        const MainWindowUnderTest window(cancel);
        QVERIFY(window.settle(2));
        window.show();
        QTimer::singleShot(0, window.get(), &QWidget::close);
        QCOMPARE(QApplication::exec(), 0);
    }
};

HALDEN_TEST_MAIN(tst_FirstStart)
#include "tst_firststart.moc"
