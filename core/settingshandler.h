#pragma once

#include <QString>

/// The player's client/realm entries and the selection, kept in "realms.ini".
///
/// Nothing is held in memory: every operation opens the file, works and closes
/// it again, so each change is seen by everyone at once. Entries are numbered
/// from 1 without gaps; a selection of 0 means none. Readers never check the
/// number: an entry that does not exist yields the defaults. No operation
/// reports a failure; a file that cannot be read is an empty store.
class SettingsHandler {
public:
    SettingsHandler() = delete;

    /// Start-up: creates the settings folder and, while there is no
    /// "realms.ini", asks the player for a first client (modal).
    static void initSettings();

    /// Folder of "realms.ini" and the manifests, without trailing separator.
    static QString getSettingsPath();
    static QString getRealmsIniPath();
    /// Folder of the patch cache, without trailing separator.
    static QString getClientDataStoragePath();

    /// The number as it is stored, however wrong: RealmWalk knows how far to go.
    static int getClientCount();
    static QString getRealmName(int n);
    /// The community's default realm server when the entry names none.
    static QString getRealmHost(int n);
    static QString getClientPath(int n);
    static bool getTestRealm(int n);
    /// Locale folder inside the client's Data folder, "deDE" by default.
    static QString getLanguage(int n);

    static int getSelectedRealm();
    static void setSelectedRealm(int n);
    /// Developer switch; set by editing the file, never by the program.
    static bool getDev();

    /// Appends an entry with language "deDE"; the first one becomes selected.
    static void addClient(QString realmName, QString realmHost, QString clientPath, bool testRealm);
    /// Writes entry n's five keys and leaves the count alone.
    static void writeClient(
        int n, QString realmName, QString realmHost, QString clientPath, bool testRealm,
        QString language);
    /// Removes entry n's five keys and leaves the count alone.
    static void removeClientKeys(int n);
    /// Removes entry n, moves the later ones down and corrects the selection.
    /// A number past the end removes the last entry and counts one less, also in
    /// an empty store; one below 1 removes nothing.
    static void removeClient(int n);
};
