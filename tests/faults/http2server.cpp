#include "tests/faults/http2server.h"

#include "tests/support/applicationfolder.h"
#include "tests/support/certificateauthority.h"
#include "tests/update/updatefixture.h"

#include <QFile>
#include <QProcess>
#include <QTest>

using namespace TestSupport;

namespace {

const QString folder = "/run/http2";
const QString configurationFile = folder + "/nginx.conf";
const QString processFile = folder + "/nginx.pid";
const QString accessLog = folder + "/access.log";

QByteArray configuration()
{
    const ServerCertificate& certificate = trustedCertificate();
    return QString("master_process off;\nuser root;\npid %1;\nerror_log %2/error.log;\nevents { }\n"
                   "http {\n"
                   "    log_format protocols '$server_protocol $uri $status';\n"
                   "    access_log %3 protocols;\n"
                   "    server {\n"
                   "        listen 443 ssl http2;\n"
                   "        ssl_certificate %4;\n"
                   "        ssl_certificate_key %5;\n"
                   "        if_modified_since before;\n"
                   "        root %2/tree;\n"
                   "    }\n"
                   "}\n")
        .arg(processFile, folder, accessLog, certificate.certificateFile, certificate.keyFile)
        .toUtf8();
}

void runNginx(const QStringList& arguments)
{
    QProcess nginx;
    nginx.setProcessChannelMode(QProcess::MergedChannels);
    // It inherits whatever is open and would keep a pipe open for ever.
    nginx.setStandardOutputFile(folder + "/output", QIODevice::Truncate);
    nginx.start("/usr/sbin/nginx", QStringList{ "-c", configurationFile } + arguments);
    if (!nginx.waitForFinished() || nginx.exitCode() != 0)
        qFatal("nginx fails: %s", readFile(folder + "/output").constData());
}

} // namespace

Http2Server::Http2Server(Target target)
{
    writeFile(configurationFile, configuration());
    writeFile(accessLog, QByteArray());
    for (const Target each : Targets::all()) {
        const QString file = folder + "/tree" + QString::fromLatin1(Targets::requestPath(each));
        const bool isOld = each == Target::Launcher && each != target;
        writeFile(file, Targets::today(each));
        UpdateFixture::setModificationTime(
            file, isOld ? Targets::yesterdayEvening() : Targets::thisMorning());
    }
}

Http2Server::~Http2Server()
{
    stop();
}

void Http2Server::start()
{
    running = true;
    runNginx({});
}

void Http2Server::stop()
{
    if (!std::exchange(running, false))
        return;
    runNginx({ "-s", "stop" });
    if (!QTest::qWaitFor([] { return !QFile::exists(processFile); }, 10'000))
        qFatal("nginx does not end");
}

bool Http2Server::hasServedByHttp2(Target target) const
{
    const QByteArray path = Targets::requestPath(target).replace("//", "/");
    return readFile(accessLog).contains("HTTP/2.0 " + path + " 200");
}

QString Http2Server::log() const
{
    return QString::fromUtf8(readFile(accessLog));
}
