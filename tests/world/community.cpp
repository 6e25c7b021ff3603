#include "tests/world/community.h"

#include "tests/support/applicationfolder.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QProcess>
#include <QTest>
#include <QUrl>

namespace {

const QString sourceFolder = "/srv/patch";
const QString treeFolder = "/srv/halden";
const QString accessLog = "/run/halden/access.log";
const QString serverPid = "/run/halden/nginx.pid";

void run(const QString& program, const QStringList& arguments)
{
    QProcess process;
    process.setProcessChannelMode(QProcess::MergedChannels);
    // The server inherits whatever is open and would keep a pipe open for ever.
    process.setStandardOutputFile("/run/program.log", QIODevice::Truncate);
    process.start(program, arguments);
    if (process.waitForFinished(120'000) && process.exitStatus() == QProcess::NormalExit
        && process.exitCode() == 0)
        return;
    qFatal(
        "%s failed: %s", qPrintable(program),
        TestSupport::readFile("/run/program.log").constData());
}

void runScript(const QString& name, const QStringList& arguments)
{
    run(HALDEN_SCRIPTS_FOLDER "/" + name, arguments);
}

/// The players of the tests are on this system.
void publishKind(const QString& kind, const QStringList& options)
{
    run(HALDEN_PUBLISH,
        QStringList{ "build", "--no-flush", "--kind", kind, "--separator", "/" } + options
            + QStringList{ sourceFolder + '/' + kind, treeFolder });
}

/// Everything is old, so that whatever a player has downloaded is newer.
void date(const QString& folder)
{
    run("find", { folder, "-exec", "touch", "--date=2024-05-01T08:00:00Z", "{}", "+" });
}

void replaceFolder(const QString& folder, const QString& prepared)
{
    QDir(folder).removeRecursively();
    run("cp", { "--archive", prepared, folder });
}

/// Publishing waits for the clock several times, so it is done once for each
/// number of files; every test begins with a copy.
void prepare(int files, const QString& shelf)
{
    QDir(sourceFolder).removeRecursively();
    QDir(treeFolder).removeRecursively();
    runScript(
        "make-source-tree",
        { "--files", QString::number(files), "--largest", "200000", sourceFolder });
    publishKind("live", {});
    publishKind("test", {});
    run(HALDEN_PUBLISH,
        { "build-launcher", "--no-flush", "--launcher", HALDEN_LAUNCHER_PROGRAM, "--updater",
          HALDEN_SHIPPED_UPDATER, treeFolder });
    run("cp", { sourceFolder + "/launcher.info", treeFolder });
    date(treeFolder);
    QDir().mkpath(shelf);
    run("cp", { "--archive", sourceFolder, shelf + "/source" });
    run("cp", { "--archive", treeFolder, shelf + "/tree" });
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
    const QString shelf = "/srv/prepared/" + QString::number(files);
    if (!QFile::exists(shelf + "/tree"))
        prepare(files, shelf);
    replaceFolder(sourceFolder, shelf + "/source");
    replaceFolder(treeFolder, shelf + "/tree");
}

void Community::publishChanges(const QStringList& options) const
{
    publishKind("live", options);
    publishKind("test", options);
}

QString Community::sourcePath(const QString& kind, const QString& name)
{
    const QString folder = sourceFolder + '/' + kind;
    return name.isEmpty() ? folder : folder + '/' + name;
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
    const QString md5 = TestSupport::md5(TestSupport::readFile(sourcePath(kind, name)));
    const QFileInfo file(name);
    return "/wow-client-patch/" + kind + '/' + file.path() + '/' + md5 + '/' + file.fileName();
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
