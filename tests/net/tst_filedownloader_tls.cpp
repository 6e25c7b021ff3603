#include "tests/net/downloadprobe.h"
#include "tests/support/applicationfolder.h"
#include "tests/support/httpsserver.h"
#include "tests/support/logcapture.h"
#include "tests/support/testmain.h"

#include <QSslConfiguration>

using namespace TestSupport;

namespace {

/// How a download is started.
enum class Way { WithTls, WithoutTls, Plain };

} // namespace

/// Which servers a download trusts and which version of TLS it speaks.
class tst_FileDownloaderTls : public QObject {
    Q_OBJECT

private slots:
    void init();

    void version_data();
    void version();
    void requestConfiguration_data();
    void requestConfiguration();
    void untrustedServers_data();
    void untrustedServers();
    void foreignAuthority();
    void cutHandshake_data();
    void cutHandshake();

private:
    void compareFailure(const DownloadProbe& probe, const LogCapture& log, const QString& error);
};

void tst_FileDownloaderTls::init()
{
    ApplicationFolder::clear();
    writeFile(ApplicationFolder::path("target/file.bin"), "old");
}

/// The failed download asked for nothing, left the target and said why.
void tst_FileDownloaderTls::compareFailure(
    const DownloadProbe& probe, const LogCapture& log, const QString& error)
{
    QCOMPARE(probe.outcome(), endedNotModified("old"));
    QCOMPARE(
        log.linesStartingWith("warning: "),
        QStringList(
            "warning: ErrorNo:  QNetworkReply::" + error
            + " for url:  \"https://download.tarnwick.example/f\""));
    QCOMPARE(
        log.lines().mid(3), QStringList({ "Headers: QList() content: \"\"", "got an answer" }));
}

void tst_FileDownloaderTls::version_data()
{
    QTest::addColumn<TlsVersion>("offered");
    QTest::addColumn<Way>("way");
    QTest::addColumn<QString>("outcome");
    QTest::addColumn<QSsl::SslProtocol>("spoken");
    const QString written = endedWritten("new");
    const QString failed = endedNotModified("old");
    QTest::newRow("1.2 asked, any offered")
        << TlsVersion::Any << Way::WithTls << written << QSsl::TlsV1_2;
    QTest::newRow("1.2 asked and offered")
        << TlsVersion::Only12 << Way::WithTls << written << QSsl::TlsV1_2;
    QTest::newRow("1.2 asked, 1.3 offered")
        << TlsVersion::Only13 << Way::WithTls << failed << QSsl::UnknownProtocol;
    QTest::newRow("1.2 asked, 1.0 offered")
        << TlsVersion::Only10 << Way::WithTls << failed << QSsl::UnknownProtocol;
    QTest::newRow("nothing asked, any offered")
        << TlsVersion::Any << Way::WithoutTls << written << QSsl::TlsV1_3;
    QTest::newRow("nothing asked, 1.2 offered")
        << TlsVersion::Only12 << Way::WithoutTls << written << QSsl::TlsV1_2;
    QTest::newRow("nothing asked, 1.0 offered")
        << TlsVersion::Only10 << Way::WithoutTls << failed << QSsl::UnknownProtocol;
    QTest::newRow("plain, any offered")
        << TlsVersion::Any << Way::Plain << written << QSsl::TlsV1_3;
    QTest::newRow("plain, 1.3 offered")
        << TlsVersion::Only13 << Way::Plain << written << QSsl::TlsV1_3;
}

void tst_FileDownloaderTls::version()
{
    QFETCH(TlsVersion, offered);
    QFETCH(Way, way);
    QFETCH(QString, outcome);
    QFETCH(QSsl::SslProtocol, spoken);
    HttpsServer server(trustedCertificate(), offered);
    server.listen();
    server.answer("/f", HttpAnswer::ok("new"));
    DownloadProbe probe;
    probe.useTls = way == Way::WithTls;
    const LogCapture log;
    const QUrl url = onDownloadHost("/f");
    QVERIFY(way == Way::Plain ? probe.runPlain(url) : probe.run(url));
    QTRY_COMPARE(probe.outcome(), outcome);
    QCOMPARE(server.requests().value(0).tls, spoken);
    QCOMPARE(
        log.linesStartingWith("warning: ErrorNo:  QNetworkReply::SslHandshakeFailedError").size(),
        spoken == QSsl::UnknownProtocol ? 1 : 0);
}

