#include "tests/support/applicationfolder.h"
#include "tests/support/realmsini.h"
#include "tests/support/testmain.h"
#include "tests/support/widgets.h"
#include "tests/ui/addclientdialogundertest.h"
#include "ui/addclientdialog.h"

#include <QCheckBox>
#include <QFile>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QSignalSpy>

using namespace TestSupport;

namespace {

void addFieldRows()
{
    QTest::addColumn<QString>("name");
    QTest::newRow("realm name") << nameField;
    QTest::newRow("realm host") << hostField;
    QTest::newRow("client folder") << pathField;
}

} // namespace

/// Fields, values and the ways to close the dialog.
class tst_AddClientDialog : public QObject {
    Q_OBJECT

private slots:
    void init()
    {
        ApplicationFolder::clear();
        failOnWarnings();
    }

    void showsWhatItIsGiven()
    {
        const auto dialog = open("Größe", "logon.test", "/games/wow");
        QCOMPARE(field(dialog, nameField)->text(), "Größe");
        QCOMPARE(field(dialog, hostField)->text(), "logon.test");
        QCOMPARE(field(dialog, pathField)->text(), "/games/wow");
        QCOMPARE(values(dialog), QStringList({ "Größe", "logon.test", "/games/wow" }));
    }

    void startsWithoutComplaint()
    {
        const auto dialog = open("", "", "");
        QVERIFY(!isShown(dialog, generalLabel));
        QVERIFY(!isShown(dialog, pathLabel));
    }

    void isAnOrdinaryDialogOfItsParent()
    {
        QWidget parent;
        const AddClientDialog child("", "", "", false, &parent);
        QCOMPARE(child.parentWidget(), &parent);
        QCOMPARE(child.windowType(), Qt::Dialog);
        QVERIFY(open("", "", "")->parent() == nullptr);
    }

    void okAtOnceWithoutAFolderComplains()
    {
        const auto dialog = open("Tarnwick", "tarnwick.example", "");
        pressOk(dialog);
        QVERIFY(dialog->isVisible());
        QVERIFY(isShown(dialog, generalLabel));
        QVERIFY2(!isShown(dialog, pathLabel), "OK never shows the folder button's label");
    }

    void okChecksTheInput_data()
    {
        QTest::addColumn<QString>("realmName");
        QTest::addColumn<QString>("realmHost");
        QTest::addColumn<QString>("contents");
        QTest::addColumn<bool>("good");
        QTest::newRow("complete") << "Halden"
                                  << "logon.test"
                                  << "wd" << true;
        QTest::newRow("no name") << ""
                                 << "logon.test"
                                 << "wd" << false;
        QTest::newRow("no host") << "Halden"
                                 << ""
                                 << "wd" << false;
        QTest::newRow("nothing at all") << ""
                                        << ""
                                        << "" << false;
        QTest::newRow("blanks are a name") << " "
                                           << " "
                                           << "wd" << true;
        QTest::newRow("empty folder") << "Halden"
                                      << "logon.test"
                                      << "" << false;
        QTest::newRow("wow.exe without Data") << "Halden"
                                              << "logon.test"
                                              << "w" << false;
        QTest::newRow("Data without wow.exe") << "Halden"
                                              << "logon.test"
                                              << "d" << false;
        QTest::newRow("Data is a file") << "Halden"
                                        << "logon.test"
                                        << "wD" << false;
        QTest::newRow("wow.exe is a folder") << "Halden"
                                             << "logon.test"
                                             << "Wd" << true;
    }

    void okChecksTheInput()
    {
        QFETCH(QString, realmName);
        QFETCH(QString, realmHost);
        QFETCH(QString, contents);
        QFETCH(bool, good);
        makeFolderWith(contents);
        const auto dialog = open(realmName, realmHost, clientFolder());
        pressOk(dialog);
        QCOMPARE(dialog->isVisible(), !good);
        QCOMPARE(dialog->result() == QDialog::Accepted, good);
        QCOMPARE(child<QLabel>(dialog.get(), generalLabel)->isVisibleTo(dialog.get()), !good);
        QVERIFY(!child<QLabel>(dialog.get(), pathLabel)->isVisibleTo(dialog.get()));
    }

    void cancelRejects_data()
    {
        QTest::addColumn<bool>("complete");
        QTest::newRow("complete input") << true;
        QTest::newRow("incomplete input") << false;
    }

