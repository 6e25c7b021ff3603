#include "app/constants.h"
#include "tests/support/applicationfolder.h"
#include "tests/support/modalanswers.h"
#include "tests/support/realmsini.h"
#include "tests/support/testmain.h"
#include "tests/support/widgets.h"
#include "ui/clientflows.h"

#include <QCheckBox>
#include <QComboBox>
#include <QDialog>
#include <QFile>
#include <QLineEdit>

using namespace TestSupport;

using Values = QMap<QString, QByteArray>;

namespace {

QString clientFolder()
{
    return ApplicationFolder::path("client");
}

/// Three entries whose folder is a game client; the second is a test realm.
QByteArray threeEntries(const QByteArray& selectedRealm)
{
    const QByteArray path = clientFolder().toUtf8();
    return realmsIniWith(
        { { .name = "Eins", .path = path, .language = "frFR" },
          { .name = "Zwei",
            .host = "zwei.test",
            .path = path,
            .testRealm = "true",
            .language = "enUS" },
          { .name = "Drei", .path = path, .language = "frFR" } },
        selectedRealm);
}

void pressOk(QDialog* dialog)
{
    click(dialog, QDialogButtonBox::Ok);
}

void pressCancel(QDialog* dialog)
{
    click(dialog, QDialogButtonBox::Cancel);
}

/// Picks a row of the selection dialog and accepts.
ModalAnswers::Answer select(int row)
{
    return [row](QDialog* dialog) {
        pick(child<QComboBox>(dialog, "comboBox_RemoveClient"), row);
        pressOk(dialog);
    };
}

/// Enters a text into one field and accepts.
ModalAnswers::Answer enter(const QString& field, const QString& text)
{
    return [field, text](QDialog* dialog) {
        type(child<QLineEdit>(dialog, field), text);
        pressOk(dialog);
    };
}

QStringList shownIn(const QDialog* dialog)
{
    QStringList texts;
    for (const char* field : { "lineEdit_RealmName", "lineEdit_RealmURL", "lineEdit_RealmPath" })
        texts.append(child<QLineEdit>(dialog, field)->text());
    return texts;
}

/// Notes what the dialog shows and cancels.
ModalAnswers::Answer look(QStringList* texts)
{
    return [texts](QDialog* dialog) {
        *texts = shownIn(dialog);
        pressCancel(dialog);
    };
}

void checkTestRealm(QDialog* dialog)
{
    QTest::keyClick(child<QCheckBox>(dialog, "checkBox_TestRealm"), Qt::Key_Space);
    type(child<QLineEdit>(dialog, "lineEdit_RealmPath"), clientFolder());
    pressOk(dialog);
}

} // namespace

/// The two conversations with the player that end in a written entry.
class tst_ClientFlows : public QObject {
    Q_OBJECT

private slots:
    void init()
    {
        ApplicationFolder::clear();
        failOnWarnings();
        makeClientFolder(clientFolder());
    }

    void addingOffersNameAndHost()
    {
        QStringList texts;
        ModalAnswers player({ look(&texts) });
        runAddClientDialog("Halden", "logon.test");
        QVERIFY(player.allGiven());
        QCOMPARE(texts, QStringList({ "Halden", "logon.test", "" }));
    }

    void addingAsksInAWindowOfItsOwn()
    {
        QObject* parent = this;
        QString name;
        ModalAnswers player({ [&](QDialog* dialog) {
            parent = dialog->parent();
            name = dialog->objectName();
            pressCancel(dialog);
        } });
        runAddClientDialog("Halden", "logon.test");
        QCOMPARE(parent, nullptr);
        QCOMPARE(name, "AddClientDialog");
    }

