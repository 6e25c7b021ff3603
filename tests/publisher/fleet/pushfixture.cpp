#include "tests/publisher/fleet/pushfixture.h"

#include "app/constants.h"
#include "publisher/fleet/pushedtree.h"
#include "publisher/fleet/webquestions.h"
#include "publisher/probe/servedmanifest.h"
#include "tests/publisher/buildfixture.h"
#include "tests/support/applicationfolder.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QProcess>
#include <QRegularExpression>
#include <QUrl>

using namespace TestSupport;
using namespace BuildFixture;
using namespace Publisher;

namespace PushFixture {

namespace {

void run(const QStringList& arguments)
{
    const CommandRun done(arguments);
    if (done.code != ExitCode::Fine)
        qFatal(
            "%s: %s%s", qPrintable(arguments.join(' ')), qPrintable(done.text),
            qPrintable(done.messages));
}

void copyFolder(const QString& from, const QString& to)
{
    QDir(to).removeRecursively();
    QDir().mkpath(QFileInfo(to).path());
    if (QProcess::execute("cp", { "--archive", from, to }) != 0)
        qFatal("%s cannot be copied", qPrintable(from));
}

QString folderOf(const QString& server)
{
    return QFile::symLinkTarget(Fleet::path(server));
}

QString keptOf(const QString& server)
{
    return "/run/kept/" + server;
}

FleetServer serverOf(const Fleet& fleet, const QString& name)
{
    const QList<FleetServer> servers = FleetFile::parse(fleet.text(), "fleet.ini").servers;
    for (const FleetServer& server : servers) {
        if (server.name == name)
            return server;
    }
    qFatal("there is no server %s", qPrintable(name));
}

ProbeAnswer ask(const FleetServer& server, const QString& file)
{
    constexpr int patient = 30; // seconds
    return WebQuestions::answer(server, server.connect.first(), file, patient);
}

QStringList brokenFilesOf(const FleetServer& server)
{
    const ProbeAnswer manifest = ask(server, "patch.ini");
    // A server that answers nothing, or has none, names nothing.
    if (manifest.status != HttpStatus::ok)
        return {};
    if (md5(manifest.body).toLatin1() != manifest.md5)
        return { server.name + ": the manifest is too long for this test" };
    QStringList broken;
    const auto files
        = ServedManifest::read(
              Kind::Live, Publisher::ServerLayout::manifestName(Kind::Live), manifest.body)
              .files;
    for (const PatchFile& file : files) {
        const QString path = file.address(server.address).path().sliced(1);
        const ProbeAnswer answer = ask(server, path);
        const bool isRight = QString::fromLatin1(answer.md5) == file.entry.hash;
        if (answer.status != 0 && (answer.status != HttpStatus::ok || !isRight))
            broken.append(server.name + ": " + path + ' ' + QString::number(answer.status));
    }
    return broken;
}

} // namespace

void publish(const QStringList& options)
{
    run(QStringList{ "build", source(), server(), "--no-flush", "--separator", "/" } + options);
}

void rollBack(int number)
{
    const QStringList arguments{ "rollback", server(), QString::number(number), "--no-flush" };
    const CommandRun refused(arguments);
    if (refused.code == ExitCode::Fine)
        return;
    static const QRegularExpression confirmation("(--yes-remove) (\\d+)");
    const QRegularExpressionMatch asked = confirmation.match(all(refused));
    run(arguments + QStringList{ asked.captured(1), asked.captured(2) });
}

void release(const QByteArray& version)
{
    for (const char* name : { "launcher", "updater" })
        writeFile(ApplicationFolder::path(name), readFile("/usr/bin/true") + version + name);
    run({ "build-launcher", server(), "--no-flush", "--launcher",
          ApplicationFolder::path("launcher"), "--updater", ApplicationFolder::path("updater") });
}

void layOut()
{
    ApplicationFolder::clear();
    put("Data/same.mpq", "same");
    put("Data/changed.mpq", "old");
    put("Data/dropped.mpq", "dropped");
    publish();
    release("1");
    writeFile(server("launcher.info"), "<h1>Hallo</h1>");
}

void moveOn()
{
    put("Data/changed.mpq", QByteArray(300 << 10, 'n'));
    put("Data/Neu # 1%/added ä.mpq", "added");
    QFile::remove(source("Data/dropped.mpq"));
    publish({ "--yes-remove", "1" });
}

QStringList pushLine(const Fleet& fleet, const QStringList& options)
{
    // The throw-away certificate is valid for two days.
    return QStringList{ "push", server(),      "--fleet", fleet.file(), "--days",
                        "0",    "--separator", "/",       "--timeout",  "20" }
    + options;
}

CommandRun push(const Fleet& fleet, const QStringList& options)
{
    return CommandRun(pushLine(fleet, options));
}

void pushWell(const Fleet& fleet, const QStringList& options)
{
    run(pushLine(fleet, options));
}

QString all(const CommandRun& run)
{
    return run.text + run.messages;
}

QMap<QString, QByteArray> filesOf(const QString& server)
{
    return filesBelow(folderOf(server));
}

QString differenceFromTree(const QString& name)
{
    const QMap<QString, QByteArray> there = filesOf(name);
    const PushedTree tree = PushedTree::read(server());
    QStringList expected = tree.rootFiles.keys();
    expected += tree.content.keys();
    for (const QString& path : std::as_const(expected)) {
        if (there.value(path) != readFile(server(path)))
            return name + ": " + path + " is not as in the tree";
    }
    for (auto file = there.begin(); file != there.end(); ++file) {
        if (!expected.contains(file.key()) && !file.key().startsWith("wow-client-patch/live/"))
            return name + ": has " + file.key();
    }
    return {};
}

QStringList brokenOn(const Fleet& fleet, const QString& name)
{
    return brokenOn(serverOf(fleet, name));
}

QStringList brokenOn(const FleetServer& server)
{
    return brokenFilesOf(server);
}

QString differenceServed(const FleetServer& server)
{
    const PushedTree tree = PushedTree::read(BuildFixture::server());
    const QStringList names = plainRootFiles() + launcherRootFiles();
    for (const QString& name : names) {
        const QString wanted = tree.rootFile(name).md5;
        const ProbeAnswer answer = ask(server, name);
        const bool isRight = wanted.isEmpty() ? answer.status == HttpStatus::notFound
                                              : QString::fromLatin1(answer.md5) == wanted;
        if (!isRight)
            return server.name + ": " + name + " is not as in the tree";
    }
    return brokenOn(server).join('\n');
}

FleetServer serverAt(const QString& name, const QString& address)
{
    const QString text = QString("[%1]\nremote = /%1\naddress = %2\nconnect = %3\n")
                             .arg(name, downloadBaseUrl, address);
    return FleetFile::parse(text, "fleet.ini").servers.first();
}

void keepServers(const Fleet& fleet)
{
    for (const QString& name : fleet.names())
        copyFolder(folderOf(name), keptOf(name));
}

void putBack(const Fleet& fleet)
{
    for (const QString& name : fleet.names())
        putBack(name);
}

void putBack(const QString& server)
{
    copyFolder(keptOf(server), folderOf(server));
}

QStringList anHourAhead(const QString& library)
{
    // nginx takes the environment from its worker, where the library looks again otherwise.
    return { "env", "LD_PRELOAD=" + library, "FAKETIME=+1h", "FAKETIME_CACHE_DURATION=86400" };
}

QDateTime dateOf(const QString& server, const QString& file)
{
    return BuildFixture::dateOf(Fleet::path(server, file));
}

Watcher::Watcher(const Fleet& fleet, QString watchedFile)
    : Watcher(FleetFile::parse(fleet.text(), "fleet.ini").servers, std::move(watchedFile))
{
}

Watcher::Watcher(QList<FleetServer> watched, QString watchedFile)
    : servers(std::move(watched))
    , file(std::move(watchedFile))
    , thread(QThread::create([this] { watch(); }))
{
    thread->start();
}

Watcher::~Watcher()
{
    stop();
}

void Watcher::stop()
{
    ends = true;
    thread->wait();
}

void Watcher::watch()
{
    while (!ends) {
        for (const FleetServer& server : std::as_const(servers)) {
            faults += brokenFilesOf(server);
            Sighting sighting;
            sighting.server = server.name;
            sighting.asked = QDateTime::currentDateTimeUtc();
            const ProbeAnswer answer = ask(server, file);
            sighting.answered = QDateTime::currentDateTimeUtc();
            sighting.status = answer.status;
            sighting.md5 = answer.md5;
            sighting.lastModified = answer.lastModified.toUTC();
            seen.append(sighting);
        }
    }
}

QStringList Watcher::broken() const
{
    return faults;
}

QList<Sighting> Watcher::sightings() const
{
    return seen;
}

} // namespace PushFixture
