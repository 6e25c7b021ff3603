#pragma once

#include "publisher/common/problem.h"

#include <QDateTime>
#include <QHash>
#include <QMap>
#include <QString>
#include <QStringList>

namespace Publisher {

/// A patch file that a manifest lets launchers ask for.
struct NamedFile {
    /// Lower-case hexadecimal.
    QString md5;
    /// In bytes; 0 where nobody has looked.
    qint64 size = 0;
};

/// By the path on the server.
using NamedFiles = QMap<QString, NamedFile>;

/// A file that stays under its name while its content changes.
struct RootFile {
    /// Empty when there is no such file.
    QString md5;
    QDateTime date = {};

    bool isThere() const
    {
        return !md5.isEmpty();
    }
};

/// What a folder that is served, or a copy of its first level, publishes.
struct PushedTree {
    QString folder;
    /// What its manifests name.
    NamedFiles content;
    /// By their names, as far as they are there.
    QHash<QString, RootFile> rootFiles;

    /// Reads the first level alone; files that cannot be read count as not there.
    static PushedTree read(const QString& folder);
    /// Looks how large the patch files are.
    [[nodiscard]] Problem takeSizes();

    RootFile rootFile(const QString& name) const;
};

/// Manifests and the text for the window: launchers take whatever is newer.
QStringList plainRootFiles();
/// The launcher and its updater: none may be fetched twice.
QStringList launcherRootFiles();

} // namespace Publisher
