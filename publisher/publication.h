#pragma once

#include <QHash>
#include <QString>

/// What a manifest publishes already.
struct PublishedFile {
    /// Relative to the client folder, with "/".
    QString path;
    QString hash;
    /// Relative to the folder of the manifest.
    QString serverPath;
};

/// The files of a manifest by their path in the client folder. A manifest that
/// is missing publishes nothing.
QHash<QString, PublishedFile> readPublication(const QString& manifestPath, const QString& kind);
