#include "app/constants.h"
#include "tests/publisher/buildfixture.h"
#include "tests/publisher/fleet/pushfixture.h"
#include "tests/support/applicationfolder.h"
#include "tests/support/certificateauthority.h"
#include "tests/support/patience.h"
#include "tests/support/testmain.h"
#include "tests/world/edges.h"
#include "tests/world/objectstore.h"
#include "tests/world/webservers.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QProcess>
#include <QRegularExpression>
#include <QTcpSocket>
#include <QUrl>

#include <algorithm>
#include <utility>

using namespace TestSupport;
using namespace PushFixture;
using Publisher::FleetServer;

namespace {

const QString edgeOfStore = "127.0.0.14:443";
const QString bucket = "store:halden";
const QString launcher = "Halden-Launcher.exe";

/// The administrators' edge with the bucket in place of its origins.
std::unique_ptr<ServerProcess> makeEdgeOfStore()
{
    const QString cache = WebServers::folderOf("store-edge") + "/cache";
    QDir(cache).removeRecursively();
    const QByteArray bucketPath = ObjectStore::pathOf("halden");
    WebServers::Replacements replacements = WebServers::ownNames();
    replacements += {
        { "listen 443 ssl;", "listen " + edgeOfStore.toUtf8() + " ssl;" },
        { "/var/cache/nginx/halden", cache.toUtf8() },
        { "server 192.0.2.10:443 max_fails=3", "server " + ObjectStore::host() + " max_fails=3" },
        { "    server 192.0.2.11:443 max_fails=3 fail_timeout=5s;\n", "" },
        { "    server 192.0.2.11:443 backup;\n", "" },
        { "https://halden_files/", "http://halden_files" + bucketPath + '/' },
        { "https://halden_index/", "http://halden_index" + bucketPath + '/' },
        { "/etc/ssl/certs/ca-certificates.crt", trustedAuthority().certificateFile().toUtf8() },
    };
    return WebServers::nginx(
        "store-edge", WebServers::packaged("nginx/halden-edge.conf", replacements));
}

void append(const QString& path, const QByteArray& text)
{
    writeFile(path, readFile(path) + text);
}

void makeBucket()
{
    if (QProcess::execute("rclone", { "mkdir", bucket }) != 0)
        qFatal("no bucket can be made");
}

/// The first and the last date under which a file was handed out.
std::pair<QDateTime, QDateTime> datesOf(const QList<Sighting>& sightings, const QByteArray& file)
{
    QList<QDateTime> dates;
    for (const Sighting& sighting : sightings) {
        if (sighting.md5 == file)
            dates.append(sighting.lastModified);
    }
    std::sort(dates.begin(), dates.end());
    return dates.isEmpty() ? std::pair<QDateTime, QDateTime>()
                           : std::pair(dates.constFirst(), dates.constLast());
}

/// As it tells whoever asks it.
QDateTime timeOfStore()
{
    const QList<QByteArray> host = ObjectStore::host().split(':');
    QTcpSocket socket;
    socket.connectToHost(host.at(0), host.at(1).toUShort());
    socket.write("HEAD / HTTP/1.0\r\n\r\n");
    while (socket.waitForReadyRead(patience)) { }
    static const QRegularExpression date("\\r\\nDate: (.*) GMT\\r\\n");
    const QString text = date.match(QString::fromLatin1(socket.readAll())).captured(1);
    return QDateTime::fromString(text + " +0000", Qt::RFC2822Date);
}

} // namespace

/// Pushes to servers that players reach through caches.
class tst_PushEdges : public QObject {
    Q_OBJECT

private slots:
    void initTestCase()
    {
        trustedCertificate();
        // Of the machine; there is no such file in here.
        qunsetenv("AWS_CA_BUNDLE");
    }

    void init()
    {
        layOut();
    }

    void cleanup()
    {
        edge.reset();
        store.reset();
        for (const QString& name : fleet.names()) {
            fleet.stopWeb(name);
            fleet.setRule(name, {}, {});
        }
    }

    void bucketGetsWhatServersGet()
    {
        // As far ahead as no push takes offence at.
        startStore(1);
        const FleetServer seen = serverAt("store", edgeOfStore);

        pushWell(fleet);
        QCOMPARE(differenceServed(seen), QString());
        moveOn();
        release("2");
        const QByteArray former = md5(readFile("/usr/bin/true") + "1launcher").toLatin1();
        const QByteArray next = md5(readFile(BuildFixture::server(launcher))).toLatin1();
        Watcher watcher(
            { seen, serverAt("alder", Fleet::address("alder")),
              serverAt("birch", Fleet::address("birch")) },
            launcher);
        pushWell(fleet, { "--pause", "4" });
        watcher.stop();
        QCOMPARE(watcher.broken(), QStringList());
        const auto [first, last] = datesOf(watcher.sightings(), next);
        QVERIFY(first.isValid());
        for (const Sighting& sighting : watcher.sightings()) {
            // A copy bears the whole second in which it has arrived: that of the former one
            // is older than any server's date, that of the next one is not.
            if (sighting.md5 == former)
                QVERIFY(sighting.asked.toSecsSinceEpoch() < first.toSecsSinceEpoch());
            if (sighting.md5 == next && sighting.server != "store")
                QVERIFY(sighting.answered.toSecsSinceEpoch() >= last.toSecsSinceEpoch());
        }
        // Nobody is given it before the moment that the store gives as its date.
        for (const QString& name : fleet.names()) {
            const QFileInfo file(QFileInfo(Fleet::path(name, launcher)).canonicalFilePath());
            QVERIFY(file.metadataChangeTime() >= last);
        }
        QCOMPARE(differenceServed(seen), QString());
        for (const QString& name : fleet.names())
            QCOMPARE(differenceFromTree(name), QString());
    }

