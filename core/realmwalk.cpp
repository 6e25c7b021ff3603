#include "core/realmwalk.h"

#include "core/settingshandler.h"

#include <algorithm>

using namespace Qt::StringLiterals;

namespace {

// Up to here the count is taken at its word, whatever the file holds.
constexpr int plausibleCount = 10'000;

} // namespace

RealmWalk::RealmWalk()
    : store(SettingsHandler::getRealmsIniPath(), QSettings::IniFormat)
{
    store.beginGroup("realms"_L1);
}

int RealmWalk::last() const
{
    const int count = SettingsHandler::getClientCount();
    if (count <= plausibleCount)
        return count;
    // Kept until the count changes: it is asked for before every entry.
    if (count != cutCount) {
        cutCount = count;
        lastOfCutCount = std::min(count, std::max(plausibleCount, highestEntryWithKeys()));
    }
    return lastOfCutCount;
}

int RealmWalk::highestEntryWithKeys() const
{
    int highest = 0;
    const QStringList keys = store.childKeys();
    for (const QString& key : keys) {
        const QStringView number = QStringView(key).left(key.indexOf(u'-'));
        highest = std::max(highest, number.toInt());
    }
    return highest;
}