    void addingStoresTheFirstEntry()
    {
        ModalAnswers player({ enter("lineEdit_RealmPath", clientFolder()) });
        runAddClientDialog("Halden", "logon.test");
        const Values expected{
            { "realms/size", "1" },
            { "realms/1-realmName", "Halden" },
            { "realms/1-realmHost", "logon.test" },
            { "realms/1-clientPath", clientFolder().toUtf8() },
            { "realms/1-testRealm", "false" },
            { "realms/1-language", "deDE" },
            { "selected_realm/realmid", "1" },
        };
        QCOMPARE(realmsIniValues(), expected);
    }

    void addingAppends()
    {
        writeRealmsIni(threeEntries("realmid=2\n"));
        ModalAnswers player({ enter("lineEdit_RealmPath", clientFolder()) });
        runAddClientDialog("Vier", "vier.test");
        QCOMPARE(storedRealmNames(), QStringList({ "Eins", "Zwei", "Drei", "Vier" }));
        QCOMPARE(realmsIniValues().value("realms/4-language"), QByteArray("deDE"));
        QCOMPARE(realmsIniValues().value("selected_realm/realmid"), QByteArray("2"));
    }

    void addingStoresTheMarkInDeveloperMode()
    {
        writeRealmsIni(realmsIniWith({}, "dev=true\n"));
        ModalAnswers player({ checkTestRealm });
        runAddClientDialog("Test", "test.test");
        QVERIFY(player.allGiven());
        QCOMPARE(realmsIniValues().value("realms/1-testRealm"), QByteArray("true"));
    }

    void addingStartsWithoutTheMark()
    {
        writeRealmsIni(realmsIniWith({}, "dev=true\n"));
        ModalAnswers player({ enter("lineEdit_RealmPath", clientFolder()) });
        runAddClientDialog("Test", "test.test");
        QCOMPARE(realmsIniValues().value("realms/1-testRealm"), QByteArray("false"));
    }

    void cancellingTheAdditionWritesNothing()
    {
        const QByteArray before = threeEntries("realmid=2\n");
        writeRealmsIni(before);
        ModalAnswers player({ pressCancel });
        runAddClientDialog("Vier", "vier.test");
        QVERIFY(player.allGiven());
        QCOMPARE(readFile(realmsIniPath()), before);
    }

    void editingShowsTheEntry_data()
    {
        QTest::addColumn<int>("row");
        QTest::addColumn<QStringList>("texts");
        const QString folder = clientFolder();
        QTest::newRow("first") << 0 << QStringList{ "Eins", "logon.test", folder };
        QTest::newRow("second") << 1 << QStringList{ "Zwei", "zwei.test", folder };
        QTest::newRow("last") << 2 << QStringList{ "Drei", "logon.test", folder };
    }

    void editingShowsTheEntry()
    {
        QFETCH(int, row);
        writeRealmsIni(threeEntries("realmid=3\n"));
        QStringList shown;
        ModalAnswers player({ select(row), look(&shown) });
        runEditClientDialog();
        QVERIFY(player.allGiven());
        QTEST(shown, "texts");
    }

    void editingWithoutAPickShowsTheFirstEntry()
    {
        writeRealmsIni(threeEntries("realmid=3\n"));
        QStringList texts;
        ModalAnswers player({ pressOk, look(&texts) });
        runEditClientDialog();
        QCOMPARE(texts, QStringList({ "Eins", "logon.test", clientFolder() }));
    }

    void editingAsksInWindowsOfTheirOwn()
    {
        writeRealmsIni(threeEntries("realmid=3\n"));
        QStringList names;
        const auto note = [&names](QDialog* dialog) {
            names.append(dialog->objectName() + (dialog->parent() ? " with parent" : ""));
            pressOk(dialog);
        };
        ModalAnswers player({ note, note });
        runEditClientDialog();
        QCOMPARE(names, QStringList({ "editClientSelectDialog", "AddClientDialog" }));
    }

    /// Accepting without a change: what the flow itself changes.
    void editingResetsLanguageAndMark_data()
    {
        QTest::addColumn<QByteArray>("selectedRealm");
        QTest::addColumn<QByteArray>("testRealm");
        QTest::newRow("player loses the mark") << QByteArray("realmid=3\n") << QByteArray("false");
        QTest::newRow("developer keeps it")
            << QByteArray("realmid=3\ndev=true\n") << QByteArray("true");
    }

