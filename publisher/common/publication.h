#pragma once

#include "publisher/common/serverlayout.h"

#include <QHash>
#include <QList>
#include <QSet>
#include <QString>

namespace Publisher {

/// What a manifest publishes already.
struct PublishedFile {
    /// Relative to the client folder, with "/".
    QString path;
    QString hash;
    /// Relative to the folder of the manifest.
    QString serverPath;
};

/// What goes from every player's client.
struct PublishedRemoval {
    /// Relative to the client folder, with "/".
    QString path;
    bool isFolder = false;

    friend bool operator==(const PublishedRemoval&, const PublishedRemoval&) = default;
};

/// What a manifest does for players, in terms of their client folder.
struct Publication {
    /// By their path in the client folder.
    QHash<QString, PublishedFile> files;
    /// Folders with an entry of their own.
    QSet<QString> folders;
    QList<PublishedRemoval> removals;
};

/// A manifest that is missing publishes nothing.
Publication readPublication(const QString& manifestPath, Kind kind);

} // namespace Publisher
