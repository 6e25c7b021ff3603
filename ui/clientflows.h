#pragma once

#include <QString>

// The two conversations with the player that end in a written entry. Both are
// modal and return when the player is done. They stand apart from the dialogs
// so that the realm store, which asks for a first client, sees nothing else of
// the user interface.

/// Asks for a new entry, prefilled with the given name and host, and appends it
/// to the store when the player accepts.
void runAddClientDialog(QString realmName, QString realmHost);

/// Lets the player pick an entry and change it. The entry's language is reset
/// to "deDE"; the count and the selection stay.
void runEditClientDialog();
