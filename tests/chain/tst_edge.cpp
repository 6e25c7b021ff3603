#include "app/constants.h"
#include "tests/support/applicationfolder.h"
#include "tests/support/certificateauthority.h"
#include "tests/support/httpsserver.h"
#include "tests/support/patience.h"
#include "tests/support/testmain.h"
#include "tests/support/timezone.h"
#include "tests/world/community.h"
#include "tests/world/edges.h"
#include "tests/world/webservers.h"

#include <QNetworkAccessManager>
#include <QNetworkReply>
#include <QProcess>
#include <QSignalSpy>
#include <QUrl>

#include <algorithm>
#include <memory>
#include <vector>

using namespace TestSupport;

namespace {

using Reply = std::unique_ptr<QNetworkReply>;

const QDateTime published = utc(QDate(2024, 5, 1), QTime(8, 0));
const QByteArray content(300'000, 'c');
const QByteArray patch = "/wow-client-patch/live/Data/0123/a%20b.mpq";
const QByteArray manifest = "/patch.ini";
const QByteArray launcher = "/Halden-Launcher.exe";

/// As the communities' servers date and describe everything.
HttpHeaders described()
{
    return { { "Last-Modified", httpDate(published) },
             { "Cache-Control", "no-cache" },
             { "ETag", "\"65-4e\"" } };
}

int statusOf(const QNetworkReply& reply)
{
    return reply.attribute(QNetworkRequest::HttpStatusCodeAttribute).toInt();
}

QDateTime farAhead()
{
    return utc(QDate(2099, 12, 31), QTime(12, 0));
}

} // namespace

/// The administrators' configurations of caches in front of servers, in the real
/// caches. What launchers rely on is the same for all.
class tst_Edge : public QObject {
    Q_OBJECT

private slots:
    void initTestCase_data()
    {
        QTest::addColumn<QString>("program");
        QTest::newRow("nginx") << "nginx";
        QTest::newRow("varnish") << "varnish";
    }

    void initTestCase()
    {
        trustedAuthority();
        trustedCertificate();
    }

    void init()
    {
        QFETCH_GLOBAL(QString, program);
        for (auto& origin : origins) {
            origin = std::make_unique<HttpsServer>();
            origin->listen(0);
            origin->listenPlain(0);
            origin->answer(patch, HttpAnswer::ok(content, described()));
            origin->answer(manifest, HttpAnswer::ok("[General]\n", described()));
            origin->serve(launcher, content, published);
            origin->answer("/alert", HttpAnswer::ok("<p>Hallo", described()));
        }
        edge = std::make_unique<Edge>(program, addressesOf(origins[0]), addressesOf(origins[1]));
        edge->startEmpty();
    }

    void cleanup()
    {
        edge.reset();
        server.reset();
    }

    void keepsPatchFilesForGood()
    {
        QFETCH_GLOBAL(QString, program);
        QCOMPARE(get(patch)->readAll(), content);
        QCOMPARE(requestsFor(patch), 1);
        shutDownOrigins();
        QCOMPARE(get(patch)->readAll(), content);
        // What Varnish keeps goes with its process.
        if (program == "nginx") {
            edge->restart();
            QCOMPARE(get(patch)->readAll(), content);
        }
    }

    void keepsAFileUnderItsNameAlone()
    {
        QCOMPARE(get(patch)->readAll(), content);
        QCOMPARE(get(patch + "?again")->readAll(), content);
        QCOMPARE(get("/wow-client-patch/live//Data/0123/a%20b.mpq")->readAll(), content);
        QCOMPARE(totalRequests(), 1);
    }

    /// All who ask while it is on its way wait for it.
    void asksOnceForMany()
    {
        for (const auto& origin : origins)
            origin->answer(patch, HttpAnswer::held(HttpAnswer::ok(content, described())));
        std::vector<std::unique_ptr<QNetworkAccessManager>> players;
        std::vector<Reply> replies;
        int encrypted = 0;
        for (int i = 0; i < 40; ++i) {
            players.push_back(std::make_unique<QNetworkAccessManager>());
            replies.push_back(send(*players.back(), patch));
            connect(replies.back().get(), &QNetworkReply::encrypted, this, [&] { ++encrypted; });
        }
        QTRY_COMPARE_WITH_TIMEOUT(encrypted, 40, patience);
        // Behind all of theirs.
        QCOMPARE(statusOf(*get("/alert")), 200);
        QVERIFY(requestsFor(patch) >= 1);
        for (const auto& origin : origins)
            origin->release();
        for (const Reply& reply : replies) {
            QTRY_VERIFY_WITH_TIMEOUT(reply->isFinished(), patience);
            QCOMPARE(statusOf(*reply), 200);
            QCOMPARE(reply->readAll(), content);
        }
        QCOMPARE(requestsFor(patch), 1);
    }

