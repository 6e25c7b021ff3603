#include "tests/support/httpsserver.h"
#include "tests/support/rawsockets.h"
#include "tests/support/testmain.h"
#include "tests/support/timezone.h"

#include <QNetworkAccessManager>
#include <QNetworkReply>
#include <QProcess>
#include <QSslConfiguration>

using namespace TestSupport;

namespace {

const QUrl secretUrl("https://download.tarnwick.example/secret");

QNetworkRequest requestWith(const QUrl& url, const QSslConfiguration& tls)
{
    QNetworkRequest request(url);
    request.setSslConfiguration(tls);
    return request;
}

/// A client that speaks only this version and takes weak signatures.
QSslConfiguration clientOf(const QByteArray& version)
{
    QSslConfiguration tls = QSslConfiguration::defaultConfiguration();
    tls.setProtocol(QSsl::AnyProtocol);
    tls.setBackendConfigurationOption("MinProtocol", version);
    tls.setBackendConfigurationOption("MaxProtocol", version);
    tls.setBackendConfigurationOption("CipherString", QByteArray("ALL:@SECLEVEL=0"));
    return tls;
}

/// "NoError: body" or the name of the error.
QByteArray fetch(const QNetworkRequest& request)
{
    QNetworkAccessManager manager;
    const QScopedPointer<QNetworkReply> reply(manager.get(request));
    if (!QTest::qWaitFor([&reply] { return reply->isFinished(); }, patience))
        return "still running";
    if (reply->error() == QNetworkReply::NoError)
        return "NoError: " + reply->readAll();
    return QMetaEnum::fromType<QNetworkReply::NetworkError>().valueToKey(reply->error());
}

QByteArray fetch(const QUrl& url)
{
    return fetch(QNetworkRequest(url));
}

/// What the child process of `aChildProcessTrustsTheAuthority()` does.
int fetchSecret()
{
    return fetch(secretUrl) == "NoError: treasure" ? 42 : 1;
}

} // namespace

class tst_HttpsServer : public QObject {
    Q_OBJECT

private slots:
    void theAuthorityIsTrusted()
    {
        HttpsServer server;
        server.listen();
        server.answer("/secret", HttpAnswer::ok("treasure"));
        QCOMPARE(fetch(secretUrl), "NoError: treasure");
        QCOMPARE(server.failedHandshakes(), 0);
    }

    void aChildProcessTrustsTheAuthority()
    {
        HttpsServer server;
        server.listen();
        server.answer("/secret", HttpAnswer::ok("treasure"));
        QProcess child;
        child.start(QCoreApplication::applicationFilePath(), { "--fetch" });
        QTRY_COMPARE_WITH_TIMEOUT(child.state(), QProcess::NotRunning, patience);
        QCOMPARE(child.exitCode(), 42);
    }

    void aForeignAuthorityIsNotTrusted()
    {
        HttpsServer server(CertificateAuthority().issue({ "localhost" }));
        server.listen();
        QCOMPARE(fetch(QUrl("https://localhost/")), "SslHandshakeFailedError");
    }

    void validityIsAsAsked_data()
    {
        QTest::addColumn<Validity>("validity");
        QTest::newRow("current") << Validity::current();
        QTest::newRow("expired") << Validity::expired();
        QTest::newRow("not yet") << Validity::notYet();
    }

    void validityIsAsAsked()
    {
        QFETCH(Validity, validity);
        const ServerCertificate issued
            = trustedAuthority().issue({ "a.example", "b.example" }, validity);
        QCOMPARE(
            issued.certificate.effectiveDate().toSecsSinceEpoch(),
            validity.notBefore.toSecsSinceEpoch());
        QCOMPARE(
            issued.certificate.expiryDate().toSecsSinceEpoch(),
            validity.notAfter.toSecsSinceEpoch());
        QCOMPARE(issued.certificate.subjectAlternativeNames().values(QSsl::DnsEntry).size(), 2);
        QVERIFY(!issued.key.isNull());
    }

    void speaksOnlyTheChosenVersion_data()
    {
        QTest::addColumn<TlsVersion>("version");
        QTest::addColumn<QByteArray>("spoken");
        QTest::addColumn<QByteArray>("refused");
        QTest::newRow("1.0") << TlsVersion::Only10 << QByteArray("TLSv1") << QByteArray("TLSv1.2");
        QTest::newRow("1.2") << TlsVersion::Only12 << QByteArray("TLSv1.2")
                             << QByteArray("TLSv1.3");
        QTest::newRow("1.3") << TlsVersion::Only13 << QByteArray("TLSv1.3")
                             << QByteArray("TLSv1.2");
    }

    void speaksOnlyTheChosenVersion()
    {
        QFETCH(TlsVersion, version);
        QFETCH(QByteArray, spoken);
        QFETCH(QByteArray, refused);
        HttpsServer server(trustedCertificate(), version);
        server.listen();
        server.answer("/secret", HttpAnswer::ok("treasure"));
        QCOMPARE(fetch(requestWith(secretUrl, clientOf(spoken))), "NoError: treasure");
        QCOMPARE(fetch(requestWith(secretUrl, clientOf(refused))), "SslHandshakeFailedError");
    }

