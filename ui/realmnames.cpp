#include "ui/realmnames.h"

#include "core/settingshandler.h"

#include <QComboBox>

void showRealmNames(QComboBox* list)
{
    list->clear();
    for (int i = 1; i <= SettingsHandler::getClientCount(); ++i)
        list->addItem(SettingsHandler::getRealmName(i));
}