    void cancelRejects()
    {
        QFETCH(bool, complete);
        const auto dialog = complete ? openComplete() : open("", "", "");
        QSignalSpy finished(dialog.get(), &QDialog::finished);
        dialog->setResult(QDialog::Accepted);
        click(dialog.get(), QDialogButtonBox::Cancel);
        QCOMPARE(dialog->result(), int(QDialog::Rejected));
        QCOMPARE(finished.size(), 1);
        QVERIFY(!dialog->isVisible());
        QVERIFY(!child<QLabel>(dialog.get(), generalLabel)->isVisibleTo(dialog.get()));
    }

    void escapeRejects()
    {
        const auto dialog = openComplete();
        dialog->setResult(QDialog::Accepted);
        QTest::keyClick(dialog.get(), Qt::Key_Escape);
        QVERIFY(!dialog->isVisible());
        QCOMPARE(dialog->result(), int(QDialog::Rejected));
    }

    void acceptingFinishesOnce()
    {
        const auto dialog = openComplete();
        QSignalSpy finished(dialog.get(), &QDialog::finished);
        pressOk(dialog);
        QCOMPARE(finished, QList<QVariantList>({ { int(QDialog::Accepted) } }));
    }

    void typingAloneChangesNoValue_data()
    {
        addFieldRows();
    }

    void typingAloneChangesNoValue()
    {
        QFETCH(QString, name);
        const auto dialog = open("before", "before", "before");
        type(field(dialog, name), "after");
        QCOMPARE(field(dialog, name)->text(), "after");
        QCOMPARE(values(dialog), QStringList({ "before", "before", "before" }));
    }

    void tabTakesTheValue_data()
    {
        addFieldRows();
    }

    void tabTakesTheValue()
    {
        QFETCH(QString, name);
        const auto dialog = open("before", "before", "before");
        type(field(dialog, name), "after");
        QTest::keyClick(field(dialog, name), Qt::Key_Tab);
        QCOMPARE(valueOf(dialog, name), "after");
        QCOMPARE(values(dialog).count("before"), 2);
    }

    void clickElsewhereTakesTheValue_data()
    {
        addFieldRows();
    }

    void clickElsewhereTakesTheValue()
    {
        QFETCH(QString, name);
        const auto dialog = open("before", "before", "before");
        type(field(dialog, name), "after");
        QTest::mouseClick(field(dialog, name == nameField ? hostField : nameField), Qt::LeftButton);
        QCOMPARE(valueOf(dialog, name), "after");
        QCOMPARE(values(dialog).count("before"), 2);
    }

    /// Return also presses OK, the default button.
    void returnTakesTheValueAndPressesOk_data()
    {
        addFieldRows();
    }

    void returnTakesTheValueAndPressesOk()
    {
        QFETCH(QString, name);
        const auto dialog = open("before", "before", "before");
        type(field(dialog, name), "after");
        QTest::keyClick(field(dialog, name), Qt::Key_Return);
        QCOMPARE(valueOf(dialog, name), "after");
        QCOMPARE(values(dialog).count("before"), 2);
        QVERIFY(dialog->isVisible());
        QVERIFY(isShown(dialog, generalLabel));
    }

    void returnAcceptsCompleteInput()
    {
        const auto dialog = openComplete();
        type(field(dialog, nameField), "Return");
        QTest::keyClick(field(dialog, nameField), Qt::Key_Return);
        QCOMPARE(dialog->result(), int(QDialog::Accepted));
        QCOMPARE(dialog->getRealmName(), "Return");
    }

    void typingAndPressingOkTakesTheValue_data()
    {
        QTest::addColumn<QString>("name");
        QTest::addColumn<QString>("text");
        QTest::newRow("realm name") << nameField << "Größe, Halden; \\ 2";
        QTest::newRow("realm host") << hostField << "other.test:8085";
        QTest::newRow("client folder") << pathField << clientFolder() + "/../client";
    }

    void typingAndPressingOkTakesTheValue()
    {
        QFETCH(QString, name);
        QFETCH(QString, text);
        const auto dialog = openComplete();
        type(field(dialog, name), text);
        pressOk(dialog);
        QCOMPARE(dialog->result(), int(QDialog::Accepted));
        QCOMPARE(valueOf(dialog, name), text);
    }

    void emptyingAFieldAndPressingOkComplains_data()
    {
        addFieldRows();
    }

    void emptyingAFieldAndPressingOkComplains()
    {
        QFETCH(QString, name);
        const auto dialog = openComplete();
        type(field(dialog, name), "");
        pressOk(dialog);
        QVERIFY(dialog->isVisible());
        QVERIFY(isShown(dialog, generalLabel));
        QCOMPARE(valueOf(dialog, name), "");
    }

