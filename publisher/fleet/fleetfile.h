#pragma once

#include "publisher/probe/connectaddress.h"

#include <QList>
#include <QString>
#include <QStringList>
#include <QUrl>

namespace Publisher {

/// One of the servers that hand out the same publication.
struct FleetServer {
    QString name;
    /// The folder that it serves, in rclone's terms: "remote:path" or a path of this
    /// machine.
    QString remote;
    /// Where launchers find it, shared with others as a rule. Ends in "/".
    QUrl address;
    /// Where it is reached by itself, one for each address family that it has.
    QList<ConnectAddress> connect;
};

/// The admin's list of servers: an INI file with a section for each. Secrets are none of
/// its business; rclone has a configuration of its own.
struct FleetFile {
    QList<FleetServer> servers;
    /// What is wrong, as sentences that begin with the file's name and the line.
    QStringList faults;

    /// A file that cannot be read is a fault.
    static FleetFile read(const QString& path);
    /// What is wrong in this text, which stands in a file of this name.
    static FleetFile parse(const QString& text, const QString& fileName);

    /// The same with the remotes held against those that rclone knows ("name:"), and
    /// against the folder whose content is about to be copied to them.
    [[nodiscard]] QStringList faultsOfRemotes(const QStringList& known, const QString& tree) const;

    /// Where each server's remote stands, for faults that show later.
    QList<int> linesOfRemotes;
    QString name;
};

/// Whether rclone takes this for a path of this machine.
bool isLocalFolder(const QString& remote);

} // namespace Publisher
