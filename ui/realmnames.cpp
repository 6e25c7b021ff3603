#include "ui/realmnames.h"

#include "core/realmwalk.h"
#include "core/settingshandler.h"

#include <QComboBox>

void showRealmNames(QComboBox* list)
{
    list->clear();
    const RealmWalk walk;
    for (int i = 1; i <= walk.last(); ++i)
        list->addItem(SettingsHandler::getRealmName(i));
}
