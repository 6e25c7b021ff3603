#include "app/constants.h"
#include "tests/support/applicationfolder.h"
#include "tests/support/certificateauthority.h"
#include "tests/support/httpsserver.h"
#include "tests/support/testmain.h"
#include "tests/support/timezone.h"
#include "tests/world/community.h"
#include "tests/world/webservers.h"

#include <QDateTime>
#include <QFileInfo>
#include <QNetworkAccessManager>
#include <QNetworkReply>
#include <QSignalSpy>
#include <QSslConfiguration>

#include <cstdlib>
#include <memory>

using namespace TestSupport;

namespace {

constexpr quint16 httpsPort = 443;
// Add-ons have such files, and what is published is served.
const char* const dottedPatchFile = "wow-client-patch/live/Interface/AddOns/Karte/0123/.luacheckrc";
// What Community dates everything.
const QDateTime published = utc(QDate(2024, 5, 1), QTime(8, 0));

} // namespace

/// The administrators' configurations of the three web servers keep what the launcher
/// relies on.
class tst_CommunityServer : public QObject {
    Q_OBJECT

private slots:
    void initTestCase_data()
    {
        QTest::addColumn<QString>("program");
        for (const QString name : { "nginx", "apache", "caddy" })
            QTest::newRow(qPrintable(name)) << name;
    }

    void initTestCase()
    {
        trustedAuthority();
        trustedCertificate();
        community.publish();
        // Of a publisher that is at work.
        for (const char* path :
             { "wow-client-patch/.halden-publish/0/0", ".halden-publish.lock",
               ".patch.ini.halden-publish", ".Halden-Launcher.exe.halden-publish", dottedPatchFile,
               ".well-known/acme-challenge/token", "patch-next.ini" })
            writeFile(community.path(path), "x");
    }

    /// All rows of a test with one server, then with the next one.
    void init()
    {
        QFETCH_GLOBAL(QString, program);
        if (program == running)
            return;
        server.reset();
        server = WebServers::communityServer(program);
        server->start("127.0.0.1", httpsPort);
        running = program;
    }

    void cleanupTestCase()
    {
        server.reset();
    }

    void answers_data()
    {
        QTest::addColumn<QString>("path");
        QTest::addColumn<QDateTime>("ifModifiedSince");
        QTest::addColumn<int>("status");

        const QDateTime before = published.addSecs(-1);
        const QDateTime after = published.addSecs(1);
        const QString patch = community.patchRequest("live", "Data/Größe der Welt.MPQ").sliced(1);
        for (const QString manifest : { "patch.ini", "patchTest.ini", "patch-next.ini" })
            addManifestRows(manifest);
        for (const QString program : { "Halden-Launcher.exe", "Halden-Launcher-Updater.exe" })
            addProgramRows(program);
        addRow("older copy of ", patch, before, 200);
        addRow("same date as ", patch, published, 200);
        addRow("newer copy of ", patch, after, 200);
        addRow("doubled slash in ", QString(patch).replace("live/", "live//"), after, 200);
        addRow("name that begins with a dot in ", dottedPatchFile, after, 200);
        addRow("missing ", "wow-client-patch/live/Data/nothing.MPQ", before, 404);
        addRow("missing ", "nothing.ini", before, 404);
        addRow("information text at ", "alert", before, 200);
        addRow("an authority's question at ", ".well-known/acme-challenge/token", before, 200);
    }

    void answers()
    {
        QFETCH(QString, path);
        QFETCH(QDateTime, ifModifiedSince);
        QTEST(statusOf(path, ifModifiedSince), "status");
    }

    /// Servers have a status each for it.
    void listsNoFolder_data()
    {
        QTest::addColumn<QString>("path");
        QTest::newRow("the whole") << "";
        QTest::newRow("patch files") << "wow-client-patch/live/Data/";
    }

    void listsNoFolder()
    {
        QFETCH(QString, path);
        const auto reply = get(QNetworkRequest(QUrl(downloadBaseUrl + path)));
        const int status = statusOf(*reply);
        QVERIFY2(status == 403 || status == 404, qPrintable(QString::number(status)));
        QVERIFY(!reply->readAll().contains("deDE"));
    }

    void contentTypes_data()
    {
        QTest::addColumn<QString>("path");
        QTest::addColumn<QString>("contentType");
        QTest::newRow("text for the window") << "alert"
                                             << "text/html; charset=utf-8";
        QTest::newRow("launcher") << "Halden-Launcher.exe"
                                  << "application/octet-stream";
        QTest::newRow("manifest") << "patch.ini"
                                  << "text/plain";
    }

    /// Launchers ask for none but that of the text; it is what nginx's file promises.
    void contentTypes()
    {
        QFETCH(QString, path);
        QFETCH_GLOBAL(QString, program);
        if (program != "nginx" && path != "alert")
            return;
        const auto reply = get(QNetworkRequest(QUrl(downloadBaseUrl + path)));
        QTEST(reply->header(QNetworkRequest::ContentTypeHeader).toString(), "contentType");
    }

    void keepsToItselfWhatIsThePublishers_data()
    {
        QTest::addColumn<QString>("path");
        for (const QString path :
             { ".halden-history", ".halden-history/", ".halden-history/live/1.ini",
               ".halden-history/live/1.json", ".halden-history/test/1.ini",
               "wow-client-patch/.halden-publish/0/0", ".halden-publish.lock",
               ".patch.ini.halden-publish", ".Halden-Launcher.exe.halden-publish",
               "/.halden-history/live/1.ini", "%2ehalden-history/live/1.ini" })
            QTest::newRow(qPrintable(path)) << path;
    }

