#pragma once

#include <QByteArray>
#include <QMap>
#include <QString>
#include <QStringList>

namespace TestSupport {

QString realmsIniPath();

/// Writes "realms.ini" as a player's editor would. Its modification time differs
/// from that of every earlier one: the settings layer goes by size and time, and
/// two tests may write files of one size within one tick of the clock.
void writeRealmsIni(const QByteArray& content);

/// What stands in "realms.ini" by section and key ("realms/1-realmName"), read
/// without the settings layer: keys as they are spelt, values as bytes.
QMap<QString, QByteArray> realmsIniValues();

/// The text with its lines ended as the settings layer ends them on this system.
QByteArray withSystemsLineEnds(QByteArray text);

/// One entry as a store's file holds it.
struct RealmEntry {
    QByteArray name;
    QByteArray host = "logon.test";
    QByteArray path = "/games/wow";
    QByteArray testRealm = "false";
    QByteArray language = "deDE";
};

/// A store's file with these entries, numbered from 1. `selectedRealm` is what
/// stands in section "selected_realm", for example "realmid=2\n".
QByteArray realmsIniWith(const QList<RealmEntry>& entries, const QByteArray& selectedRealm);

/// The names of entries 1 to the count, as the store reads them.
QStringList storedRealmNames();

} // namespace TestSupport