void tst_FileDownloaderTls::requestConfiguration_data()
{
    QTest::addColumn<Way>("way");
    QTest::addColumn<QSsl::SslProtocol>("protocol");
    const QSsl::SslProtocol untouched = QSslConfiguration::defaultConfiguration().protocol();
    QTest::newRow("with TLS settings") << Way::WithTls << QSsl::TlsV1_2;
    QTest::newRow("without TLS settings") << Way::WithoutTls << untouched;
    QTest::newRow("plain") << Way::Plain << untouched;
}

void tst_FileDownloaderTls::requestConfiguration()
{
    QFETCH(Way, way);
    QFETCH(QSsl::SslProtocol, protocol);
    HttpsServer server;
    server.listen();
    DownloadProbe probe;
    probe.useTls = way == Way::WithTls;
    const LogCapture log;
    const QUrl url = onDownloadHost("/f");
    way == Way::Plain ? probe.startPlain(url) : probe.start(url);
    QVERIFY(probe.network.reply());
    const QSslConfiguration tls = probe.network.reply()->request().sslConfiguration();
    QCOMPARE(tls.protocol(), protocol);
    QCOMPARE(tls.peerVerifyMode(), QSslSocket::AutoVerifyPeer);
    QTRY_VERIFY(probe.flag.state());
}

void tst_FileDownloaderTls::untrustedServers_data()
{
    QTest::addColumn<QStringList>("names");
    QTest::addColumn<Validity>("validity");
    QTest::addColumn<Way>("way");
    const QStringList right{ "download.tarnwick.example" };
    const QStringList wrong{ "download.tarnwick.example.evil.example", "localhost" };
    const auto rows = [&](const QByteArray& suffix, Way way) {
        QTest::newRow("other host" + suffix) << wrong << Validity::current() << way;
        QTest::newRow("expired" + suffix) << right << Validity::expired() << way;
        QTest::newRow("not valid yet" + suffix) << right << Validity::notYet() << way;
    };
    rows(", with TLS settings", Way::WithTls);
    rows(", without TLS settings", Way::WithoutTls);
    rows(", plain", Way::Plain);
}

void tst_FileDownloaderTls::untrustedServers()
{
    QFETCH(QStringList, names);
    QFETCH(Validity, validity);
    QFETCH(Way, way);
    HttpsServer server(trustedAuthority().issue(names, validity));
    server.listen();
    server.answer("/f", HttpAnswer::ok("evil"));
    DownloadProbe probe;
    probe.useTls = way == Way::WithTls;
    const LogCapture log;
    const QUrl url = onDownloadHost("/f");
    QVERIFY(way == Way::Plain ? probe.runPlain(url) : probe.run(url));
    compareFailure(probe, log, "SslHandshakeFailedError");
    QCOMPARE(server.requests().size(), 0);
}

void tst_FileDownloaderTls::foreignAuthority()
{
    HttpsServer server(CertificateAuthority().issue(communityHosts()));
    server.listen();
    server.answer("/f", HttpAnswer::ok("evil"));
    DownloadProbe probe;
    const LogCapture log;
    QVERIFY(probe.run(onDownloadHost("/f")));
    compareFailure(probe, log, "SslHandshakeFailedError");
    QCOMPARE(server.requests().size(), 0);
}

void tst_FileDownloaderTls::cutHandshake_data()
{
    QTest::addColumn<HttpAnswer>("greeting");
    QTest::addColumn<QString>("error");
    const QString closed = "RemoteHostClosedError";
    QTest::newRow("closed after the client's hello") << HttpAnswer().awaitBytes().close() << closed;
#ifndef Q_OS_WIN // Wine can lose the news of a reset
    // The hello comes too late and gets a reset for an answer.
    QTest::newRow("closed at once") << HttpAnswer().close() << closed;
    QTest::newRow("reset at once") << HttpAnswer().reset() << closed;
    QTest::newRow("reset after the client's hello") << HttpAnswer().awaitBytes().reset() << closed;
#endif
    QTest::newRow("no TLS at all") << HttpAnswer().awaitBytes().send("HTTP/1.1 200 OK\r\n\r\nevil")
                                   << "SslHandshakeFailedError";
}

void tst_FileDownloaderTls::cutHandshake()
{
    QFETCH(HttpAnswer, greeting);
    QFETCH(QString, error);
    HttpsServer server;
    server.listenPlain(443);
    server.greet(greeting);
    DownloadProbe probe;
    const LogCapture log;
    QVERIFY(probe.run(onDownloadHost("/f")));
    compareFailure(probe, log, error);
}

HALDEN_TEST_MAIN(tst_FileDownloaderTls)
#include "tst_filedownloader_tls.moc"
