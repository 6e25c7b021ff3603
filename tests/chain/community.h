#pragma once

#include <QString>
#include <QStringList>

/// What a community publishes, and the web server it publishes with. The tree is
/// made by scripts/make-server-tree and served by scripts/serve-community, both
/// from the folder of the sandbox that the server's configuration names. Failing
/// scripts end the process.
class Community {
public:
    Community() = default;
    /// Stops the server.
    ~Community();
    Community(const Community&) = delete;
    Community& operator=(const Community&) = delete;

    /// Replaces all that is published. `files` small patch files of each kind,
    /// everything dated 1 May 2024.
    void publish(int files = 6) const;
    /// Lists the patch files at hand in new manifests, dated now.
    void publishManifests(const QStringList& options = {}) const;

    /// Absolute path of something published.
    QString path(const QString& relativePath) const;
    /// Absolute path of a patch file, and the path under which it is asked for.
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