    void neverKeepsErrors_data()
    {
        QTest::addColumn<HttpAnswer>("error");
        for (const int status : { 400, 403, 404, 410, 500, 502, 503, 504 })
            QTest::addRow("%d", status)
                << HttpAnswer::status(status, "<html>", { { "Cache-Control", "max-age=600" } });
        QTest::newRow("redirect") << HttpAnswer::status(
            301, "", { { "Location", "https://other.example/" } });
        QTest::newRow("empty") << HttpAnswer::ok("", described());
        QTest::newRow("cut short, with a length")
            << HttpAnswer::announcing(content.size()).send(content.first(1000)).close();
        QTest::newRow("without a length")
            << HttpAnswer::head(200).send(content.first(1000)).close();
        QTest::newRow("reset") << HttpAnswer().reset();
    }

    void neverKeepsErrors()
    {
        QFETCH(HttpAnswer, error);
        for (const auto& origin : origins)
            origin->answer(patch, error);
        QVERIFY(get(patch)->readAll() != content);
        QVERIFY(get(patch)->readAll() != content);
        for (const auto& origin : origins)
            origin->answer(patch, HttpAnswer::ok(content, described()));
        const Reply reply = get(patch);
        QCOMPARE(statusOf(*reply), 200);
        QCOMPARE(reply->readAll(), content);
    }

    void comparesNoDateOfAPatchFile_data()
    {
        QTest::addColumn<QDateTime>("copy");
        QTest::newRow("before") << published.addSecs(-1);
        QTest::newRow("the same") << published;
        QTest::newRow("later") << QDateTime::currentDateTimeUtc();
        QTest::newRow("far ahead") << farAhead();
    }

    void comparesNoDateOfAPatchFile()
    {
        QFETCH(QDateTime, copy);
        for (int i = 0; i < 2; ++i) {
            const Reply reply = get(patch, copy);
            QCOMPARE(statusOf(*reply), 200);
            QCOMPARE(reply->readAll(), content);
        }
        QCOMPARE(requestsFor(patch), 1);
        QCOMPARE(datesPassedOn(patch), QList<QByteArray>{ QByteArray() });
    }

    void passesOn_data()
    {
        QTest::addColumn<QByteArray>("path");
        QTest::addColumn<QDateTime>("copy");
        QTest::addColumn<int>("status");
        QTest::addColumn<QByteArray>("date");
        const QDateTime today = QDateTime::currentDateTimeUtc();
        const QDateTime tomorrow = today.addDays(1);
        QTest::newRow("older manifest") << manifest << published.addSecs(-1) << 200 << QByteArray();
        QTest::newRow("same manifest") << manifest << published << 200 << QByteArray();
        QTest::newRow("today's manifest") << manifest << today << 200 << QByteArray();
        QTest::newRow("manifest of 2099") << manifest << farAhead() << 200 << QByteArray();
        QTest::newRow("older launcher")
            << launcher << published.addSecs(-1) << 200 << httpDate(published.addSecs(-1));
        QTest::newRow("same launcher") << launcher << published << 304 << httpDate(published);
        QTest::newRow("today's launcher") << launcher << today << 304 << httpDate(today);
        QTest::newRow("tomorrow's launcher") << launcher << tomorrow << 304 << httpDate(tomorrow);
        QTest::newRow("launcher of 2099") << launcher << farAhead() << 304 << httpDate(farAhead());
        QTest::newRow("text") << QByteArray("/alert") << published << 200 << httpDate(published);
    }

    /// Asked for again at each request, with the date where the origin may go by it.
    void passesOn()
    {
        QFETCH(QByteArray, path);
        QFETCH(QDateTime, copy);
        QFETCH(QByteArray, date);
        for (int i = 0; i < 2; ++i) {
            const Reply reply = get(path, copy);
            QTEST(statusOf(*reply), "status");
            QCOMPARE(reply->rawHeader("Cache-Control"), QByteArray("no-cache"));
        }
        QCOMPARE(datesPassedOn(path), QList<QByteArray>({ date, date }));
    }

