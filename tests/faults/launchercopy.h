#pragma once

#include "tests/world/launcherprocess.h"

#include <QByteArray>
#include <QMap>
#include <QString>

/// The launcher of a player of yesterday in a folder of its own, with a client in a
/// folder beside it. Several can run at the same time; they share nothing but the
/// community's server.
class LauncherCopy : public LauncherProcess {
public:
    /// Lays out the player below `place`, which is emptied first.
    explicit LauncherCopy(const QString& place);

    QString launcherFolder() const;
    QString clientFolder() const;

    /// Every file and folder of the launcher and the client, by relative path,
    /// a folder with the content "folder". Without the program itself.
    QMap<QString, QByteArray> tree() const;

private:
    QString place;
};
