#pragma once

#include <QByteArray>
#include <QString>
#include <QStringList>

/// A player with two clients and a realm for each: entry 1 is a live realm,
/// entry 2 a test realm. The developer switch is on, so both manifests count.
class Player {
public:
    /// Makes the two clients anew, the realm list, and a stand-in for
    /// "Halden-Launcher.exe" that is newer than the published one.
    void settle() const;

    /// Absolute path of something in the client of this kind.
    QString clientPath(const QString& kind, const QString& name) const;
    /// Absolute path of a file in the patch cache.
    QString cachePath(const QString& kind, const QString& name) const;

    /// What of the admin's folder of this kind the client does not hold byte for
    /// byte: "missing: NAME" or "different: NAME". No manifest has a say in it.
    QStringList wrongInClient(const QString& kind) const;
    /// The same for both clients, "live " or "test " in front.
    QStringList wrongInClients() const;
    /// Number of files that one update run copies into both clients, by the
    /// manifests that the player has got.
    int copiesPerRun() const;
};
