#include "app/constants.h"
#include "tests/support/applicationfolder.h"
#include "tests/support/certificateauthority.h"
#include "tests/support/httpsget.h"
#include "tests/support/testmain.h"
#include "tests/support/timezone.h"
#include "tests/world/community.h"
#include "tests/world/webservers.h"

#include <QDir>
#include <QFile>
#include <QMap>
#include <QUrl>

#include <memory>

using namespace TestSupport;

namespace {

constexpr quint16 httpsPort = 443;
constexpr quint16 firstPort = 4431;
constexpr quint16 secondPort = 4432;
const QString localhost = "127.0.0.1";
const QString marks = ".halden-mirrors/";
const QByteArray nextManifest = "[General]\nnumberOfFiles=0\n";
const QByteArray noShare = "    # 5% /patch-next.ini;\n";

QByteArray hostWithPort(quint16 port)
{
    return "https://" + QUrl(downloadBaseUrl).host().toUtf8() + ':' + QByteArray::number(port);
}

QByteArray address(const QByteArray& path)
{
    return QUrl(downloadBaseUrl).toEncoded() + path;
}

/// As many players as make shares visible.
QStringList players()
{
    QStringList addresses;
    for (int i = 1; i <= 60; ++i)
        addresses.append("127.0.1." + QString::number(i));
    return addresses;
}

/// The configuration of a community's server, changed here and there.
QByteArray communitySite(const WebServers::Replacements& changes)
{
    return WebServers::packaged("nginx/halden-community.conf", WebServers::ownNames() + changes);
}

} // namespace

/// What a server decides by the players' addresses: where patch files come from, and
/// who gets the next publication.
class tst_Shares : public QObject {
    Q_OBJECT

private slots:
    void initTestCase()
    {
        trustedAuthority();
        trustedCertificate();
        community.publish();
        patch = community.patchRequest("live", "Data/Größe der Welt.MPQ").sliced(1);
        patchOnTheWire = QUrl(patch).toEncoded();
        mirrors.push_back(startMirror("first", firstPort));
        mirrors.push_back(startMirror("second", secondPort));
    }

    void init()
    {
        for (const QString name : { "first", "second" })
            writeFile(community.path(marks + name), "");
        QFile::remove(community.path("patch-next.ini"));
    }

    void cleanup()
    {
        server.reset();
    }

    void cleanupTestCase()
    {
        mirrors.clear();
    }

    /// Each has a share, and each player always the same mirror.
    void sendsPlayersToMirrors()
    {
        startRedirecting();
        const QMap<QString, QByteArray> sent = destinations();
        QCOMPARE(sent, destinations());
        const QList<QByteArray> all = sent.values();
        QVERIFY(all.count(hostWithPort(firstPort)) > 15);
        QVERIFY(all.count(hostWithPort(secondPort)) > 15);
        QVERIFY(all.count(QByteArray()) > 0);
        QVERIFY(all.count(QByteArray()) < 20);
    }

    void everyoneGetsTheFile()
    {
        startRedirecting();
        const QByteArray published
            = readFile(Community::sourcePath("live", "Data/Größe der Welt.MPQ"));
        const QStringList all = players();
        for (const QString& player : all) {
            HttpsAnswer answer = httpsGet(player, address(patchOnTheWire));
            if (answer.status == 302)
                answer = httpsGet(player, answer.location);
            QCOMPARE(answer.status, 200);
            QCOMPARE(answer.body, published);
        }
    }

    /// From the very request after it has been left out, and back again.
    void leavesOutAMirror()
    {
        startRedirecting();
        const QMap<QString, QByteArray> before = destinations();
        QVERIFY(QFile::remove(community.path(marks + "second")));
        QMap<QString, QByteArray> expected = before;
        for (QByteArray& destination : expected) {
            if (destination == hostWithPort(secondPort))
                destination.clear();
        }
        QCOMPARE(destinations(), expected);
        QVERIFY(QFile::remove(community.path(marks + "first")));
        QCOMPARE(destinations().values().count(QByteArray()), players().size());
        writeFile(community.path(marks + "first"), "");
        writeFile(community.path(marks + "second"), "");
        QCOMPARE(destinations(), before);
    }

    void answersEverythingElseItself_data()
    {
        QTest::addColumn<QByteArray>("path");
        QTest::addColumn<int>("status");
        for (const QByteArray path : { "patch.ini", "patchTest.ini", "Halden-Launcher.exe",
                                       "Halden-Launcher-Updater.exe", "alert" })
            QTest::newRow(path.constData()) << path << 200;
        QTest::newRow("what says which mirrors are in use")
            << QByteArray(".halden-mirrors/first") << 404;
    }

    void answersEverythingElseItself()
    {
        QFETCH(QByteArray, path);
        startRedirecting();
        const QStringList all = players();
        for (const QString& player : all)
            QTEST(httpsGet(player, address(path)).status, "status");
    }

