#include "core/settingshandler.h"

#include "app/constants.h"
#include "core/realmwalk.h"
#include "ui/clientflows.h" // the one call upwards: the first start asks for a client

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QSettings>

using namespace Qt::StringLiterals;

namespace {

constexpr QLatin1StringView defaultRealmHost(HALDEN_DEFAULT_REALM_HOST);
constexpr QLatin1StringView defaultLanguage("deDE");

/// Value of a full key; the doubled slash of the callers' keys counts as one. A
/// handle that is opened reads what has changed.
QVariant readValue(const QString& key, const QVariant& fallback)
{
    const QSettings store(SettingsHandler::getRealmsIniPath(), QSettings::IniFormat);
    return store.value(key, fallback);
}

QVariant readEntryValue(int n, const QString& field, const QVariant& fallback)
{
    return readValue("realms//"_L1 + QString::number(n) + field, fallback);
}

/// Number of entries, read through a handle that stands in group "realms".
int storedCount(const QSettings& store)
{
    return store.value("size", 0).toInt();
}

/// A file can hold any number, so the sum wraps around.
int wrappingSum(int number, int step)
{
    return static_cast<int>(static_cast<unsigned>(number) + static_cast<unsigned>(step));
}

QString prefixOf(int n)
{
    return QString::number(n) + u'-';
}

/// Writes entry n through a handle that stands in group "realms".
void storeEntry(
    QSettings& store, int n, const QString& realmName, const QString& realmHost,
    const QString& clientPath, bool testRealm, const QString& language)
{
    const QString prefix = prefixOf(n);
    store.setValue(prefix + "realmName"_L1, realmName);
    store.setValue(prefix + "realmHost"_L1, realmHost);
    store.setValue(prefix + "clientPath"_L1, clientPath);
    store.setValue(prefix + "testRealm"_L1, testRealm);
    store.setValue(prefix + "language"_L1, language);
}

/// The same for its removal.
void dropEntry(QSettings& store, int n)
{
    const QString prefix = prefixOf(n);
    for (const auto field :
         { "realmName"_L1, "realmHost"_L1, "clientPath"_L1, "testRealm"_L1, "language"_L1 }) {
        store.remove(prefix + field);
    }
}

/// Moves entry i + 1 to i, for every i from n up to the last but one. All through
/// one handle, so that the file is written once and a moment without power leaves
/// either list.
void moveEntriesDown(QSettings& store, int n, int count)
{
    const int last = RealmWalk().last();
    store.sync();
    for (int i = n; i < count && i <= last; ++i) {
        dropEntry(store, i);
        const QString next = prefixOf(i + 1);
        const bool testRealm = store.value(next + "testRealm"_L1, false).toBool();
        const QString clientPath = store.value(next + "clientPath"_L1).toString();
        const QString realmHost
            = store.value(next + "realmHost"_L1, QString(defaultRealmHost)).toString();
        const QString realmName = store.value(next + "realmName"_L1).toString();
        // The moved entry's language is not carried along: every write of the
        // program resets it, on purpose.
        storeEntry(store, i, realmName, realmHost, clientPath, testRealm, defaultLanguage);
    }
}

/// Keeps the selection on the entry it named before entry n was removed.
void correctSelection(const QSettings& store, int n)
{
    const int selected = SettingsHandler::getSelectedRealm();
    if (selected < n)
        return;
    if (selected > n)
        SettingsHandler::setSelectedRealm(selected - 1);
    else
        SettingsHandler::setSelectedRealm(storedCount(store) > 0 ? 1 : 0);
}

} // namespace

void SettingsHandler::initSettings()
{
    const QString folder = getSettingsPath() + QDir::separator();
    if (!QDir(folder).exists())
        QDir(QString()).mkdir(folder);
    if (!QFile::exists(folder + "realms.ini"_L1))
        runAddClientDialog(organizationName, organizationDomain);
}

QString SettingsHandler::getSettingsPath()
{
    return QCoreApplication::applicationDirPath() + QDir::separator() + "Settings"_L1;
}

QString SettingsHandler::getRealmsIniPath()
{
    return getSettingsPath() + QDir::separator() + "realms.ini"_L1;
}

QString SettingsHandler::getClientDataStoragePath()
{
    return QCoreApplication::applicationDirPath() + QDir::separator() + "ClientDataStorage"_L1;
}

int SettingsHandler::getClientCount()
{
    return readValue(u"realms//size"_s, 0).toInt();
}

QString SettingsHandler::getRealmName(int n)
{
    return readEntryValue(n, u"-realmName"_s, QString()).toString();
}

QString SettingsHandler::getRealmHost(int n)
{
    return readEntryValue(n, u"-realmHost"_s, QString(defaultRealmHost)).toString();
}

QString SettingsHandler::getClientPath(int n)
{
    return readEntryValue(n, u"-clientPath"_s, QString()).toString();
}

bool SettingsHandler::getTestRealm(int n)
{
    return readEntryValue(n, u"-testRealm"_s, false).toBool();
}

QString SettingsHandler::getLanguage(int n)
{
    return readEntryValue(n, u"-language"_s, QString(defaultLanguage)).toString();
}

int SettingsHandler::getSelectedRealm()
{
    return readValue(u"selected_realm//realmid"_s, 0).toInt();
}

void SettingsHandler::setSelectedRealm(int n)
{
    QSettings store(getRealmsIniPath(), QSettings::IniFormat);
    store.beginGroup("selected_realm");
    store.setValue("realmid", n);
    store.endGroup();
    store.sync();
}

bool SettingsHandler::getDev()
{
    return readValue(u"selected_realm//dev"_s, false).toBool();
}

void SettingsHandler::addClient(
    QString realmName, QString realmHost, QString clientPath, bool testRealm)
{
    QSettings store(getRealmsIniPath(), QSettings::IniFormat);
    store.beginGroup("realms");
    const int added = wrappingSum(storedCount(store), 1);
    store.setValue("size", added);
    store.endGroup();
    store.sync();
    writeClient(added, realmName, realmHost, clientPath, testRealm, defaultLanguage);
    store.sync();
    if (added == 1)
        setSelectedRealm(1);
}

void SettingsHandler::writeClient(
    int n, QString realmName, QString realmHost, QString clientPath, bool testRealm,
    QString language)
{
    QSettings store(getRealmsIniPath(), QSettings::IniFormat);
    store.beginGroup("realms");
    storeEntry(store, n, realmName, realmHost, clientPath, testRealm, language);
    store.sync();
}

void SettingsHandler::removeClientKeys(int n)
{
    QSettings store(getRealmsIniPath(), QSettings::IniFormat);
    store.beginGroup("realms");
    dropEntry(store, n);
    store.sync();
}

void SettingsHandler::removeClient(int n)
{
    QSettings store(getRealmsIniPath(), QSettings::IniFormat);
    store.beginGroup("realms");
    const int count = storedCount(store);
    if (n < 1)
        return;
    moveEntriesDown(store, n, count);
    // Also for a number past the end, which removes the last entry on purpose, even
    // where there is none.
    dropEntry(store, count);
    store.setValue("size", wrappingSum(count, -1));
    store.sync();
    correctSelection(store, n);
}