    /// It is there, and would be served under any other name.
    void keepsToItselfWhatIsThePublishers()
    {
        QFETCH(QString, path);
        const QString onDisk = QUrl::fromPercentEncoding(path.toUtf8());
        QVERIFY2(QFileInfo::exists(community.path(onDisk)), qPrintable(path));
        QCOMPARE(statusOf(path, published.addSecs(-1)), 404);
    }

    void asksCachesToAskAgain_data()
    {
        QTest::addColumn<QString>("path");
        for (const QString path : { "patch.ini", "Halden-Launcher.exe", "alert" })
            QTest::newRow(qPrintable(path)) << path;
    }

    void asksCachesToAskAgain()
    {
        QFETCH(QString, path);
        const auto reply = get(QNetworkRequest(QUrl(downloadBaseUrl + path)));
        QCOMPARE(reply->rawHeader("Cache-Control"), QByteArray("no-cache"));
        QVERIFY(!reply->rawHeader("Last-Modified").isEmpty());
        const QDateTime date = fromHttpDate(reply->rawHeader("Date"));
        QVERIFY(date.isValid());
        QVERIFY(std::abs(date.secsTo(QDateTime::currentDateTimeUtc())) < 60);
    }

    void informationTextIsServedByTheWebHost()
    {
        const auto reply = get(QNetworkRequest(QUrl(launcherInfoUrl)));
        QVERIFY(reply->readAll().contains("Willkommen"));
    }

    /// The progress bar needs the length, which a compressed answer has not.
    void nothingIsCompressed_data()
    {
        QTest::addColumn<QString>("path");
        for (const QString path : { "patch.ini", "alert", "Halden-Launcher.exe" })
            QTest::newRow(qPrintable(path)) << path;
    }

    void nothingIsCompressed()
    {
        QFETCH(QString, path);
        QNetworkRequest request(QUrl(downloadBaseUrl + path));
        request.setRawHeader("Accept-Encoding", "gzip, deflate");
        const auto reply = get(request);
        QVERIFY(!reply->hasRawHeader("Content-Encoding"));
        QCOMPARE(
            reply->header(QNetworkRequest::ContentLengthHeader).toLongLong(),
            reply->readAll().size());
    }

    void speaks_data()
    {
        QTest::addColumn<QSsl::SslProtocol>("protocol");
        QTest::newRow("TLS 1.2, the launcher's own") << QSsl::TlsV1_2;
        QTest::newRow("TLS 1.3") << QSsl::TlsV1_3;
    }

    void speaks()
    {
        QFETCH(QSsl::SslProtocol, protocol);
        QNetworkRequest request(QUrl(downloadBaseUrl + "patch.ini"));
        QSslConfiguration tls = QSslConfiguration::defaultConfiguration();
        tls.setProtocol(protocol);
        request.setSslConfiguration(tls);
        const auto reply = get(request);
        QCOMPARE(reply->error(), QNetworkReply::NoError);
        QCOMPARE(reply->sslConfiguration().sessionProtocol(), protocol);
    }

private:
    static void
    addRow(const char* what, const QString& path, const QDateTime& ifModifiedSince, int status)
    {
        QTest::newRow(qPrintable(what + ('/' + path))) << path << ifModifiedSince << status;
    }

    /// Whatever date a copy has, what comes is what is published.
    static void addManifestRows(const QString& name)
    {
        addRow("older copy of ", name, published.addSecs(-1), 200);
        addRow("same date as ", name, published, 200);
        addRow("newer copy of ", name, published.addSecs(1), 200);
        addRow("copy of today of ", name, QDateTime::currentDateTimeUtc(), 200);
        addRow("copy of next year of ", name, QDateTime::currentDateTimeUtc().addYears(1), 200);
        addRow("copy of 2099 of ", name, utc(QDate(2099, 12, 31), QTime(23, 59)), 200);
    }

    /// Whatever clock has dated the copy, it is not sent again while that clock may date
    /// the next one so, or it would be sent for ever.
    static void addProgramRows(const QString& name)
    {
        addRow("older copy of ", name, published.addSecs(-1), 200);
        addRow("same date as ", name, published, 304);
        addRow("newer copy of ", name, published.addSecs(1), 304);
        addRow("copy of today of ", name, QDateTime::currentDateTimeUtc(), 304);
        addRow("copy of tomorrow of ", name, QDateTime::currentDateTimeUtc().addDays(1), 304);
        addRow("copy of next year of ", name, QDateTime::currentDateTimeUtc().addYears(1), 304);
    }

    static int statusOf(const QNetworkReply& reply)
    {
        return reply.attribute(QNetworkRequest::HttpStatusCodeAttribute).toInt();
    }

    int statusOf(const QString& path, const QDateTime& ifModifiedSince)
    {
        QNetworkRequest request(QUrl(downloadBaseUrl + path));
        request.setHeader(QNetworkRequest::IfModifiedSinceHeader, ifModifiedSince);
        return statusOf(*get(request));
    }

    /// The finished reply.
    std::unique_ptr<QNetworkReply> get(const QNetworkRequest& request)
    {
        std::unique_ptr<QNetworkReply> reply(manager.get(request));
        QSignalSpy finished(reply.get(), &QNetworkReply::finished);
        if (!finished.wait(10'000))
            qFatal("no answer from %s", qPrintable(request.url().toString()));
        // The next request may want a connection of another kind.
        manager.clearConnectionCache();
        return reply;
    }

    const Community community{};
    std::unique_ptr<ServerProcess> server;
    QString running;
    QNetworkAccessManager manager;
};

HALDEN_TEST_MAIN(tst_CommunityServer)
#include "tst_communityserver.moc"
