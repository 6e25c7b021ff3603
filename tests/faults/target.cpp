#include "tests/faults/target.h"

#include "app/constants.h"
#include "tests/support/applicationfolder.h"
#include "tests/support/realmsini.h"
#include "tests/support/timezone.h"
#include "tests/support/widgets.h"
#include "tests/update/updatefixture.h"

#include <QDir>
#include <QFileInfo>

using namespace TestSupport;
using TestSupport::ApplicationFolder::path;

namespace {

const QByteArray patchName = "patch-h.MPQ";

/// Longer than what it replaces, and than any block of a disk.
QByteArray withPadding(const QByteArray& content)
{
    return content + QByteArray(20'000, '.');
}

QByteArray manifestWith(const QByteArray& patchFile)
{
    return "[General]\nnumberOfFiles=1\nfile1=" + patchName
        + "\nfile1-pathOffset=Data\nfile1-hash=" + md5(patchFile).toLatin1() + '\n';
}

} // namespace

namespace Targets {

const QList<Target>& all()
{
    static const QList<Target> targets{ Target::InfoText, Target::Updater, Target::Launcher,
                                        Target::Manifest, Target::PatchFile };
    return targets;
}

Target before(Target target)
{
    return all().at(all().indexOf(target) - 1);
}

QString name(Target target)
{
    static const QStringList names{ "info text", "updater", "launcher executable", "manifest",
                                    "patch file" };
    return names.at(static_cast<int>(target));
}

QByteArray requestPath(Target target)
{
    static const QList<QByteArray> paths{ "/alert", "/Halden-Launcher-Updater.exe",
                                          "/Halden-Launcher.exe", "/patch.ini",
                                          "/wow-client-patch/live//" + patchName };
    return paths.at(static_cast<int>(target));
}

QString url(Target target)
{
    if (target == Target::InfoText)
        return launcherInfoUrl;
    return downloadBaseUrl + QString::fromLatin1(requestPath(target).mid(1));
}

QString relativePath(Target target)
{
    static const QStringList paths{ "launcher.info", "Halden-Launcher-Updater.exe",
                                    "Halden-Launcher.tmp", "Settings/patch.ini",
                                    "ClientDataStorage/live/Data/" + patchName };
    return paths.at(static_cast<int>(target));
}

QString localPath(Target target)
{
    return path(relativePath(target));
}

QString localFolder(Target target)
{
    return QFileInfo(localPath(target)).path();
}

int requestsPerStart(Target target)
{
    return target == Target::InfoText ? 1 : 2;
}

QByteArray yesterday(Target target)
{
    const QByteArray patchFile = "yesterday's patch file";
    const QList<QByteArray> contents{ "yesterday's <b>text</b>", "yesterday's updater",
                                      QByteArray(), manifestWith(patchFile), patchFile };
    return contents.at(static_cast<int>(target));
}

QByteArray today(Target target)
{
    const QByteArray patchFile = withPadding("today's patch file");
    const QList<QByteArray> contents{ withPadding("today's <b>text</b>"),
                                      withPadding("today's updater"),
                                      withPadding("today's launcher"),
                                      withPadding(manifestWith(patchFile) + "; "), patchFile };
    return contents.at(static_cast<int>(target));
}

QDateTime yesterdayEvening()
{
    return utc(QDate(2024, 1, 1), QTime(20, 0));
}

QDateTime thisMorning()
{
    return utc(QDate(2025, 1, 1), QTime(8, 0));
}

HttpsServer::Handler published(Target target, const QDateTime& date)
{
    const QByteArray content = today(target);
    // Neither goes by dates: the text has none, a patch file is asked for by hash.
    if (target == Target::PatchFile || target == Target::InfoText)
        return [content](const HttpRequest&) {
            return HttpAnswer::ok(content);
        };
    return HttpsServer::servingFile(content, date);
}

HttpsServer::Handler publishedFor(Target hit, Target target, const QDateTime& date)
{
    const bool isOld = target == Target::Launcher && target != hit;
    return published(target, isOld ? utc(QDate(2023, 1, 1), QTime()) : date);
}

void publishAllFor(Target hit, HttpsServer& server, const QDateTime& date)
{
    for (const Target each : all())
        server.answer(requestPath(each), publishedFor(hit, each, date));
}

QString stateOfFile(Target target, const QString& launcherFolder)
{
    const QByteArray content = readFile(launcherFolder + '/' + relativePath(target));
    if (content == today(target))
        return "whole";
    return content == yesterday(target) ? "kept" : "as sent";
}

QString installedPatchFile(const QString& clientFolder)
{
    return clientFolder + "/Data/" + patchName;
}

} // namespace Targets

QString ownClientFolder()
{
    return QStringLiteral("/home/player/client");
}

void placeOldFile(const QString& file, const QByteArray& content)
{
    writeFile(file, content);
    UpdateFixture::setModificationTime(file, Targets::yesterdayEvening());
}

void layOutPlayer(const QString& launcherFolder, const QString& clientFolder)
{
    QDir(clientFolder).removeRecursively();
    makeClientFolder(clientFolder);
    const QString inFolder = launcherFolder + '/';
    for (const QString name : { "ssleay32.dll", "libssl32.dll", "libeay32.dll" })
        writeFile(inFolder + name, "there");
    const RealmEntry realm{ .name = "Halden", .path = clientFolder.toUtf8() };
    writeFile(inFolder + "Settings/realms.ini", realmsIniWith({ realm }, "realmid=1\n"));
    placeOldFile(inFolder + "Halden-Launcher.exe", "stands in for the running program");
    for (const Target each : Targets::all()) {
        if (!Targets::yesterday(each).isNull())
            placeOldFile(inFolder + Targets::relativePath(each), Targets::yesterday(each));
    }
    placeOldFile(Targets::installedPatchFile(clientFolder), Targets::yesterday(Target::PatchFile));
}
