#include "tests/world/fleet.h"

#include "app/constants.h"
#include "tests/support/applicationfolder.h"
#include "tests/support/patience.h"

#include <QDir>
#include <QFile>
#include <QTcpSocket>
#include <QTest>
#include <QUrl>

#include <csignal>
#include <unistd.h>

using namespace TestSupport;

namespace {

const QString state = "/run/fleet/";
const QStringList allNames{ "alder", "birch", "cedar" };
constexpr quint16 httpsPort = 443;
constexpr quint16 sftpPort = 2022;

QString hostOf(const QString& name)
{
    return "127.0.0.1" + QString::number(allNames.indexOf(name) + 1);
}

/// The others have rclone's own server.
bool isByOpenSsh(const QString& name)
{
    return name == allNames.at(2);
}

bool isListening(const QString& host, quint16 port)
{
    QTcpSocket socket;
    socket.connectToHost(host, port);
    return socket.waitForConnected(1000);
}

void startProcess(QProcess& process, const QStringList& command, const QString& host, quint16 port)
{
    if (isListening(host, port))
        qFatal("somebody else listens on %s", qPrintable(host));
    process.setProcessChannelMode(QProcess::MergedChannels);
    process.start(command.first(), command.mid(1));
    const bool runs
        = process.waitForStarted(patience)
        && QTest::qWaitFor(
              [&] { return process.state() == QProcess::NotRunning || isListening(host, port); },
              patience);
    if (!runs || process.state() != QProcess::Running)
        qFatal(
            "%s does not start: %s", qPrintable(command.join(' ')), process.readAll().constData());
}

void stopProcess(QProcess& process)
{
    if (process.state() == QProcess::NotRunning)
        return;
    process.kill();
    process.waitForFinished(patience);
}

/// The numbers of its processes, divided by blanks.
QByteArray workersOf(const QProcess& process)
{
    const QByteArray number = QByteArray::number(process.processId());
    return readFile("/proc/" + number + "/task/" + number + "/children");
}

QByteArray obscured(const QByteArray& password)
{
    QProcess rclone;
    rclone.start("rclone", { "obscure", QString::fromUtf8(password) });
    if (!rclone.waitForFinished(patience) || rclone.exitCode() != 0)
        qFatal("rclone is missing; ./scripts/setup installs it");
    return rclone.readAllStandardOutput().trimmed();
}

void makeKey(const QString& file)
{
    if (!QFile::exists(file)
        && QProcess::execute("ssh-keygen", { "-q", "-t", "ed25519", "-N", "", "-f", file }) != 0)
        qFatal("no key for SSH can be made");
}

QString keyOf(const QString& name)
{
    return state + name + "/key";
}

/// How rclone proves to this server who it is.
QByteArray credentials(const QString& name)
{
    if (isByOpenSsh(name))
        return "user = nobody\nkey_file = " + keyOf(name).toUtf8() + "\n";
    return "user = admin\npass = " + obscured("secret") + "\n";
}

void writeRemotes(const QStringList& names)
{
    QByteArray text;
    for (const QString& name : names)
        text += "[" + name.toUtf8() + "]\ntype = sftp\nhost = " + hostOf(name).toUtf8()
            + "\nport = " + QByteArray::number(sftpPort) + '\n' + credentials(name);
    writeFile(state + "rclone.conf", text);
    qputenv("RCLONE_CONFIG", (state + "rclone.conf").toUtf8());
}

/// How the file names the place of its files.
QString remoteOf(const QString& name)
{
    if (name == allNames.first())
        return Fleet::path(name);
    return isByOpenSsh(name) ? name + ':' + Fleet::path(name) : name + ':';
}

QStringList rcloneServer(const QString& name)
{
    return { "rclone", "serve", "sftp", Fleet::path(name) + '/', "--addr",
             hostOf(name) + ':' + QString::number(sftpPort), "--user", "admin", "--pass", "secret",
             // Tests change files behind its back.
             "--dir-cache-time", "0s" };
}

QStringList openSsh(const QString& name)
{
    const QByteArray folder = state.toUtf8() + name.toUtf8() + '/';
    makeKey(folder + "hostkey");
    writeFile(
        folder + "sshd",
        "ListenAddress " + hostOf(name).toUtf8() + ':' + QByteArray::number(sftpPort) + "\nHostKey "
            + folder + "hostkey\nAuthorizedKeysFile " + keyOf(name).toUtf8()
            + ".pub\nPidFile none\nStrictModes no\nMaxStartups 100\n"
              "Subsystem sftp internal-sftp\nForceCommand internal-sftp\n");
    // Lets in whom it takes itself for.
    return { "env",
             QString("LD_PRELOAD=") + HALDEN_ORDINARY_USER,
             "/usr/sbin/sshd",
             "-D",
             "-e",
             "-f",
             folder + "sshd" };
}

} // namespace

Fleet::Fleet(int count)
{
    // Before there is any certificate, or the toolkit would have looked for it in vain.
    trustedAuthority();
    for (const QString& name : allNames.first(count)) {
        servers.push_back(std::make_unique<Server>());
        servers.back()->name = name;
        servers.back()->certificate = trustedCertificate();
        setFolder(name, state + name + "/tree");
        if (isByOpenSsh(name))
            makeKey(keyOf(name));
    }
    writeRemotes(names());
}

Fleet::~Fleet()
{
    for (const auto& one : servers) {
        stopWeb(one->name);
        stopStorage(one->name);
    }
}

