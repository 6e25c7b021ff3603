#include "tests/world/player.h"

#include "tests/support/applicationfolder.h"
#include "tests/support/realmsini.h"
#include "tests/support/widgets.h"
#include "tests/world/community.h"

#include <QDir>
#include <QFile>
#include <QMap>
#include <QSettings>

using TestSupport::ApplicationFolder::path;

namespace {

const QString clientsFolder = "/home/player/clients";

/// How many files a manifest of the player's lists.
int listedFiles(const QString& manifestName)
{
    const QSettings manifest(path("Settings/" + manifestName), QSettings::IniFormat);
    const int count = manifest.value("numberOfFiles").toInt();
    int listed = 0;
    for (int n = 1; n <= count; ++n)
        listed
            += manifest.value("file" + QString::number(n) + "-hash").toString().isEmpty() ? 0 : 1;
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

QStringList Player::wrongInClient(const QString& kind) const
{
    QStringList wrong;
    const QMap<QString, QByteArray> meant = TestSupport::filesBelow(Community::sourcePath(kind));
    if (meant.isEmpty())
        wrong.append("nothing has been published");
    for (auto file = meant.begin(); file != meant.end(); ++file) {
        const QString installed = clientPath(kind, file.key());
        if (!QFile::exists(installed))
            wrong.append("missing: " + file.key());
        else if (TestSupport::readFile(installed) != file.value())
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
    return listedFiles("patch.ini") + listedFiles("patchTest.ini");
}
