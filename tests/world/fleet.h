#pragma once

#include "tests/support/certificateauthority.h"

#include <QProcess>
#include <QString>
#include <QStringList>

#include <memory>
#include <vector>

/// Several web servers behind one host name, each with a folder and a loopback address of
/// its own: nginx with the administrators' configuration. The first one's folder is a path
/// of this machine to whoever fills it, those of the others are reached by SFTP: the
/// second's by rclone's own server, the third's by OpenSSH. Whatever fails ends the process.
class Fleet {
public:
    /// At most as many as there are names for.
    explicit Fleet(int servers = 3);
    /// Stops all of them.
    ~Fleet();
    Fleet(const Fleet&) = delete;
    Fleet& operator=(const Fleet&) = delete;

    /// "alder", "birch", "cedar".
    QStringList names() const;
    /// Empties the folders and starts what does not run.
    void start();

    void startWeb(const QString& name, const QStringList& wrapper = {});
    void stopWeb(const QString& name);
    /// Lets it go by what is set for it, without breaking anything off.
    void reloadWeb(const QString& name);
    void startStorage(const QString& name, const QStringList& options = {});
    void stopStorage(const QString& name);
    // From its next start on a server has these, or when it is reloaded.
    void setFolder(const QString& name, const QString& folder);
    void setCertificate(const QString& name, const TestSupport::ServerCertificate& certificate);
    /// One line of the administrators' configuration replaced.
    void setRule(const QString& name, const QByteArray& line, const QByteArray& replacement);

    /// Absolute path of what a server has.
    static QString path(const QString& name, const QString& relativePath = {});
    /// "127.0.0.11:443".
    static QString address(const QString& name);
    /// Whether the first server has an address of the later family as well.
    static bool hasIpv6();
    /// The list of servers for halden-publish, and where it lies.
    QString text() const;
    QString file() const;

private:
    struct Server {
        QString name;
        TestSupport::ServerCertificate certificate;
        QByteArray line;
        QByteArray replacement;
        QProcess web;
        QProcess storage;
    };
    Server& server(const QString& name);
    void writeConfiguration(const Server& server) const;

    std::vector<std::unique_ptr<Server>> servers;
};