    void recordsRequests()
    {
        HttpsServer server;
        server.listen();
        server.listenPlain();
        // By hand, since spelling and order are the toolkit's otherwise.
        RawClient client(server.plainPort());
        client.send("GET /a%20b?c=d HTTP/1.1\r\nX-First: 1\r\nX-Second: 2\r\n\r\n");
        QTRY_COMPARE(server.requestedPaths(), QStringList{ "/a%20b?c=d" });
        fetch(secretUrl);
        QCOMPARE(server.requestedPaths(), QStringList({ "/a%20b?c=d", "/secret" }));
        const HttpRequest first = server.requests().constFirst();
        QCOMPARE(first.method, "GET");
        QCOMPARE(first.header("x-first"), "1");
        QCOMPARE(first.headers, HttpHeaders({ { "X-First", "1" }, { "X-Second", "2" } }));
        QCOMPARE(first.tls, QSsl::UnknownProtocol);
        QCOMPARE(server.requests().constLast().tls, QSsl::TlsV1_3);
    }

    void answers_data()
    {
        QTest::addColumn<HttpAnswer>("answer");
        QTest::addColumn<QByteArray>("outcome");
        QTest::newRow("complete") << HttpAnswer::ok("body") << QByteArray("NoError: body");
        QTest::newRow("chunked") << HttpAnswer::chunked({ "bo", "dy" })
                                 << QByteArray("NoError: body");
        QTest::newRow("dripping") << HttpAnswer::announcing(4).drip("body", 1, 5)
                                  << QByteArray("NoError: body");
        QTest::newRow("missing") << HttpAnswer::status(404) << QByteArray("ContentNotFoundError");
        QTest::newRow("redirected") << HttpAnswer::redirect("/end") << QByteArray("NoError: end");
        QTest::newRow("cut short") << HttpAnswer::announcing(9).send("body").close()
                                   << QByteArray("RemoteHostClosedError");
    }

    void answers()
    {
        QFETCH(HttpAnswer, answer);
        QFETCH(QByteArray, outcome);
        HttpsServer server;
        server.listen();
        server.answer("/", answer);
        server.answer("/end", HttpAnswer::ok("end"));
        QCOMPARE(fetch(QUrl("https://www.tarnwick.example/")), outcome);
    }

    void servesWhatIsNewer_data()
    {
        QTest::addColumn<int>("secondsAfterModification");
        QTest::addColumn<QByteArray>("outcome");
        QTest::newRow("older copy") << -1 << QByteArray("NoError: body");
        QTest::newRow("same time") << 0 << QByteArray("NoError: ");
        QTest::newRow("newer copy") << 1 << QByteArray("NoError: ");
    }

    void servesWhatIsNewer()
    {
        QFETCH(int, secondsAfterModification);
        QFETCH(QByteArray, outcome);
        const QDateTime modified = utc(QDate(2024, 2, 29), QTime(12, 0));
        HttpsServer server;
        server.listen();
        server.serve("/secret", "body", modified);
        QNetworkRequest request(secretUrl);
        request.setRawHeader(
            "If-Modified-Since", httpDate(modified.addSecs(secondsAfterModification)));
        QCOMPARE(fetch(request), outcome);
    }

    void endsAsTold_data()
    {
        QTest::addColumn<HttpAnswer>("greeting");
        QTest::addColumn<QByteArray>("outcome");
        QTest::newRow("close") << HttpAnswer().awaitBytes().send("hi").close()
                               << QByteArray("hi, end");
#ifndef Q_OS_WIN // Wine ends a connection in order before it resets it
        QTest::newRow("reset") << HttpAnswer().awaitBytes().send("hi").reset()
                               << QByteArray("hi, reset");
#endif
    }

    void endsAsTold()
    {
        QFETCH(HttpAnswer, greeting);
        QFETCH(QByteArray, outcome);
        HttpsServer server;
        server.listenPlain();
        server.greet(greeting);
        RawClient client(server.plainPort());
        QTRY_COMPARE(server.openConnections(), 1);
        client.send("?");
        QTRY_COMPARE(client.outcome(), outcome);
        QTRY_COMPARE(server.openConnections(), 0);
    }

    void repeatsWithoutEnd()
    {
        HttpsServer server;
        server.listen();
        server.answer("/secret", HttpAnswer::head(200).repeat(QByteArray(65536, 'x')));
        QNetworkAccessManager manager;
        const QScopedPointer<QNetworkReply> reply(manager.get(QNetworkRequest(secretUrl)));
        QTRY_VERIFY(reply->bytesAvailable() > 1000000);
        QVERIFY(!reply->isFinished());
    }
};

namespace {

int fetchOrTest(int argc, char* argv[])
{
    const bool toFetch = argc == 2 && qstrcmp(argv[1], "--fetch") == 0;
    return toFetch ? fetchSecret() : runTest<tst_HttpsServer>(argc, argv);
}

} // namespace

int main(int argc, char* argv[])
{
    settleEnvironment();
    const QApplication application(argc, argv);
    endProcess(fetchOrTest(argc, argv));
}

#include "tst_httpsserver.moc"
