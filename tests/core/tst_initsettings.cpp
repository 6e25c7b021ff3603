#include "app/constants.h"
#include "core/settingshandler.h"
#include "tests/support/applicationfolder.h"
#include "tests/support/modalanswers.h"
#include "tests/support/realmsini.h"
#include "tests/support/testmain.h"
#include "tests/support/widgets.h"

#include <QDialog>
#include <QDir>
#include <QFileInfo>
#include <QLineEdit>

using namespace TestSupport;

namespace {

void cancel(QDialog* dialog)
{
    click(dialog, QDialogButtonBox::Cancel);
}

/// Enters a client folder and takes the rest as offered.
void acceptWithClient(QDialog* dialog)
{
    const QString client = makeClientFolder(ApplicationFolder::path("client"));
    type(child<QLineEdit>(dialog, "lineEdit_RealmPath"), client);
    click(dialog, QDialogButtonBox::Ok);
}

} // namespace

/// The store's start-up step: the settings folder and the first client.
class tst_InitSettings : public QObject {
    Q_OBJECT

private slots:
    void init()
    {
        ApplicationFolder::clear();
        failOnWarnings();
    }

    void createsTheSettingsFolderBeforeItAsks()
    {
        bool folderWasThere = false;
        ModalAnswers player({ [&folderWasThere](QDialog* dialog) {
            folderWasThere = QFileInfo(ApplicationFolder::path("Settings")).isDir();
            cancel(dialog);
        } });
        SettingsHandler::initSettings();
        QVERIFY(player.allGiven());
        QVERIFY2(folderWasThere, "the folder is created first");
        QVERIFY(!QFileInfo::exists(ApplicationFolder::path("ClientDataStorage")));
    }

    void asksForTheFirstClientPrefilled()
    {
        QStringList fields;
        bool shownOnItsOwn = false;
        ModalAnswers player({ [&](QDialog* dialog) {
            shownOnItsOwn = dialog->objectName() == "AddClientDialog" && !dialog->parent();
            for (const char* field : { "RealmName", "RealmURL", "RealmPath" }) {
                fields.append(child<QLineEdit>(dialog, QString("lineEdit_") + field)->text());
            }
            cancel(dialog);
        } });
        SettingsHandler::initSettings();
        QVERIFY(shownOnItsOwn);
        QCOMPARE(fields, QStringList({ organizationName, organizationDomain, "" }));
    }

    void acceptingWritesTheFirstEntry()
    {
        ModalAnswers player({ acceptWithClient });
        SettingsHandler::initSettings();
        QVERIFY(player.allGiven());
        const QMap<QString, QByteArray> expected{
            { "realms/size", "1" },
            { "realms/1-realmName", organizationName.toUtf8() },
            { "realms/1-realmHost", organizationDomain.toUtf8() },
            { "realms/1-clientPath", ApplicationFolder::path("client").toUtf8() },
            { "realms/1-testRealm", "false" },
            { "realms/1-language", "deDE" },
            { "selected_realm/realmid", "1" },
        };
        QCOMPARE(realmsIniValues(), expected);
    }

    void cancellingWritesNothingAndAsksAgain()
    {
        ModalAnswers player({ cancel, cancel });
        SettingsHandler::initSettings();
        QCOMPARE(player.opened(), 1);
        QVERIFY2(!QFileInfo::exists(realmsIniPath()), "cancelling must write nothing");
        SettingsHandler::initSettings();
        QCOMPARE(player.opened(), 2);
        QVERIFY(!QFileInfo::exists(realmsIniPath()));
    }

    void asksNoMoreOnceThereIsAClient()
    {
        ModalAnswers player({ acceptWithClient });
        SettingsHandler::initSettings();
        SettingsHandler::initSettings();
        QCOMPARE(player.opened(), 1);
    }

    void asksNothingWhenTheFileExists_data()
    {
        QTest::addColumn<QByteArray>("content");
        QTest::newRow("with an entry") << realmsIniWith({ { .name = "A" } }, "realmid=1\n");
        QTest::newRow("without entries") << realmsIniWith({}, "");
        QTest::newRow("empty") << QByteArray("");
    }

    void asksNothingWhenTheFileExists()
    {
        QFETCH(QByteArray, content);
        writeRealmsIni(content);
        const ModalAnswers player;
        SettingsHandler::initSettings();
        QCOMPARE(player.opened(), 0);
        QCOMPARE(readFile(realmsIniPath()), content);
    }

    void asksNothingWhenAFolderBearsTheFilesName()
    {
        QDir().mkpath(realmsIniPath());
        const ModalAnswers player;
        SettingsHandler::initSettings();
        QCOMPARE(player.opened(), 0);
    }

    void keepsWhatIsInTheSettingsFolder()
    {
        writeFile(ApplicationFolder::path("Settings/patch.ini"), "kept");
        ModalAnswers player({ cancel });
        SettingsHandler::initSettings();
        QVERIFY(player.allGiven());
        QCOMPARE(readFile(ApplicationFolder::path("Settings/patch.ini")), QByteArray("kept"));
    }

    void aFolderThatCannotBeCreatedIsNoReasonToStop()
    {
        makeClientFolder(ApplicationFolder::path("client"));
        writeFile(ApplicationFolder::path("Settings"), "in the way");
        ModalAnswers player({ acceptWithClient });
        SettingsHandler::initSettings();
        QVERIFY(player.allGiven());
        QCOMPARE(readFile(ApplicationFolder::path("Settings")), QByteArray("in the way"));
        QCOMPARE(SettingsHandler::getClientCount(), 0);
    }
};

HALDEN_TEST_MAIN(tst_InitSettings)
#include "tst_initsettings.moc"
