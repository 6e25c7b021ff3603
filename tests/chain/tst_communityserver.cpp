#include "app/constants.h"
#include "tests/support/applicationfolder.h"
#include "tests/support/testmain.h"
#include "tests/support/timezone.h"
#include "tests/world/community.h"

#include <QDateTime>
#include <QFileInfo>
#include <QNetworkAccessManager>
#include <QNetworkReply>
#include <QSignalSpy>
#include <QSslConfiguration>

#include <memory>

namespace {

// What Community dates everything.
const QDateTime published = TestSupport::utc(QDate(2024, 5, 1), QTime(8, 0));

} // namespace

/// The administrators' nginx configuration keeps what the launcher relies on.
class tst_CommunityServer : public QObject {
    Q_OBJECT

private slots:
    void initTestCase()
    {
        community.publish();
        // Of a publisher that is at work.
        for (const char* path : { "wow-client-patch/.halden-publish/0/0", ".halden-publish.lock" })
            TestSupport::writeFile(community.path(path), "x");
        community.start();
    }

    void answers_data()
    {
        QTest::addColumn<QString>("path");
        QTest::addColumn<QDateTime>("ifModifiedSince");
        QTest::addColumn<int>("status");
        QTest::addColumn<QString>("contentType");

        const QDateTime before = published.addSecs(-1);
        const QDateTime after = published.addSecs(1);
        const QString binary = "application/octet-stream";
        const QString folder = "wow-client-patch/live/Data/";
        const QString patch = community.patchRequest("live", "Data/Größe der Welt.MPQ").sliced(1);
        for (const QString manifest : { "patch.ini", "patchTest.ini" }) {
            addRow("older copy of ", manifest, before, 200, "text/plain");
            addRow("same date as ", manifest, published, 304, "");
            addRow("newer copy of ", manifest, after, 304, "");
        }
        for (const QString program : { "Halden-Launcher.exe", "Halden-Launcher-Updater.exe" }) {
            addRow("older copy of ", program, before, 200, binary);
            addRow("newer copy of ", program, after, 304, "");
        }
        addRow("older copy of ", patch, before, 200, binary);
        addRow("same date as ", patch, published, 200, binary);
        addRow("newer copy of ", patch, after, 200, binary);
        addRow("doubled slash in ", QString(patch).replace("live/", "live//"), after, 200, binary);
        addRow("missing ", folder + "nothing.MPQ", before, 404, "text/html");
        addRow("missing ", "nothing.ini", before, 404, "text/html");
        addRow("no listing of ", folder, before, 403, "text/html");
        addRow("no listing of ", "", before, 403, "text/html");
        addRow("information text at ", "alert", before, 200, "text/html; charset=utf-8");
    }

    void answers()
    {
        QFETCH(QString, path);
        QFETCH(QDateTime, ifModifiedSince);
        QFETCH(int, status);
        QFETCH(QString, contentType);
        QNetworkRequest request(QUrl(downloadBaseUrl + path));
        request.setHeader(QNetworkRequest::IfModifiedSinceHeader, ifModifiedSince);
        const auto reply = get(request);
        QCOMPARE(reply->attribute(QNetworkRequest::HttpStatusCodeAttribute).toInt(), status);
        QCOMPARE(reply->header(QNetworkRequest::ContentTypeHeader).toString(), contentType);
    }

    void keepsToItselfWhatIsThePublishers_data()
    {
        QTest::addColumn<QString>("path");
        for (const QString path :
             { ".halden-history", ".halden-history/", ".halden-history/live/1.ini",
               ".halden-history/live/1.json", ".halden-history/test/1.ini",
               "wow-client-patch/.halden-publish/0/0", ".halden-publish.lock" })
            QTest::newRow(qPrintable(path)) << path;
    }

    /// It is there, and would be served under any other name.
    void keepsToItselfWhatIsThePublishers()
    {
        QFETCH(QString, path);
        QVERIFY2(QFileInfo::exists(community.path(path)), qPrintable(path));
        const auto reply = get(QNetworkRequest(QUrl(downloadBaseUrl + path)));
        QCOMPARE(reply->attribute(QNetworkRequest::HttpStatusCodeAttribute).toInt(), 404);
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
    static void addRow(
        const char* what, const QString& path, const QDateTime& ifModifiedSince, int status,
        const QString& contentType)
    {
        QTest::newRow(qPrintable(what + ('/' + path)))
            << path << ifModifiedSince << status << contentType;
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

    Community community;
    QNetworkAccessManager manager;
};

HALDEN_TEST_MAIN(tst_CommunityServer)
#include "tst_communityserver.moc"
