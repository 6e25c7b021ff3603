#include "tests/world/edges.h"

#include "app/constants.h"
#include "tests/support/certificateauthority.h"
#include "tests/world/webservers.h"

#include <QDir>
#include <QUrl>

using namespace TestSupport;

namespace {

const QString localhost = "127.0.0.1";
constexpr quint16 httpsPort = 443;
constexpr quint16 varnishPort = 6081;

QByteArray tlsLines()
{
    return "ssl_certificate " + trustedCertificate().certificateFile.toUtf8()
        + ";\nssl_certificate_key " + trustedCertificate().keyFile.toUtf8() + ";\n";
}

QByteArray site(const Edge::Origin& first, const Edge::Origin& second, const QByteArray& folder)
{
    const auto address = [](const Edge::Origin& origin) {
        return "127.0.0.1:" + QByteArray::number(origin.port);
    };
    return WebServers::packaged(
        "nginx/halden-edge.conf",
        { { "listen 443 ssl;", "listen 127.0.0.1:443 ssl;" },
          { "/var/cache/nginx/halden", folder },
          { "192.0.2.10:443", address(first) },
          { "192.0.2.11:443", address(second) },
          { "    ssl_certificate tls/fullchain.pem;\n    ssl_certificate_key tls/privkey.pem;\n",
            tlsLines() },
          { "www.tarnwick.example download.tarnwick.example mirror.tarnwick.example",
            communityHosts().join(' ').toUtf8() },
          { "download.tarnwick.example", QUrl(downloadBaseUrl).host().toUtf8() },
          { "/etc/ssl/certs/ca-certificates.crt",
            trustedAuthority().certificateFile().toUtf8() } });
}

std::unique_ptr<ServerProcess> varnish(const Edge::Origin& first, const Edge::Origin& second)
{
    const auto backend = [](const QByteArray& host, const Edge::Origin& origin) {
        return std::pair{ "    .host = \"" + host + "\";\n    .port = \"80\";",
                          "    .host = \"127.0.0.1\";\n    .port = \""
                              + QByteArray::number(origin.plainPort) + "\";" };
    };
    const auto [one, itsPort] = backend("192.0.2.10", first);
    const auto [other, otherPort] = backend("192.0.2.11", second);
    const QByteArray vcl
        = WebServers::packaged("varnish/halden.vcl", { { one, itsPort }, { other, otherPort } });
    const QString path = WebServers::folderOf("varnish") + "/halden.vcl";
    QFile file(path);
    if (!file.open(QIODevice::WriteOnly) || file.write(vcl) != vcl.size())
        qFatal("%s cannot be written", qPrintable(path));
    return std::make_unique<ServerProcess>(
        "/usr/sbin/varnishd",
        QStringList{ "-F", "-j", "none", "-n", WebServers::folderOf("varnish") + "/work", "-a",
                     localhost + ':' + QString::number(varnishPort), "-f", path, "-s",
                     "files=malloc,64m" },
        WebServers::folderOf("varnish") + "/said.log");
}

std::unique_ptr<ServerProcess> tlsProxyOfVarnish()
{
    return WebServers::nginx(
        "tls-proxy",
        "server {\nlisten 127.0.0.1:443 ssl;\n" + tlsLines()
            + "location / {\nproxy_pass http://127.0.0.1:" + QByteArray::number(varnishPort)
            + ";\nproxy_set_header Host $host;\nproxy_set_header X-Forwarded-For $remote_addr;\n"
              "proxy_buffering off;\nproxy_http_version 1.1;\n}\n}\n");
}

} // namespace

Edge::Edge(const QString& program, const Origin& first, const Origin& second)
    : folder(WebServers::folderOf("edge") + "/cache")
    , cachePort(program == "varnish" ? varnishPort : httpsPort)
{
    if (program == "varnish") {
        cache = varnish(first, second);
        tlsProxy = tlsProxyOfVarnish();
    } else {
        cache = WebServers::nginx("edge", site(first, second, folder.toUtf8()));
    }
}

void Edge::startEmpty()
{
    QDir(folder).removeRecursively();
    start();
}

void Edge::restart()
{
    cache->stop();
    start();
}

void Edge::start()
{
    cache->start(localhost, cachePort);
    if (tlsProxy)
        tlsProxy->start(localhost, httpsPort);
}
