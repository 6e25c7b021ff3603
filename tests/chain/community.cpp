#include "tests/chain/community.h"

#include "tests/support/applicationfolder.h"

#include <QDir>
#include <QFile>
#include <QProcess>
#include <QTest>
#include <QUrl>

namespace {

const QString treeFolder = "/srv/halden";
const QString accessLog = "/run/halden/access.log";
const QString serverPid = "/run/halden/nginx.pid";

void runScript(const QString& name, const QStringList& arguments)
{
    QProcess script;
    script.setProcessChannelMode(QProcess::MergedChannels);
    // The server inherits whatever is open and would keep a pipe open for ever.
    script.setStandardOutputFile("/run/script.log", QIODevice::Truncate);
    script.start(HALDEN_SCRIPTS_FOLDER "/" + name, arguments);
    if (script.waitForFinished() && script.exitCode() == 0)
        return;
    qFatal("%s failed: %s", qPrintable(name), TestSupport::readFile("/run/script.log").constData());
}

/// "GET /a%20b 200 17" as "200 /a b".
QString statusAndPath(const QString& line)
{
    const QStringList words = line.split(' ');
    return words.at(2) + ' ' + QUrl::fromPercentEncoding(words.at(1).toUtf8());
}

} // namespace

Community::~Community()
{
    stop();
}

void Community::publish(int files) const
{
    QDir(treeFolder).removeRecursively();
    runScript(
        "make-server-tree",
        { "--files", QString::number(files), "--largest", "200000", treeFolder });
}

void Community::publishManifests(const QStringList& options) const
{
    runScript(
        "make-server-tree",
        QStringList{ "--manifests-only" } + options + QStringList{ treeFolder });
}

QString Community::path(const QString& relativePath) const
{
    return treeFolder + '/' + relativePath;
}

QString Community::patchPath(const QString& kind, const QString& name) const
{
    return treeFolder + patchRequest(kind, name);
}

QString Community::patchRequest(const QString& kind, const QString& name) const
{
    return "/wow-client-patch/" + kind + '/' + name;
}

void Community::start() const
{
    stop();
    runScript("serve-community", { treeFolder });
}

void Community::stop() const
{
    if (!QFile::exists(serverPid))
        return;
    runScript("serve-community", { "--stop" });
    if (!QTest::qWaitFor([] { return !QFile::exists(serverPid); }, 10'000))
        qFatal("the web server does not end");
}

QStringList Community::requests() const
{
    QStringList found;
    const QStringList lines
        = QString::fromUtf8(TestSupport::readFile(accessLog)).split('\n', Qt::SkipEmptyParts);
    for (const QString& line : lines)
        found.append(statusAndPath(line));
    return found;
}

QStringList Community::patchRequests() const
{
    return requests().filter(" /wow-client-patch/");
}

QStringList Community::statuses(const QString& requestPath) const
{
    QStringList found;
    const QStringList all = requests();
    for (const QString& request : all) {
        if (request.section(' ', 1) == requestPath)
            found.append(request.section(' ', 0, 0));
    }
    return found;
}

void Community::forgetRequests() const
{
    // The server appends, so the file can be cut under its hands.
    QFile::resize(accessLog, 0);
}
