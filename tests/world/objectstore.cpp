#include "tests/world/objectstore.h"

#include "tests/support/applicationfolder.h"
#include "tests/world/webservers.h"

#include <QDir>
#include <QProcess>

using namespace TestSupport;

namespace {

constexpr quint16 proxyPort = 8080;
constexpr quint16 accountPort = 6202;
constexpr quint16 containerPort = 6201;
constexpr quint16 objectPort = 6200;
constexpr std::size_t deviceCount = 3;
const QString python = "/usr/bin/python3";
const QString proxyAddress = "127.0.0.20";

/// Which device lies where, for each of the three services.
const QByteArray makeRings = R"py(
import sys
from swift.common.ring import RingBuilder
folder, devices = sys.argv[1], int(sys.argv[2])
for service, port in ("account", 6202), ("container", 6201), ("object", 6200):
    builder = RingBuilder(part_power=6, replicas=devices, min_part_hours=0)
    for n in range(devices):
        address = f"127.0.0.{21 + n}" if service == "object" else "127.0.0.20"
        builder.add_dev({
            "region": 1, "zone": n, "ip": address, "port": port, "replication_ip": address,
            "replication_port": port, "device": f"d{n}", "weight": 1, "meta": ""})
    builder.rebalance()
    builder.get_ring().save(f"{folder}/{service}.ring.gz")
)py";

/// What Swift's own programs do, but for becoming another user, which nobody may here.
const QByteArray runServer = R"py(
import sys
from swift.common import utils, wsgi
utils.set_swift_dir(sys.argv[3])
wsgi.drop_privileges = lambda user: None
sys.exit(wsgi.run_wsgi(sys.argv[1], sys.argv[2]))
)py";

QString folder()
{
    return WebServers::folderOf("store");
}

QString addressOf(std::size_t device)
{
    return "127.0.0." + QString::number(21 + device);
}

void lay(const QString& name, const QByteArray& text)
{
    writeFile(folder() + '/' + name, text);
}

void prepare()
{
    QDir(folder()).removeRecursively();
    for (std::size_t n = 0; n < deviceCount; ++n)
        QDir().mkpath(folder() + "/devices/d" + QString::number(n));
    lay("swift.conf", "[swift-hash]\nswift_hash_path_prefix = a\nswift_hash_path_suffix = b\n");
    lay("rings.py", makeRings);
    lay("server.py", runServer);
    const int failed = QProcess::execute(
        python, { folder() + "/rings.py", folder(), QString::number(deviceCount) });
    if (failed != 0)
        qFatal("no rings; ./scripts/setup installs the object store");
}

QByteArray beginning(const QString& address, quint16 port)
{
    return "[DEFAULT]\nworkers = 0\nmount_check = false\nbind_ip = " + address.toUtf8()
        + "\nbind_port = " + QByteArray::number(port) + "\nswift_dir = " + folder().toUtf8()
        + "\ndevices = " + folder().toUtf8() + "/devices\n";
}

std::unique_ptr<ServerProcess>
server(const QString& name, const QString& service, const QByteArray& configuration)
{
    lay(name + ".conf", configuration);
    auto process = std::make_unique<ServerProcess>(
        python,
        QStringList{ folder() + "/server.py", folder() + '/' + name + ".conf", service + "-server",
                     folder() },
        folder() + '/' + name + ".log");
    return process;
}

std::unique_ptr<ServerProcess>
storageServer(const QString& name, const QByteArray& service, const QString& address, quint16 port)
{
    return server(
        name, service,
        beginning(address, port) + "[pipeline:main]\npipeline = " + service
            + "-server\n[app:" + service + "-server]\nuse = egg:swift#" + service + '\n');
}

std::unique_ptr<ServerProcess> proxyServer()
{
    QByteArray text = beginning(proxyAddress, proxyPort)
        + "[pipeline:main]\npipeline = catch_errors gatekeeper cache s3api tempauth copy "
          "proxy-server\n[app:proxy-server]\nuse = egg:swift#proxy\naccount_autocreate = true\n"
          "[filter:cache]\nuse = egg:swift#memcache\n"
          "[filter:tempauth]\nuse = egg:swift#tempauth\nuser_halden_admin = secret .admin\n";
    for (const QByteArray filter : { "catch_errors", "gatekeeper", "s3api", "copy" })
        text += "[filter:" + filter + "]\nuse = egg:swift#" + filter + '\n';
    return server("proxy", "proxy", text);
}

QString clockFile()
{
    return folder() + "/clock";
}

} // namespace

ObjectStore::ObjectStore(int secondsAhead)
{
    prepare();
    directories.push_back(storageServer("account", "account", proxyAddress, accountPort));
    directories.push_back(storageServer("container", "container", proxyAddress, containerPort));
    for (std::size_t n = 0; n < deviceCount; ++n)
        devices.push_back(
            storageServer("object" + QString::number(n), "object", addressOf(n), objectPort));
    proxy = proxyServer();
    setClock(secondsAhead);
    for (const auto& process : directories)
        useClock(*process);
    for (const auto& process : devices)
        useClock(*process);
    useClock(*proxy);
}

void ObjectStore::setClock(int secondsAhead)
{
    writeFile(clockFile(), '+' + QByteArray::number(secondsAhead) + "s\n");
}

void ObjectStore::useClock(ServerProcess& process)
{
    process.preload(HALDEN_FAKETIME);
    process.setEnvironment("FAKETIME_TIMESTAMP_FILE", clockFile());
    process.setEnvironment("FAKETIME_CACHE_DURATION", "1");
}

ObjectStore::~ObjectStore() = default;

void ObjectStore::start()
{
    directories.at(0)->start(proxyAddress, accountPort);
    directories.at(1)->start(proxyAddress, containerPort);
    for (std::size_t n = 0; n < devices.size(); ++n)
        startDevice(n);
    proxy->start(proxyAddress, proxyPort);
}

void ObjectStore::stopDevice(std::size_t number)
{
    devices.at(number)->stop();
}

void ObjectStore::startDevice(std::size_t number)
{
    devices.at(number)->start(addressOf(number), objectPort);
}

QByteArray ObjectStore::section(const QString& name)
{
    return '[' + name.toUtf8()
        + "]\ntype = s3\nprovider = Other\naccess_key_id = halden:admin\nsecret_access_key = "
          "secret\nregion = us-east-1\nendpoint = http://"
        + host() + "\nacl = private\nbucket_acl = public-read\n";
}

QByteArray ObjectStore::host()
{
    return proxyAddress.toUtf8() + ':' + QByteArray::number(proxyPort);
}

QByteArray ObjectStore::pathOf(const QString& bucket)
{
    return "/v1/AUTH_halden/" + bucket.toUtf8();
}
