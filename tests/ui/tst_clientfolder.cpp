#include "tests/support/applicationfolder.h"
#include "tests/support/modalanswers.h"
#include "tests/support/testmain.h"
#include "tests/support/widgets.h"
#include "tests/ui/addclientdialogundertest.h"
#include "ui/addclientdialog.h"

#include <QClipboard>
#include <QDir>
#include <QFile>
#include <QFileDialog>
#include <QLineEdit>

using namespace TestSupport;

namespace {

void pressFolderButton(const DialogPointer& dialog)
{
    click(dialog.get(), "pushButton_SelectPath");
}

/// Chooses this folder in the folder chooser. The path is pasted: while one is
/// typed, the chooser completes it from folders that it is still reading.
ModalAnswers::Answer choose(const QString& folder)
{
    return [folder](QDialog* chooser) {
        auto* edit = child<QLineEdit>(chooser, "fileNameEdit");
        QApplication::clipboard()->setText(folder);
        edit->selectAll();
        QTest::keySequence(edit, QKeySequence::Paste);
        click(chooser, QDialogButtonBox::Open);
    };
}

void cancelChooser(QDialog* chooser)
{
    click(chooser, QDialogButtonBox::Cancel);
}

} // namespace

/// The dialog's folder button, the folder chooser and the check of the folder.
class tst_ClientFolder : public QObject {
    Q_OBJECT

private slots:
    void init()
    {
        ApplicationFolder::clear();
        failOnWarnings();
    }

    void clientFolderNeedsProgramAndData_data()
    {
        QTest::addColumn<QString>("contents");
        QTest::addColumn<QString>("suffix");
        QTest::addColumn<bool>("good");
        QTest::newRow("both") << "wd"
                              << "" << true;
        QTest::newRow("both, separator at the end") << "wd"
                                                    << "/" << true;
        QTest::newRow("both, dotted") << "wd"
                                      << "/../client" << true;
        QTest::newRow("program only") << "w"
                                      << "" << false;
        QTest::newRow("data only") << "d"
                                   << "" << false;
        QTest::newRow("neither") << ""
                                 << "" << false;
        QTest::newRow("no such folder") << "wd"
                                        << "/nowhere" << false;
        QTest::newRow("the program itself") << "wd"
                                            << "/wow.exe" << false;
        QTest::newRow("blank at the end") << "wd"
                                          << " " << false;
    }

    void clientFolderNeedsProgramAndData()
    {
        QFETCH(QString, contents);
        QFETCH(QString, suffix);
        makeFolderWith(contents);
        const AddClientDialog dialog("", "", "", false, nullptr);
        QTEST(dialog.checkClientPath(clientFolder() + suffix), "good");
    }

#ifndef Q_OS_WIN // they are not
    void clientFolderNamesAreCaseSensitiveHere()
    {
        writeFile(clientFolder() + "/WoW.exe", "MZ");
        QDir().mkpath(clientFolder() + "/Data");
        const AddClientDialog dialog("", "", "", false, nullptr);
        QVERIFY(!dialog.checkClientPath(clientFolder()));
    }
#endif

    /// The path is put before the separator as it stands.
    void emptyFolderStandsForTheRoot()
    {
        const AddClientDialog dialog("", "", "", false, nullptr);
        QVERIFY(!dialog.checkClientPath(""));
        makeClientFolder("");
        const bool accepted = dialog.checkClientPath("");
        QVERIFY(QFile::remove("/wow.exe") && QDir("/").rmdir("Data"));
        QVERIFY(accepted);
    }

    void folderChooserIsTheToolkitsOwn()
    {
        const auto dialog = open("Halden", "logon.test", "");
        ModalAnswers player({ [&dialog](QDialog* opened) {
            auto* chooser = qobject_cast<QFileDialog*>(opened);
            QVERIFY2(chooser, "the folder button must open a file dialog");
            QCOMPARE(chooser->parent(), dialog.get());
            QCOMPARE(chooser->fileMode(), QFileDialog::Directory);
            QVERIFY(chooser->testOption(QFileDialog::DontUseNativeDialog));
            QCOMPARE(chooser->directory().absolutePath(), QDir::currentPath());
            chooser->reject();
        } });
        pressFolderButton(dialog);
        QVERIFY(player.allGiven());
        QVERIFY2(!dialog->findChild<QFileDialog*>(), "the chooser is gone afterwards");
    }

