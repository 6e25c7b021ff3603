#include "app/constants.h"
#include "tests/publisher/commandrun.h"
#include "tests/support/applicationfolder.h"
#include "tests/support/certificateauthority.h"
#include "tests/support/testmain.h"

#include <QDir>
#include <QFileInfo>
#include <QProcess>
#include <QProcessEnvironment>
#include <QRegularExpression>
#include <QTcpSocket>

#include <algorithm>
#include <unistd.h>

using namespace TestSupport;
using namespace Publisher;

namespace {

// Stands for the machine's own: /etc cannot be written to in here.
const QString etc = "/run/page/etc/";
// Of what an admin has and this room has not.
const QString standIns = "/run/page/bin/";
const QString accessories = QFileInfo(HALDEN_PUBLISH).path();

/// How a command begins that cannot be carried out here, and why.
struct NotHere {
    QString beginning;
    QString why;
};

const QList<NotHere> notHere{
    { "./scripts/setup", "it has brought the packages that are there" },
    { "./scripts/package-publisher ", "what it packs is what runs here" },
    { "cmake ", "what it builds is what runs here" },
    { "install ", "the machine's programs cannot be written to" },
    { "apt install ", "there is no network, and no right to" },
    { "groupadd ", "the machine's users cannot be changed" },
    { "usermod ", "the machine's users cannot be changed" },
};

bool isNotHere(const QString& command)
{
    return std::any_of(notHere.cbegin(), notHere.cend(), [&](const NotHere& one) {
        return command.startsWith(one.beginning);
    });
}

QString page()
{
    return QString::fromUtf8(readFile(HALDEN_PAGE));
}

/// The lines of a block, but of one that says that it holds none.
QStringList commandsOfBlock(const QString& block)
{
    if (!block.startsWith('\n'))
        return {};
    QStringList commands;
    const QStringList lines = QString(block).replace("\\\n", " ").split('\n', Qt::SkipEmptyParts);
    for (const QString& line : lines)
        commands.append(line.simplified());
    return commands;
}

/// The publisher's commands in the sentences, those that name a folder.
QStringList commandsOfText(const QString& text)
{
    static const QRegularExpression command("`(halden-publish [^`]+)`");
    QStringList commands;
    for (auto match = command.globalMatch(text); match.hasNext();) {
        const QString line = match.next().captured(1).simplified();
        if (line.contains('/'))
            commands.append(line);
    }
    return commands;
}

/// The page's commands in their order.
QStringList commands()
{
    QStringList found;
    const QStringList parts = page().split("\n```");
    for (qsizetype i = 0; i < parts.size(); ++i)
        found += i % 2 == 1 ? commandsOfBlock(parts.at(i)) : commandsOfText(parts.at(i));
    return found;
}

/// With the names of this room.
QString translated(QString command)
{
    command.replace("https://download.tarnwick.example/", downloadBaseUrl)
        .replace("download.tarnwick.example", QUrl(downloadBaseUrl).host())
        .replace("www.tarnwick.example", QUrl(launcherInfoUrl).host())
        .replace("mirror.tarnwick.example", QUrl(unencryptedDownloadBaseUrl).host())
        .replace("/etc/", etc)
        .replace("/var/log/nginx/", "/run/page/log/")
        // There are no players in here to be waited for.
        .replace("halden-publish push ", "halden-publish push --pause 1 ")
        .replace("chgrp -R admins", "chgrp -R " + QString::number(::getegid()));
    return command;
}

void layOut(const QString& folder, const QByteArray& content)
{
    for (const char* path : { "patched_wow.exe", "Data/patch-h.mpq", "Data/deDE/patch-deDE-h.mpq",
                              "Interface/AddOns/Halden Karten/karte.blp" })
        writeFile(folder + '/' + path, content + path);
}

void standIn(const QString& name, const QString& script)
{
    const QString path = standIns + name;
    writeFile(path, "#!/bin/bash\nset -e\n" + script.toUtf8() + '\n');
    QFile::setPermissions(path, QFile::ReadOwner | QFile::ExeOwner);
}

/// Debian's own configuration, for one process of a user who may not change to
/// another one.
void layOutWebServer()
{
    QDir().mkpath(etc);
    QDir().mkpath("/run/page/log");
    if (QProcess::execute("cp", { "--recursive", "--no-dereference", "/etc/nginx", etc }) != 0)
        qFatal("nginx is missing; ./scripts/setup installs it");
    const QString path = etc + "nginx/nginx.conf";
    QByteArray configuration = readFile(path);
    configuration.replace("/etc/nginx", etc.toUtf8() + "nginx")
        .replace("/var/log/nginx", "/run/page/log")
        .replace("user www-data;", ::geteuid() == 0 ? "user root;" : "");
    writeFile(path, "master_process off;\n" + configuration);
    standIn("nginx", "exec /usr/sbin/nginx -e /run/page/log/start.log -c " + path + " \"$@\"");
}

/// What is not to be had in here: a manager of services, an authority of the
/// internet, a second machine, somebody at an editor.
void layOutStandIns()
{
    // A single process takes no new addresses up, so it is started anew. It must not
    // inherit what the test reads. One that is told to stop while it still starts goes to
    // sleep all the same, so it is told until it has stopped.
    standIn("systemctl", R"(
[ "$2" = nginx ]
if [ -e /run/nginx.pid ]; then
    process=$(</run/nginx.pid)
    until
        nginx -s stop || true
        timeout 1 tail --pid="$process" --sleep-interval=0.1 -f /dev/null
    do :; done
fi
exec nginx >/dev/null 2>&1 </dev/null)");
    const QDateTime now = QDateTime::currentDateTimeUtc();
    const ServerCertificate issued
        = trustedAuthority().issue(communityHosts(), { now.addDays(-1), now.addDays(60) });
    // All of the community's names, or one of them would be refused by launchers.
    standIn(
        "certbot",
        QString(R"(
first=
for host in %1; do [[ " $* " == *" -d $host"* ]]; done
while [ $# -gt 0 ]; do [ "$1" != -d ] || first=${first:-$2}; shift; done
mkdir -p %2letsencrypt/live/$first
cp %3 %2letsencrypt/live/$first/fullchain.pem
cp %4 %2letsencrypt/live/$first/privkey.pem)")
            .arg(communityHosts().join(' '), etc, issued.certificateFile, issued.keyFile));
    standIn(
        "nano",
        QString("sed -i 's/www.tarnwick.example download.tarnwick.example "
                "mirror.tarnwick.example/%1/' \"$1\"")
            .arg(communityHosts().join(' ')));
}

/// A line of the page, as an admin types it.
void run(const QString& line)
{
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert(
        "PATH", standIns + ':' + accessories + ':' + environment.value("PATH") + ":/usr/sbin");
    QProcess shell;
    shell.setProcessEnvironment(environment);
    shell.setProcessChannelMode(QProcess::MergedChannels);
    shell.start("bash", { "-c", line });
    QVERIFY2(shell.waitForFinished(100'000), qPrintable(line));
    QVERIFY2(
        shell.exitStatus() == QProcess::NormalExit && shell.exitCode() == 0,
        (line.toUtf8() + '\n' + shell.readAll()).constData());
}

bool isServed()
{
    constexpr quint16 https = 443;
    QTcpSocket socket;
    socket.connectToHost("127.0.0.1", https);
    return socket.waitForConnected(1000);
}

} // namespace

/// An admin who does what the page says gets what it says.
class tst_PublishingPage : public QObject {
    Q_OBJECT

private slots:
    void initTestCase()
    {
        ApplicationFolder::clear();
        const QString here = ApplicationFolder::path("admin");
        layOut(here + "/patch", "new ");
        for (const char* name : { "Halden-Launcher.exe", "Halden-Launcher-Updater.exe" })
            writeFile(
                here + "/build/package-windows/Halden Launcher/" + name, readFile("/usr/bin/true"));
        writeFile(
            here + "/packaging/nginx/halden-community.conf",
            readFile(HALDEN_PACKAGING "/nginx/halden-community.conf")
                .replace("/var/log/nginx/", "/run/page/log/"));
        // The one server of this room, as if it were elsewhere.
        writeFile(
            etc + "halden/fleet.ini",
            "[web]\nremote = /srv/halden\naddress = " + downloadBaseUrl.toUtf8()
                + "\nconnect = 127.0.0.1:443\n");
        layOutStandIns();
        layOutWebServer();
        QVERIFY(QDir::setCurrent(here));
    }

    void cleanupTestCase()
    {
        if (QFile::exists("/run/nginx.pid"))
            QCOMPARE(QProcess::execute(standIns + "nginx", { "-s", "stop" }), 0);
        QTRY_VERIFY(!QFile::exists("/run/nginx.pid"));
    }

    void everyCommandWorks()
    {
        const QStringList walk = commands();
        for (const char* name : { "build", "build-launcher", "check", "probe", "push", "history",
                                  "show", "rollback", "promote", "report" })
            QVERIFY2(!walk.filter(QString("halden-publish %1 ").arg(name)).isEmpty(), name);
        for (const QString& line : walk) {
            if (isNotHere(line))
                continue;
            run(translated(line));
            if (QTest::currentTestFailed())
                return;
            if (line.endsWith("systemctl reload nginx"))
                QTRY_VERIFY2(isServed(), qPrintable(line));
        }
    }

    /// The list of what is not carried out has no line too many.
    void everyExceptionIsThere()
    {
        const QStringList walk = commands();
        for (const NotHere& one : notHere)
            QVERIFY2(
                std::any_of(
                    walk.cbegin(), walk.cend(),
                    [&](const QString& line) { return line.startsWith(one.beginning); }),
                qPrintable(one.beginning));
    }
};

HALDEN_TEST_MAIN(tst_PublishingPage)
#include "tst_publishingpage.moc"