QStringList Fleet::names() const
{
    QStringList all;
    for (const auto& one : servers)
        all.append(one->name);
    return all;
}

void Fleet::setFolder(const QString& name, const QString& folder)
{
    QDir().mkpath(folder);
    QDir().mkpath("/srv/fleet");
    QFile::remove("/srv/fleet/" + name);
    if (!QFile::link(folder, "/srv/fleet/" + name))
        qFatal("no link to %s", qPrintable(folder));
}

void Fleet::setCertificate(const QString& name, const ServerCertificate& certificate)
{
    server(name).certificate = certificate;
}

void Fleet::setRule(const QString& name, const QByteArray& line, const QByteArray& replacement)
{
    server(name).line = line;
    server(name).replacement = replacement;
}

void Fleet::start()
{
    for (const auto& one : servers) {
        const QString folder = QFile::symLinkTarget(path(one->name));
        QDir(folder).removeRecursively();
        QDir().mkpath(folder);
        stopStorage(one->name);
        startWeb(one->name);
        startStorage(one->name);
    }
    writeFile(file(), text().toUtf8());
}

Fleet::Server& Fleet::server(const QString& name)
{
    for (const auto& one : servers) {
        if (one->name == name)
            return *one;
    }
    qFatal("there is no server %s", qPrintable(name));
}

void Fleet::writeConfiguration(const Server& server) const
{
    const QString folder = state + server.name + '/';
    QByteArray site = readFile(HALDEN_PACKAGING_FOLDER "/nginx/halden-community.conf");
    QString listening = "listen " + address(server.name) + " ssl";
    if (server.name == allNames.first() && hasIpv6())
        listening += "; listen [::1]:443 ssl";
    site.replace("listen 443 ssl", listening.toUtf8())
        .replace("/srv/halden", path(server.name).toUtf8())
        .replace("/var/log/nginx/", folder.toUtf8());
    site.replace(
        "www.tarnwick.example download.tarnwick.example mirror.tarnwick.example",
        communityHosts().join(' ').toUtf8());
    if (!site.contains(server.line))
        qFatal("the configuration has no line \"%s\"", server.line.constData());
    if (!server.line.isEmpty())
        site.replace(server.line, server.replacement);
    writeFile(folder + "site.conf", site);
    const ServerCertificate& certificate = server.certificate;
    writeFile(folder + "tls/fullchain.pem", readFile(certificate.certificateFile));
    writeFile(folder + "tls/privkey.pem", readFile(certificate.keyFile));
    writeFile(
        folder + "nginx.conf",
        "daemon off; worker_processes 1;\n" + QByteArray(::geteuid() == 0 ? "user root;\n" : "")
            + "pid " + folder.toUtf8() + "pid; error_log " + folder.toUtf8()
            + "error.log; events { }\nhttp { access_log off; include " + folder.toUtf8()
            + "site.conf; }\n");
}

void Fleet::startWeb(const QString& name, const QStringList& wrapper)
{
    Server& one = server(name);
    if (one.web.state() != QProcess::NotRunning)
        return;
    writeConfiguration(one);
    startProcess(
        one.web, wrapper + QStringList{ "/usr/sbin/nginx", "-c", state + name + "/nginx.conf" },
        hostOf(name), httpsPort);
}

void Fleet::stopWeb(const QString& name)
{
    QProcess& web = server(name).web;
    if (web.state() == QProcess::NotRunning)
        return;
    // With its worker.
    web.terminate();
    if (!web.waitForFinished(patience))
        qFatal("the web server %s does not end", qPrintable(name));
}

void Fleet::reloadWeb(const QString& name)
{
    Server& one = server(name);
    writeConfiguration(one);
    const QByteArray former = workersOf(one.web);
    ::kill(static_cast<pid_t>(one.web.processId()), SIGHUP);
    const bool isNew = QTest::qWaitFor(
        [&] {
            const QByteArray present = workersOf(one.web);
            return !present.isEmpty() && !present.contains(former);
        },
        patience);
    if (!isNew)
        qFatal("the web server %s goes by what it went by before", qPrintable(name));
}

void Fleet::startStorage(const QString& name, const QStringList& options)
{
    Server& one = server(name);
    if (name == allNames.first() || one.storage.state() != QProcess::NotRunning)
        return;
    const QStringList command = isByOpenSsh(name) ? openSsh(name) : rcloneServer(name);
    startProcess(one.storage, command + options, hostOf(name), sftpPort);
}

void Fleet::stopStorage(const QString& name)
{
    stopProcess(server(name).storage);
}

QString Fleet::path(const QString& name, const QString& relativePath)
{
    const QString folder = "/srv/fleet/" + name;
    return relativePath.isEmpty() ? folder : folder + '/' + relativePath;
}

QString Fleet::address(const QString& name)
{
    return hostOf(name) + ':' + QString::number(httpsPort);
}

bool Fleet::hasIpv6()
{
    return readFile("/proc/net/if_inet6").contains("00000000000000000000000000000001");
}

QString Fleet::text() const
{
    QString text;
    for (const auto& one : servers) {
        const QString remote = remoteOf(one->name);
        text += QString("[%1]\nremote = %2\naddress = %3\nconnect = %4\n")
                    .arg(one->name, remote, downloadBaseUrl, address(one->name));
        if (one->name == allNames.first() && hasIpv6())
            text = text.chopped(1) + ", [::1]:443\n";
    }
    return text;
}

QString Fleet::file() const
{
    return state + "fleet.ini";
}