    /// The next publication is there for everybody at once.
    void nextManifestIsThereAtOnce()
    {
        QCOMPARE(get(manifest)->readAll(), QByteArray("[General]\n"));
        for (const auto& origin : origins)
            origin->answer(manifest, HttpAnswer::ok("new", described()));
        QCOMPARE(get(manifest, QDateTime::currentDateTimeUtc())->readAll(), QByteArray("new"));
    }

    void originsDown()
    {
        QCOMPARE(get(patch)->readAll(), content);
        shutDownOrigins();
        QCOMPARE(get(patch)->readAll(), content);
        for (const QByteArray& path : { manifest, launcher, QByteArray("/alert"),
                                        QByteArray("/wow-client-patch/live/Data/4567/c.mpq") }) {
            const Reply reply = get(path);
            QVERIFY2(statusOf(*reply) >= 500, (path + ' ' + reply->readAll()).constData());
        }
    }

    /// A manifest may name a file that one origin has before the other.
    void anotherOriginHasIt_data()
    {
        QTest::addColumn<std::size_t>("lacking");
        QTest::newRow("the first lags") << std::size_t(0);
        QTest::newRow("the second lags") << std::size_t(1);
    }

    void anotherOriginHasIt()
    {
        QFETCH(std::size_t, lacking);
        for (const QByteArray name : { "1", "2", "3", "4" }) {
            const QByteArray path = "/wow-client-patch/live/Data/89ab/" + name;
            origins.at(1 - lacking)->answer(path, HttpAnswer::ok(name, described()));
            QCOMPARE(get(path)->readAll(), name);
        }
    }

    void manifestsComeFromOneOrigin()
    {
        for (int i = 0; i < 6; ++i)
            QCOMPARE(statusOf(*get(manifest)), 200);
        QCOMPARE(playersRequests(*origins[0], manifest).size(), 6);
        QCOMPARE(playersRequests(*origins[1], manifest).size(), 0);
    }

    void manifestsComeFromTheOtherOriginWhileTheFirstIsDown()
    {
        origins[0]->shutDown();
        QCOMPARE(statusOf(*get(manifest)), 200);
        QCOMPARE(statusOf(*get(launcher)), 200);
    }

    void keepsToItselfWhatIsThePublishers_data()
    {
        QTest::addColumn<QByteArray>("path");
        for (const QByteArray path :
             { "/.halden-history/live/1.ini", "//.halden-history/live/1.ini",
               "/%2Ehalden-history/live/1.ini", "/.patch.ini.halden-publish",
               "/wow-client-patch/.halden-publish/0/0" })
            QTest::newRow(path.constData()) << path;
    }

    void keepsToItselfWhatIsThePublishers()
    {
        QFETCH(QByteArray, path);
        for (const auto& origin : origins)
            origin->answerAnythingElse([](const HttpRequest&) { return HttpAnswer::ok("x"); });
        QCOMPARE(statusOf(*get(path)), 404);
        QCOMPARE(totalRequests(), 0);
    }

    /// Asked as launchers ask, once of the origin and once of the cache.
    void probeFindsNothing()
    {
        serveCommunity();
        for (int i = 0; i < 2; ++i) {
            QProcess probe;
            probe.setProcessChannelMode(QProcess::MergedChannels);
            // A throw-away certificate does not last for long.
            probe.start(
                HALDEN_PUBLISH,
                { "probe", "--days", "0", "--test", "--deep", "--tree", "/srv/halden",
                  downloadBaseUrl });
            QVERIFY(probe.waitForFinished(patience));
            const QByteArray said = probe.readAll();
            QVERIFY2(probe.exitCode() == 0 && said.contains("no findings"), said.constData());
        }
    }

    /// Each slice is fetched once, however many want the file; Varnish fetches it whole.
    void largeFileIsFetchedOnce()
    {
        QFETCH_GLOBAL(QString, program);
        const QByteArray path = "/wow-client-patch/live/Data/4567/large.mpq";
        QByteArray large(qsizetype(40) << 20, 'l');
        large.replace(20'000'000, 6, "middle");
        const QString logFile = WebServers::folderOf("origin") + "/access.log";
        QFile::remove(logFile);
        serveCommunity();
        writeFile("/srv/halden" + path, large);
        std::vector<std::unique_ptr<QNetworkAccessManager>> players;
        std::vector<Reply> replies;
        for (int i = 0; i < 4; ++i) {
            players.push_back(std::make_unique<QNetworkAccessManager>());
            replies.push_back(send(*players.back(), path));
        }
        for (const Reply& reply : replies) {
            QTRY_VERIFY_WITH_TIMEOUT(reply->isFinished(), patience);
            QCOMPARE(statusOf(*reply), 200);
            QVERIFY(reply->readAll() == large);
        }
        const QByteArray log = readFile(logFile);
        const int slices = program == "nginx" ? 3 : 0;
        QCOMPARE(log.count(path + " 206"), slices);
        QCOMPARE(log.count(path), std::max(slices, 1));
    }