    void editingResetsLanguageAndMark()
    {
        QFETCH(QByteArray, selectedRealm);
        QFETCH(QByteArray, testRealm);
        writeRealmsIni(threeEntries(selectedRealm));
        Values expected = realmsIniValues();
        expected["realms/2-language"] = "deDE";
        expected["realms/2-testRealm"] = testRealm;
        ModalAnswers player({ select(1), pressOk });
        runEditClientDialog();
        QVERIFY(player.allGiven());
        QCOMPARE(realmsIniValues(), expected);
    }

    void editingStoresTheChange_data()
    {
        QTest::addColumn<QString>("field");
        QTest::addColumn<QString>("text");
        QTest::addColumn<QString>("key");
        QTest::newRow("name") << "lineEdit_RealmName"
                              << "Neu"
                              << "realms/3-realmName";
        QTest::newRow("host") << "lineEdit_RealmURL"
                              << "neu.test"
                              << "realms/3-realmHost";
        QTest::newRow("folder") << "lineEdit_RealmPath"
                                << "/home/player/client"
                                << "realms/3-clientPath";
    }

    void editingStoresTheChange()
    {
        QFETCH(QString, field);
        QFETCH(QString, text);
        QFETCH(QString, key);
        makeClientFolder("/home/player/client");
        writeRealmsIni(threeEntries("realmid=1\n"));
        Values expected = realmsIniValues();
        expected["realms/3-language"] = "deDE";
        expected[key] = text.toUtf8();
        ModalAnswers player({ select(2), enter(field, text) });
        runEditClientDialog();
        QCOMPARE(realmsIniValues(), expected);
    }

    void cancellingTheSelectionWritesNothing()
    {
        const QByteArray before = threeEntries("realmid=2\n");
        writeRealmsIni(before);
        ModalAnswers player({ pressCancel });
        runEditClientDialog();
        QCOMPARE(player.opened(), 1);
        QCOMPARE(readFile(realmsIniPath()), before);
    }

    void cancellingTheEditWritesNothing()
    {
        const QByteArray before = threeEntries("realmid=2\n");
        writeRealmsIni(before);
        ModalAnswers player({ select(1), [](QDialog* dialog) {
                                 type(child<QLineEdit>(dialog, "lineEdit_RealmName"), "Neu");
                                 pressCancel(dialog);
                             } });
        runEditClientDialog();
        QCOMPARE(player.opened(), 2);
        QCOMPARE(readFile(realmsIniPath()), before);
    }

    void editingAnEmptyStoreOffersTheDefaults()
    {
        QStringList texts;
        ModalAnswers player({ pressOk, look(&texts) });
        runEditClientDialog();
        QVERIFY(player.allGiven());
        QCOMPARE(texts, QStringList({ "", HALDEN_DEFAULT_REALM_HOST, "" }));
        QVERIFY(!QFile::exists(realmsIniPath()));
    }

    void editingAnEmptyStoreAddsNoEntryToTheCount()
    {
        writeRealmsIni(realmsIniWith({}, "realmid=0\n"));
        ModalAnswers player(
            { pressOk, [](QDialog* dialog) {
                 type(child<QLineEdit>(dialog, "lineEdit_RealmName"), "Neu");
                 type(child<QLineEdit>(dialog, "lineEdit_RealmPath"), clientFolder());
                 pressOk(dialog);
             } });
        runEditClientDialog();
        QCOMPARE(realmsIniValues().value("realms/1-realmName"), QByteArray("Neu"));
        QCOMPARE(realmsIniValues().value("realms/size"), QByteArray("0"));
        QCOMPARE(realmsIniValues().value("selected_realm/realmid"), QByteArray("0"));
    }
};

HALDEN_TEST_MAIN(tst_ClientFlows)
#include "tst_clientflows.moc"