    void okChecksTheValuesAndNotTheFields_data()
    {
        addFieldRows();
    }

    void okChecksTheValuesAndNotTheFields()
    {
        QFETCH(QString, name);
        const auto dialog = openComplete();
        const QStringList before = values(dialog);
        QVERIFY(!field(dialog, name)->hasFocus());
        field(dialog, name)->clear();
        pressOk(dialog);
        QCOMPARE(dialog->result(), int(QDialog::Accepted));
        QCOMPARE(values(dialog), before);
    }

    void testRealmMark_data()
    {
        QTest::addColumn<bool>("developer");
        QTest::addColumn<bool>("given");
        QTest::addColumn<bool>("shown");
        QTest::addColumn<bool>("kept");
        QTest::newRow("developer, marked") << true << true << true << true;
        QTest::newRow("developer, not marked") << true << false << true << false;
        QTest::newRow("player, marked") << false << true << false << false;
        QTest::newRow("player, not marked") << false << false << false << false;
    }

    void testRealmMark()
    {
        QFETCH(bool, developer);
        QFETCH(bool, given);
        QFETCH(bool, kept);
        writeRealmsIni(QByteArray("[selected_realm]\ndev=") + (developer ? "true\n" : "false\n"));
        const auto dialog = open("Halden", "logon.test", "", given);
        const auto* box = child<QCheckBox>(dialog.get(), "checkBox_TestRealm");
        QTEST(box->isVisible(), "shown");
        QCOMPARE(box->isChecked(), kept);
        QCOMPARE(dialog->getTestRealm(), kept);
    }

    void checkBoxSetsTheMark()
    {
        writeRealmsIni("[selected_realm]\ndev=true\n");
        const auto dialog = open("Halden", "logon.test", "");
        auto* box = child<QCheckBox>(dialog.get(), "checkBox_TestRealm");
        const QPoint onTheBox(8, box->height() / 2);
        QTest::mouseClick(box, Qt::LeftButton, {}, onTheBox);
        QCOMPARE(dialog->getTestRealm(), true);
        QTest::mouseClick(box, Qt::LeftButton, {}, onTheBox);
        QCOMPARE(dialog->getTestRealm(), false);
        QTest::keyClick(box, Qt::Key_Space);
        QCOMPARE(dialog->getTestRealm(), true);
    }

    void anyStateButUncheckedIsAMark_data()
    {
        QTest::addColumn<Qt::CheckState>("state");
        QTest::addColumn<bool>("mark");
        QTest::newRow("checked") << Qt::Checked << true;
        QTest::newRow("partially checked") << Qt::PartiallyChecked << true;
        QTest::newRow("unchecked") << Qt::Unchecked << false;
    }

    void anyStateButUncheckedIsAMark()
    {
        QFETCH(Qt::CheckState, state);
        writeRealmsIni("[selected_realm]\ndev=true\n");
        // From the opposite, so that the state does change.
        const auto dialog = open("Halden", "logon.test", "", state == Qt::Unchecked);
        child<QCheckBox>(dialog.get(), "checkBox_TestRealm")->setCheckState(state);
        QTEST(dialog->getTestRealm(), "mark");
    }

    void tabWalksThroughTheFields()
    {
        writeRealmsIni("[selected_realm]\ndev=true\n");
        const auto dialog = open("Halden", "logon.test", "");
        QStringList reached;
        field(dialog, nameField)->setFocus();
        for (int i = 0; i < 5; ++i) {
            reached.append(dialog->focusWidget()->objectName());
            QTest::keyClick(dialog->focusWidget(), Qt::Key_Tab);
        }
        const QStringList order{ nameField, hostField, "pushButton_SelectPath",
                                 "checkBox_TestRealm", pathField };
        QCOMPARE(reached, order);
        QCOMPARE(
            dialog->focusWidget(),
            child<QDialogButtonBox>(dialog.get(), "buttonBox")->button(QDialogButtonBox::Ok));
    }

    void nothingIsWritten()
    {
        const auto dialog = openComplete();
        pressOk(dialog);
        QCOMPARE(dialog->result(), int(QDialog::Accepted));
        QVERIFY2(
            !QFile::exists(ApplicationFolder::path("Settings")),
            "storing the values is the caller's part");
    }
};

HALDEN_TEST_MAIN(tst_AddClientDialog)
#include "tst_addclientdialog.moc"