    /// Add-ons have such files.
    void servesPublishedNamesWithADot()
    {
        const QByteArray path = "/wow-client-patch/live/Interface/AddOns/Karte/0123/.luacheckrc";
        for (const auto& origin : origins)
            origin->answer(path, HttpAnswer::ok("x"));
        QCOMPARE(get(path)->readAll(), QByteArray("x"));
    }

private:
    static Edge::Origin addressesOf(const std::unique_ptr<HttpsServer>& origin)
    {
        return { origin->port(), origin->plainPort() };
    }

    /// In place of the origins a real server with all that a community publishes.
    void serveCommunity()
    {
        QFETCH_GLOBAL(QString, program);
        constexpr Edge::Origin origin{ 4433, 8081 };
        Community().publish();
        server = WebServers::nginx(
            "origin",
            WebServers::packaged(
                "nginx/halden-community.conf",
                WebServers::ownNames()
                    + WebServers::Replacements{
                        { "listen 443 ssl;",
                          "listen 127.0.0.1:4433 ssl; listen 127.0.0.1:8081;" } }));
        server->start("127.0.0.1", origin.port);
        edge.reset();
        edge = std::make_unique<Edge>(program, origin, origin);
        edge->startEmpty();
    }

    void shutDownOrigins()
    {
        for (const auto& origin : origins)
            origin->shutDown();
    }

    static Reply
    send(QNetworkAccessManager& from, const QByteArray& path, const QDateTime& copy = {})
    {
        const QByteArray server = QUrl(downloadBaseUrl).toEncoded(QUrl::RemovePath);
        QNetworkRequest request(QUrl::fromEncoded(server + path));
        request.setAttribute(
            QNetworkRequest::RedirectPolicyAttribute, QNetworkRequest::ManualRedirectPolicy);
        if (copy.isValid())
            request.setHeader(QNetworkRequest::IfModifiedSinceHeader, copy);
        return Reply(from.get(request));
    }

    /// The finished reply, over a connection of its own as launchers have them.
    Reply get(const QByteArray& path, const QDateTime& copy = {})
    {
        manager.clearConnectionCache();
        Reply reply = send(manager, path, copy);
        QSignalSpy finished(reply.get(), &QNetworkReply::finished);
        if (!finished.wait(patience))
            qFatal("no answer for %s", path.constData());
        return reply;
    }

    /// Without those that look whether the origin is up.
    static QList<HttpRequest> playersRequests(const HttpsServer& origin, const QByteArray& path)
    {
        QList<HttpRequest> found;
        const QList<HttpRequest> all = origin.requests();
        for (const HttpRequest& request : all) {
            if (request.path == path && request.header("X-Forwarded-For") != QByteArray())
                found.append(request);
        }
        return found;
    }

    qsizetype requestsFor(const QByteArray& path) const
    {
        return playersRequests(*origins[0], path).size()
            + playersRequests(*origins[1], path).size();
    }

    int totalRequests() const
    {
        int total = 0;
        for (const auto& origin : origins) {
            const QList<HttpRequest> all = origin->requests();
            for (const HttpRequest& request : all)
                total += request.header("X-Forwarded-For").isEmpty() ? 0 : 1;
        }
        return total;
    }

    QList<QByteArray> datesPassedOn(const QByteArray& path) const
    {
        QList<QByteArray> dates;
        for (const auto& origin : origins) {
            const QList<HttpRequest> requests = playersRequests(*origin, path);
            for (const HttpRequest& request : requests)
                dates.append(request.header("If-Modified-Since"));
        }
        return dates;
    }

    std::array<std::unique_ptr<HttpsServer>, 2> origins;
    std::unique_ptr<ServerProcess> server;
    std::unique_ptr<Edge> edge;
    QNetworkAccessManager manager;
};

HALDEN_TEST_MAIN(tst_Edge)
#include "tst_edge.moc"
