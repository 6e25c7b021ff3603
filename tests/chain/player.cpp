#include "tests/chain/player.h"

#include "tests/support/applicationfolder.h"
#include "tests/support/realmsini.h"
#include "tests/support/widgets.h"

#include <QCryptographicHash>
#include <QDateTime>
#include <QDir>
#include <QFile>
#include <QMap>
#include <QSettings>

using TestSupport::ApplicationFolder::path;

namespace {

const QString clientsFolder = "/home/player/clients";

QString manifestName(const QString& kind)
{
    return kind == "live" ? "patch.ini" : "patchTest.ini";
}

QString md5(const QByteArray& content)
{
    return QCryptographicHash::hash(content, QCryptographicHash::Md5).toHex();
}

QString publishedManifest(const QString& kind)
{
    return "/srv/halden/" + manifestName(kind);
}

/// File name below the client and hash of every file that is to be there.
QMap<QString, QString> listedFiles(const QString& manifestPath)
{
    QMap<QString, QString> listed;
    const QSettings manifest(manifestPath, QSettings::IniFormat);
    const int count = manifest.value("numberOfFiles").toInt();
    for (int n = 1; n <= count; ++n) {
        const QString key = "file" + QString::number(n);
        const QString hash = manifest.value(key + "-hash").toString();
        const QString offset = manifest.value(key + "-pathOffset").toString();
        if (!hash.isEmpty())
            listed.insert(offset + '/' + manifest.value(key).toString(), hash);
    }
    return listed;
}

} // namespace

void Player::settle() const
{
    QDir(clientsFolder).removeRecursively();
    for (const QString kind : { "live", "test" })
        TestSupport::makeClientFolder(clientPath(kind, ""));
    const TestSupport::RealmEntry live{ .name = "Halden", .path = clientPath("live", "").toUtf8() };
    const TestSupport::RealmEntry test{ .name = "Probe",
                                        .path = clientPath("test", "").toUtf8(),
                                        .testRealm = "true" };
    TestSupport::writeRealmsIni(
        TestSupport::realmsIniWith({ live, test }, "realmid=1\ndev=true\n"));
    TestSupport::writeFile(path("Halden-Launcher.exe"), "stands in for the running program");
}

QString Player::clientPath(const QString& kind, const QString& name) const
{
    const QString client = clientsFolder + '/' + kind;
    return name.isEmpty() ? client : client + '/' + name;
}

QString Player::cachePath(const QString& kind, const QString& name) const
{
    return path("ClientDataStorage/" + kind + '/' + name);
}

QStringList Player::publishedFiles(const QString& kind) const
{
    return listedFiles(publishedManifest(kind)).keys();
}

QStringList Player::wrongInClient(const QString& kind) const
{
    QStringList wrong;
    const QMap<QString, QString> listed = listedFiles(publishedManifest(kind));
    if (listed.isEmpty())
        wrong.append("the manifest lists nothing");
    for (auto file = listed.begin(); file != listed.end(); ++file) {
        const QString installed = clientPath(kind, file.key());
        if (!QFile::exists(installed))
            wrong.append("missing: " + file.key());
        else if (md5(TestSupport::readFile(installed)) != file.value())
            wrong.append("different: " + file.key());
    }
    return wrong;
}

QStringList Player::wrongInClients() const
{
    QStringList wrong;
    for (const QString kind : { "live", "test" }) {
        const QStringList found = wrongInClient(kind);
        for (const QString& text : found)
            wrong.append(kind + ' ' + text);
    }
    return wrong;
}

int Player::copiesPerRun() const
{
    return static_cast<int>(
        listedFiles(path("Settings/patch.ini")).size()
        + listedFiles(path("Settings/patchTest.ini")).size());
}

void Player::ageManifests() const
{
    const QDateTime hourAgo = QDateTime::currentDateTimeUtc().addSecs(-3600);
    for (const QString name : { "patch.ini", "patchTest.ini" }) {
        QFile file(path("Settings/" + name));
        if (!file.open(QIODevice::ReadWrite)
            || !file.setFileTime(hourAgo, QFileDevice::FileModificationTime))
            qFatal("cannot set the time of %s", qPrintable(name));
    }
}
