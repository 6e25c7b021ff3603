#pragma once

#include "publisher/common/problem.h"
#include "publisher/fleet/rclone.h"

#include <QDateTime>
#include <QHash>
#include <QString>
#include <QStringList>

namespace Publisher {

/// The folder that a server serves, as rclone reaches it. Paths are relative to it, with
/// "/". Problems do not name the server.
class Storage {
public:
    /// "remote:path", or a path of this machine.
    explicit Storage(QString remote);

    /// Where what is not served yet lies on its way.
    static QString stagingFolder();

    /// All patch files and all that is on its way, each with its size in bytes.
    [[nodiscard]] Problem list(QHash<QString, qint64>& sizes) const;
    /// Copies what there is of these files into a local folder, dated as the server
    /// dates it.
    [[nodiscard]] Problem
    fetch(const QStringList& files, const QString& localFolder, const QString& from = {}) const;

    /// Copies files of a local folder that are not there to the same paths. Those that
    /// are there are left alone. Whether they have arrived whole is for the caller to
    /// find out; those that SSH has carried bear the date of their arrival.
    [[nodiscard]] Problem
    add(const QString& localFolder, const QStringList& files,
        const Rclone::Listener& listener = {}) const;
    /// The same into the staging folder, over whatever lies there.
    [[nodiscard]] Problem stage(
        const QString& localFolder, const QStringList& files,
        const Rclone::Listener& listener = {}) const;
    /// Moves patch files out of the staging folder to their places, over whatever
    /// lies there.
    [[nodiscard]] Problem placeStagedContent(const QStringList& files) const;
    /// Moves a file out of the staging folder, over the one of its name.
    [[nodiscard]] Problem placeStaged(const QString& file) const;

    /// Dates a file that is there. Where the storage dates by itself, it does so anew or
    /// fails.
    [[nodiscard]] Problem setDate(const QString& file, const QDateTime& date) const;
    [[nodiscard]] Problem remove(const QStringList& files) const;
    /// Folders below the patch folder in which nothing is left.
    [[nodiscard]] Problem removeEmptyFolders() const;
    [[nodiscard]] Problem removeStagingFolder() const;

private:
    QString place(const QString& path) const;

    QString root;
    bool isLocal;
};

} // namespace Publisher