    /// As the file is shipped.
    void nobodyHasTheNextManifestWithoutAShare()
    {
        writeFile(community.path("patch-next.ini"), nextManifest);
        startWithShare(noShare);
        QCOMPARE(playersWithNext(), QStringList());
        QCOMPARE(httpsGet(localhost, address("patch-next.ini")).body, nextManifest);
    }

    /// Whoever has it keeps it while the share grows.
    void shareGrows()
    {
        writeFile(community.path("patch-next.ini"), nextManifest);
        QStringList before;
        for (const int percent : { 5, 20, 50, 80, 100 }) {
            startWithShare("    " + QByteArray::number(percent) + "% /patch-next.ini;\n");
            const QStringList now = playersWithNext();
            QCOMPARE(now, playersWithNext());
            for (const QString& player : before)
                QVERIFY2(now.contains(player), qPrintable(player));
            QVERIFY2(
                std::abs(now.size() * 100 / players().size() - percent) < 20,
                qPrintable(QString("%1 of %2").arg(now.size()).arg(players().size())));
            before = now;
        }
        QCOMPARE(before, players());
    }

    /// From the very next start on, whatever date the copy has.
    void everybodyIsBackWhenItIsWithdrawn()
    {
        writeFile(community.path("patch-next.ini"), nextManifest);
        startWithShare("    100% /patch-next.ini;\n");
        QCOMPARE(playersWithNext(), players());
        QVERIFY(QFile::remove(community.path("patch-next.ini")));
        QCOMPARE(playersWithNext(), QStringList());
    }

    void testPlayersAreNoPartOfIt()
    {
        writeFile(community.path("patch-next.ini"), nextManifest);
        startWithShare("    100% /patch-next.ini;\n");
        QCOMPARE(
            httpsGet(localhost, address("patchTest.ini")).body,
            readFile(community.path("patchTest.ini")));
    }

private:
    /// A server of its own with all that is published.
    std::unique_ptr<ServerProcess> startMirror(const QString& name, quint16 port)
    {
        const QString tree = "/srv/" + name;
        QDir().mkpath(tree);
        QFile::link(community.path("wow-client-patch"), tree + "/wow-client-patch");
        auto mirror = WebServers::nginx(
            name,
            communitySite({ { "listen 443 ssl;", "listen " + QByteArray::number(port) + " ssl;" },
                            { "root /srv/halden;", "root " + tree.toUtf8() + ';' } }));
        mirror->start(localhost, port);
        return mirror;
    }

    void startRedirecting()
    {
        writeFile(
            WebServers::folderOf("redirect") + "/halden-redirect-location.conf",
            WebServers::packaged("nginx/halden-redirect-location.conf", {}));
        const QByteArray redirect = WebServers::packaged(
            "nginx/halden-redirect.conf",
            { { "https://first.mirror.tarnwick.example", hostWithPort(firstPort) },
              { "https://second.mirror.tarnwick.example", hostWithPort(secondPort) } });
        server = WebServers::nginx("redirect", redirect + communitySite({}));
        server->start(localhost, httpsPort);
    }

    void startWithShare(const QByteArray& line)
    {
        server.reset();
        server = WebServers::nginx("staged", communitySite({ { noShare, line } }));
        server->start(localhost, httpsPort);
    }

    /// Where each player is sent for the patch file, without its path; nothing for
    /// those who get it here.
    QMap<QString, QByteArray> destinations() const
    {
        QMap<QString, QByteArray> sent;
        const QStringList all = players();
        for (const QString& player : all) {
            const HttpsAnswer answer = httpsGet(player, address(patchOnTheWire));
            const QByteArray path = '/' + patchOnTheWire;
            if (answer.status == 302 && answer.location.endsWith(path))
                sent[player] = answer.location.chopped(path.size());
            else
                sent[player] = answer.status == 200 ? "" : "neither sent on nor answered";
        }
        return sent;
    }

    QStringList playersWithNext() const
    {
        QStringList found;
        const QByteArray live = readFile(community.path("patch.ini"));
        const QDateTime copy = utc(QDate(2099, 12, 31), QTime(12, 0));
        const QStringList all = players();
        for (const QString& player : all) {
            const QByteArray manifest = httpsGet(player, address("patch.ini"), copy).body;
            if (manifest == nextManifest)
                found.append(player);
            else if (manifest != live)
                qFatal("%s has neither manifest", qPrintable(player));
        }
        return found;
    }

    const Community community{};
    QString patch;
    QByteArray patchOnTheWire;
    std::vector<std::unique_ptr<ServerProcess>> mirrors;
    std::unique_ptr<ServerProcess> server;
};

HALDEN_TEST_MAIN(tst_Shares)
#include "tst_shares.moc"