    void cachesDeliverWhateverManifestsName_data()
    {
        QTest::addColumn<QString>("program");
        QTest::newRow("nginx") << "nginx";
        QTest::newRow("varnish") << "varnish";
    }

    /// One in front of both servers, from which they are pushed to directly.
    void cachesDeliverWhateverManifestsName()
    {
        QFETCH(QString, program);
        const Edge::Origin alder{ 4431, 8081 };
        const Edge::Origin birch{ 4432, 8082 };
        listenBesides("alder", alder);
        listenBesides("birch", birch);
        fleet.start();
        pushWell(fleet);
        Edge cache(program, alder, birch);
        cache.startEmpty();
        const FleetServer seen = serverAt("cache", "127.0.0.1:443");
        QCOMPARE(differenceServed(seen), QString());
        moveOn();
        release("2");
        Watcher watcher({ seen }, launcher);
        pushWell(fleet, { "--pause", "4" });
        watcher.stop();
        QVERIFY(!watcher.sightings().isEmpty());
        QCOMPARE(watcher.broken(), QStringList());
        QCOMPARE(differenceServed(seen), QString());
    }

    void stopsAtABucketThatDatesWrongly()
    {
        startStore(600);
        const CommandRun run = push(fleet);
        QCOMPARE(run.code, Publisher::ExitCode::InputOutput);
        QVERIFY2(
            run.messages.contains("server \"store\": its storage dates a file that has just come"),
            qPrintable(all(run)));
        QVERIFY2(run.text.contains("Not switched"), qPrintable(run.text));
        for (const QString& name : fleet.names())
            QVERIFY(!QFile::exists(Fleet::path(name, "patch.ini")));
    }

    /// The store's clock is set ahead while no server hands out a launcher.
    void waitsForNoDateThatIsFarAhead()
    {
        startStore(0);
        pushWell(fleet);
        release("2");
        QProcess process;
        process.setProcessChannelMode(QProcess::MergedChannels);
        process.start(HALDEN_PUBLISH, pushLine(fleet, { "--pause", "10" }));
        const QString former = Fleet::path("alder", launcher);
        QTRY_VERIFY_WITH_TIMEOUT(
            !QFile::exists(former) || process.state() == QProcess::NotRunning, patience);
        store->setClock(60);
        QVERIFY(process.waitForFinished(patience));
        const QByteArray said = process.readAll();
        QVERIFY2(process.exitCode() == static_cast<int>(Publisher::ExitCode::InputOutput), said);
        QVERIFY2(
            said.contains("server \"store\": its storage dates Halden-Launcher-Updater.exe with "),
            said);
        QVERIFY2(said.contains("The switch was cut off"), said);
        for (const QString& name : fleet.names())
            QVERIFY(!QFile::exists(Fleet::path(name, launcher)));
        // The store takes nothing that is older than what it has, and all is well after that.
        store->setClock(0);
        QTRY_VERIFY(timeOfStore() < QDateTime::currentDateTimeUtc().addSecs(2));
        const CommandRun early = push(fleet, { "--pause", "0" });
        QCOMPARE(early.code, Publisher::ExitCode::InputOutput);
        QVERIFY2(
            early.messages.contains(
                "Its storage has dated the Halden-Launcher-Updater.exe that it has with "),
            qPrintable(all(early)));
        QTRY_VERIFY_WITH_TIMEOUT(
            push(fleet, { "--pause", "0" }).code == Publisher::ExitCode::Fine, patience);
        QCOMPARE(differenceServed(serverAt("store", edgeOfStore)), QString());
        for (const QString& name : fleet.names())
            QCOMPARE(differenceFromTree(name), QString());
    }

private:
    /// From its next start on.
    void listenBesides(const QString& name, const Edge::Origin& origin)
    {
        fleet.stopWeb(name);
        const QByteArray line = "listen " + Fleet::address(name).toUtf8() + " ssl";
        fleet.setRule(
            name, line,
            "listen 127.0.0.1:" + QByteArray::number(origin.port)
                + " ssl; listen 127.0.0.1:" + QByteArray::number(origin.plainPort) + "; " + line);
    }

    /// With two servers beside it.
    void startStore(int secondsAhead)
    {
        fleet.start();
        store = std::make_unique<ObjectStore>(secondsAhead);
        store->start();
        append(qEnvironmentVariable("RCLONE_CONFIG"), ObjectStore::section("store"));
        makeBucket();
        edge = makeEdgeOfStore();
        edge->start("127.0.0.14", 443);
        append(
            fleet.file(),
            QString("[store]\nremote = %1\naddress = %2\nconnect = %3\n")
                .arg(bucket, downloadBaseUrl, edgeOfStore)
                .toUtf8());
    }

    std::unique_ptr<ObjectStore> store;
    std::unique_ptr<ServerProcess> edge;
    Fleet fleet{ 2 };
};

HALDEN_TEST_MAIN(tst_PushEdges)
#include "tst_pushedges.moc"
