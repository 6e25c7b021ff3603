#include "tests/world/webservers.h"

#include "tests/support/applicationfolder.h"
#include "tests/support/certificateauthority.h"

#include <QDir>
#include <QStringList>

#include <unistd.h>

using namespace TestSupport;

namespace {

const QByteArray exampleNames
    = "www.tarnwick.example download.tarnwick.example mirror.tarnwick.example";

// As Debian's own configuration has it.
const QByteArray combinedOfApache
    = R"(LogFormat "%h %l %u %t \"%r\" %>s %O \"%{Referer}i\" \"%{User-Agent}i\"" combined)"
      "\n";

// Root has no right to become another user in here, and has to be named as the one
// to stay.
bool isRoot()
{
    return ::geteuid() == 0;
}

QString configurationOf(const QString& name, const QByteArray& content)
{
    QString path = WebServers::folderOf(name) + "/configuration";
    writeFile(path, content);
    return path;
}

QString logOf(const QString& name)
{
    return WebServers::folderOf(name) + "/said.log";
}

/// What Debian enables by itself, and what the administrators' file asks for.
QByteArray apacheModules()
{
    QByteArray lines;
    for (const char* name :
         { "mpm_event", "authz_core", "alias", "autoindex", "deflate", "dir", "env", "filter",
           "mime", "negotiation", "setenvif", "headers", "ssl", "socache_shmcb" })
        lines += QByteArray("LoadModule ") + name + "_module /usr/lib/apache2/modules/mod_" + name
            + ".so\n";
    return lines;
}

WebServers::Replacements certificatePaths(const QByteArray& folder)
{
    return { { folder + "/fullchain.pem", trustedCertificate().certificateFile.toUtf8() },
             { folder + "/privkey.pem", trustedCertificate().keyFile.toUtf8() } };
}

} // namespace

namespace WebServers {

QString folderOf(const QString& name)
{
    QString folder = "/run/servers/" + name;
    QDir().mkpath(folder);
    return folder;
}

Replacements ownNames()
{
    return certificatePaths("tls")
        + Replacements{ { exampleNames, communityHosts().join(' ').toUtf8() } };
}

QString logFileOf(const QString& name)
{
    return folderOf(name) + "/halden.log";
}

QString combinedLogFileOf(const QString& name)
{
    return folderOf(name) + "/combined.log";
}

QByteArray packaged(const QString& file, const Replacements& replacements)
{
    const QString path = HALDEN_PACKAGING_FOLDER "/" + file;
    QByteArray content = readFile(path);
    for (const auto& [text, substitute] : replacements) {
        if (!content.contains(text))
            qFatal("%s has no \"%s\"", qPrintable(path), text.constData());
        content.replace(text, substitute);
    }
    return content;
}

std::unique_ptr<ServerProcess> nginx(const QString& name, QByteArray site)
{
    const QByteArray folder = folderOf(name).toUtf8();
    // The site's log beside the others, whose place it would take.
    site.replace(
        "access_log /var/log/nginx/halden.log halden;",
        "access_log " + logFileOf(name).toUtf8() + " halden; access_log "
            + combinedLogFileOf(name).toUtf8() + " combined; access_log " + folder
            + "/access.log requests;");
    const QString path = configurationOf(
        name,
        QByteArray("daemon off;\nworker_processes 1;\n") + (isRoot() ? "user root;\n" : "") + "pid "
            + folder + "/pid;\nerror_log stderr notice;\nevents { }\nhttp {\n"
            + "log_format requests '$request_method $request_uri $status $body_bytes_sent';\n"
            + "access_log " + folder + "/access.log requests;\n" + site + "}\n");
    return std::make_unique<ServerProcess>(
        "/usr/sbin/nginx", QStringList{ "-e", "stderr", "-c", path }, logOf(name));
}

std::unique_ptr<ServerProcess> apache(const QString& name, QByteArray site)
{
    const QByteArray folder = folderOf(name).toUtf8();
    site.replace(
        "CustomLog /var/log/apache2/halden.log halden",
        "CustomLog " + logFileOf(name).toUtf8() + " halden\nCustomLog "
            + combinedLogFileOf(name).toUtf8() + " combined");
    const QString path = configurationOf(
        name,
        "ServerRoot " + folder + "\nServerName localhost\nPidFile " + folder
            + "/pid\nErrorLog /dev/stderr\nListen 127.0.0.1:443\n" + apacheModules()
            + combinedOfApache
            + "TypesConfig /dev/null\nAddOutputFilterByType DEFLATE text/html text/plain\n" + site);
    auto process = std::make_unique<ServerProcess>(
        "/usr/sbin/apache2", QStringList{ "-D", "FOREGROUND", "-f", path }, logOf(name));
    if (isRoot())
        process->preload(HALDEN_ORDINARY_USER);
    return process;
}

std::unique_ptr<ServerProcess> caddy(const QString& name, QByteArray site)
{
    site.replace("/var/log/caddy/halden.log", logFileOf(name).toUtf8());
    const QString path = configurationOf(name, site);
    auto process = std::make_unique<ServerProcess>(
        "/usr/bin/caddy", QStringList{ "run", "--adapter", "caddyfile", "--config", path },
        logOf(name));
    for (const char* variable : { "XDG_DATA_HOME", "XDG_CONFIG_HOME" })
        process->setEnvironment(variable, folderOf(name));
    return process;
}

std::unique_ptr<ServerProcess> communityServer(const QString& program)
{
    if (program == "nginx")
        return nginx(program, packaged("nginx/halden-community.conf", ownNames()));
    if (program == "apache")
        return apache(
            program,
            packaged("apache/halden-community.conf", certificatePaths("/etc/apache2/tls")));
    if (program != "caddy")
        qFatal("no configuration for %s", qPrintable(program));
    // It would ask an authority of the internet.
    const QByteArray own = "tls " + trustedCertificate().certificateFile.toUtf8() + ' '
        + trustedCertificate().keyFile.toUtf8();
    const QByteArray hosts = communityHosts().join(", ").toUtf8() + " {";
    return caddy(
        program,
        "{\nadmin off\nauto_https disable_redirects\n}\n"
            + packaged(
                "caddy/Caddyfile",
                { { QByteArray(exampleNames).replace(" ", ", ") + " {", hosts + "\n\t" + own } }));
}

} // namespace WebServers
