#pragma once

#include <QString>
#include <QStringList>

/// A community: an admin's folders of patch files, which halden-publish turns into
/// a server tree, and the web server. scripts/make-source-tree fills the folders,
/// scripts/serve-community serves the tree, which stands in the folder of the
/// sandbox that the server's configuration names. Whatever fails ends the process.
class Community {
public:
    Community() = default;
    /// Stops the server.
    ~Community();
    Community(const Community&) = delete;
    Community& operator=(const Community&) = delete;

    /// Starts over: `files` small patch files of each kind, everything published
    /// and dated 1 May 2024.
    void publish(int files = 6) const;
    /// Publishes the admin's folders as they are now, both kinds with these
    /// further options of `halden-publish build`.
    void publishChanges(const QStringList& options = {}) const;

    /// Absolute path of a file that the admin publishes, or of all of a kind.
    static QString sourcePath(const QString& kind, const QString& name = {});
    /// Absolute path of something published.
    QString path(const QString& relativePath) const;
    /// Absolute path of a published patch file, and the path under which it is
    /// asked for; by the admin's present content of the file.
    QString patchPath(const QString& kind, const QString& name) const;
    QString patchRequest(const QString& kind, const QString& name) const;

    /// Starts the server or starts it anew. Returns when it accepts connections.
    void start() const;
    /// Returns when the server has ended, so that its log is complete.
    void stop() const;

    /// Status and path of each request in order, "304 /patch.ini".
    QStringList requests() const;
    /// The requests for patch files only.
    QStringList patchRequests() const;
    /// The statuses of the requests for one path, in order.
    QStringList statuses(const QString& requestPath) const;
    void forgetRequests() const;
};