    void choosingAFolderTakesAndChecksIt_data()
    {
        QTest::addColumn<QString>("contents");
        QTest::addColumn<bool>("good");
        QTest::newRow("client") << "wd" << true;
        QTest::newRow("without Data") << "w" << false;
        QTest::newRow("without wow.exe") << "d" << false;
    }

    void choosingAFolderTakesAndChecksIt()
    {
        QFETCH(QString, contents);
        QFETCH(bool, good);
        makeFolderWith(contents);
        const auto dialog = open("Halden", "logon.test", "before");
        ModalAnswers player({ choose(clientFolder()) });
        pressFolderButton(dialog);
        QVERIFY(player.allGiven());
        QCOMPARE(dialog->getClientPath(), clientFolder());
        QCOMPARE(field(dialog, pathField)->text(), clientFolder());
        QCOMPARE(isShown(dialog, pathLabel), !good);
        QVERIFY(!isShown(dialog, generalLabel));
    }

    void cancellingTheChooserChecksTheCurrentFolder_data()
    {
        QTest::addColumn<QString>("contents");
        QTest::addColumn<bool>("good");
        QTest::newRow("client") << "wd" << true;
        QTest::newRow("without Data") << "w" << false;
    }

    void cancellingTheChooserChecksTheCurrentFolder()
    {
        QFETCH(QString, contents);
        QFETCH(bool, good);
        makeFolderWith(contents);
        const auto dialog = open("Halden", "logon.test", clientFolder());
        field(dialog, pathField)->setText("not taken");
        ModalAnswers player({ cancelChooser });
        pressFolderButton(dialog);
        QCOMPARE(isShown(dialog, pathLabel), !good);
        QCOMPARE(dialog->getClientPath(), clientFolder());
        QCOMPARE(field(dialog, pathField)->text(), clientFolder());
    }

    void folderLabelComesAndGoes()
    {
        makeClientFolder(clientFolder());
        QDir().mkpath(ApplicationFolder::path("empty"));
        const auto dialog = open("Halden", "logon.test", "");
        ModalAnswers player(
            { choose(ApplicationFolder::path("empty")), choose(clientFolder()), cancelChooser });
        pressFolderButton(dialog);
        QVERIFY(isShown(dialog, pathLabel));
        pressFolderButton(dialog);
        QVERIFY(!isShown(dialog, pathLabel));
        QVERIFY(QFile::remove(clientFolder() + "/wow.exe"));
        pressFolderButton(dialog);
        QVERIFY(isShown(dialog, pathLabel));
    }

    void typedFolderIsTakenWhenTheFolderButtonIsPressed()
    {
        const auto dialog = open("Halden", "logon.test", "");
        type(field(dialog, pathField), makeClientFolder(clientFolder()));
        ModalAnswers player({ cancelChooser });
        pressFolderButton(dialog);
        QCOMPARE(dialog->getClientPath(), clientFolder());
        QVERIFY(!isShown(dialog, pathLabel));
    }

    void okMindsTheFolderAndNotTheLastCheck()
    {
        const auto dialog = openComplete();
        ModalAnswers player({ choose(clientFolder()), choose(clientFolder()) });
        pressFolderButton(dialog);
        QVERIFY(QDir(clientFolder()).rmdir("Data"));
        pressOk(dialog);
        QVERIFY2(dialog->isVisible(), "the folder was good when it was chosen, but is no more");
        pressFolderButton(dialog);
        QVERIFY(isShown(dialog, pathLabel));
        QVERIFY(QDir(clientFolder()).mkdir("Data"));
        pressOk(dialog);
        QVERIFY2(!dialog->isVisible(), "the folder is good now, whatever the label says");
    }

    void complaintStaysUntilTheDialogCloses()
    {
        const auto dialog = open("Halden", "logon.test", "");
        pressOk(dialog);
        type(field(dialog, pathField), makeClientFolder(clientFolder()));
        QTest::keyClick(field(dialog, pathField), Qt::Key_Tab);
        QVERIFY2(isShown(dialog, generalLabel), "nothing hides the label again");
        ModalAnswers player({ choose(clientFolder()) });
        pressFolderButton(dialog);
        QVERIFY2(isShown(dialog, generalLabel), "nothing hides the label again");
        pressOk(dialog);
        QCOMPARE(dialog->result(), int(QDialog::Accepted));
    }
};

HALDEN_TEST_MAIN(tst_ClientFolder)
#include "tst_clientfolder.moc"
