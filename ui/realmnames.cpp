#include "ui/realmnames.h"

#include "core/settingshandler.h"

#include <QComboBox>

void showRealmNames(QComboBox* list)
{
    list->clear();
    // Every question to the store reads its file anew.
    const int count = SettingsHandler::getClientCount();
    for (int i = 1; i <= count; ++i)
        list->addItem(SettingsHandler::getRealmName(i));
}
