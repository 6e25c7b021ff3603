#include "net/filedownloader.h"
#include "tests/net/downloadprobe.h"
#include "tests/support/applicationfolder.h"
#include "tests/support/httpsserver.h"
#include "tests/support/logcapture.h"
#include "tests/support/testmain.h"

#include <QSharedPointer>
#include <QTcpSocket>

#include <memory>
#include <optional>

using namespace TestSupport;

namespace {

const QString shownUrl = "\"https://download.tarnwick.example/f\"";
const QString startLine
    = "true QUrl(" + shownUrl + ") \"" + sandboxApplicationFolder() + "/target\" \"file.bin\"";

/// The lines of a failed download.
QStringList failureLog(
    const QString& error, const QString& text, const QString& headers, const QString& content)
{
    return { startLine, "warning: ErrorNo:  QNetworkReply::" + error + " for url:  " + shownUrl,
             "Request failed,  \"" + text + '"',
             "Headers: QList(" + headers + ") content: \"" + content + '"', "got an answer" };
}

QString refusal(const QString& reason)
{
    return "Error transferring https://download.tarnwick.example/f - server replied: " + reason;
}

constexpr qsizetype mebibyte = 1 << 20;

/// Content that shows what is missing, doubled or out of order.
QByteArray numbered(qsizetype size)
{
    QByteArray content;
    for (int n = 0; content.size() < size; ++n)
        content.append(QByteArray::number(n).append(' '));
    return content.first(size);
}

/// The network library asks for compression and undoes it.
HttpAnswer compressed(const QByteArray& body)
{
    const QByteArray withoutSizeInFront = qCompress(body).sliced(4);
    return HttpAnswer::ok(withoutSizeInFront, { { "Content-Encoding", "deflate" } });
}

} // namespace

/// How the answers of a server end: as written, or as not modified with the
/// target left as it was.
class tst_FileDownloaderAnswers : public QObject {
    Q_OBJECT

private slots:
    void init();

    void written_data();
    void written();
    void largeBodies_data();
    void largeBodies();
    void largeBodyLiesInTheReply_data();
    void largeBodyLiesInTheReply();
    void largeTorso_data();
    void largeTorso();
    void notModifiedLeavesTheReplyAlone();
    void deliveredReplyIsDeleted();
    void emptyBodyCountsAsNotModified();
    void failures_data();
    void failures();
    void failureWithoutOldTarget();
    void unreachable_data();
    void unreachable();
    void redirectToHttpsIsFollowed();
    void redirectToHttpIsRefused();
    void endlessRedirectsFail();
    void oldCopyIsReplacedNewCopyKept_data();
    void oldCopyIsReplacedNewCopyKept();

private:
    QScopedPointer<HttpsServer> server;
};

void tst_FileDownloaderAnswers::init()
{
    ApplicationFolder::clear();
    writeFile(ApplicationFolder::path("target/file.bin"), "old");
    server.reset(new HttpsServer);
    server->listen();
}

void tst_FileDownloaderAnswers::written_data()
{
    QTest::addColumn<HttpAnswer>("answer");
    QTest::newRow("at once") << HttpAnswer::ok("new content");
    QTest::newRow("in paced pieces") << HttpAnswer::announcing(11).drip("new content", 2, 2);
    QTest::newRow("chunked") << HttpAnswer::chunked({ "new", " ", "content" });
    QTest::newRow("until the connection ends") << HttpAnswer::head(200).send("new content").close();
    QTest::newRow("connection kept short")
        << HttpAnswer::ok("new content", { { "Connection", "close" } }).close();
}

void tst_FileDownloaderAnswers::written()
{
    QFETCH(HttpAnswer, answer);
    server->answer("/f", answer);
    DownloadProbe probe;
    const LogCapture log;
    QVERIFY(probe.run(onDownloadHost("/f")));
    QTRY_COMPARE(probe.outcome(), endedWritten("new content"));
    QCOMPARE(log.lines(), QStringList({ startLine, "got an answer" }));
    QCOMPARE(server->requestCount("/f"), 1);
}

void tst_FileDownloaderAnswers::largeBodies_data()
{
    QTest::addColumn<HttpAnswer>("answer");
    const QByteArray large = numbered(5 * mebibyte + 1);
    QTest::newRow("announced length") << HttpAnswer::ok(large);
    QTest::newRow("chunks") << HttpAnswer::chunked({ large.first(100), large.sliced(100) });
    QTest::newRow("compressed") << compressed(large);
    QTest::newRow("until the connection ends") << HttpAnswer::head(200).send(large).close();
}

void tst_FileDownloaderAnswers::largeBodies()
{
    QFETCH(HttpAnswer, answer);
    server->answer("/f", answer);
    DownloadProbe probe;
    const LogCapture log;
    QVERIFY(probe.run(onDownloadHost("/f")));
    const QByteArray written = readFile(ApplicationFolder::path("target/file.bin"));
    QVERIFY2(written == numbered(5 * mebibyte + 1), "the target is not what the server sent");
    QCOMPARE(log.lines(), QStringList({ startLine, "got an answer" }));
}

void tst_FileDownloaderAnswers::largeBodyLiesInTheReply_data()
{
    QTest::addColumn<qsizetype>("size");
    QTest::addColumn<bool>("liesInTheReply");
    QTest::newRow("a byte") << qsizetype(1) << false;
    QTest::newRow("a byte less than a mebibyte") << mebibyte - 1 << false;
    QTest::newRow("a mebibyte") << mebibyte << true;
    QTest::newRow("five mebibytes") << 5 * mebibyte << true;
}

/// A large file is in memory once. A small body outlives its reply.
void tst_FileDownloaderAnswers::largeBodyLiesInTheReply()
{
    QFETCH(qsizetype, size);
    QFETCH(bool, liesInTheReply);
    server->answer("/f", HttpAnswer::ok(numbered(size)));
    DownloadProbe probe;
    const LogCapture log;
    probe.start(onDownloadHost("/f"));
    const QPointer<QNetworkReply> reply = probe.network.reply();
    QVERIFY(reply);
    // The downloader outlives this function.
    const auto isTheBlock = std::make_shared<std::optional<bool>>();
    auto* downloader = qobject_cast<FileDownloader*>(probe.downloader);
    connect(
        downloader, &FileDownloader::downloaded, this, [reply, isTheBlock](const QByteArray& body) {
            const QVariant block = reply->attribute(QNetworkRequest::DownloadBufferAttribute);
            *isTheBlock = body.constData() == block.value<QSharedPointer<char>>().data();
        });
    QTRY_VERIFY(*isTheBlock);
    QCOMPARE(**isTheBlock, liesInTheReply);
}

void tst_FileDownloaderAnswers::largeTorso_data()
{
    QTest::addColumn<qint64>("announced");
    QTest::newRow("more than there is") << qint64(3 * mebibyte);
    QTest::newRow("more than any memory has") << qint64(9'000'000'000'000);
}

void tst_FileDownloaderAnswers::largeTorso()
{
    QFETCH(qint64, announced);
    const QByteArray part = numbered(2 * mebibyte);
    server->answer("/f", HttpAnswer::announcing(announced).send(part).close());
    DownloadProbe probe;
    const LogCapture log;
    QVERIFY(probe.run(onDownloadHost("/f")));
    QTRY_COMPARE(probe.outcome(), endedNotModified("old"));
    const QStringList expected = failureLog(
        "RemoteHostClosedError", "Connection closed", loggedHeader("Content-Length"),
        QString::fromLatin1(part));
    QVERIFY2(log.lines() == expected, "not the log of a failed download");
}

void tst_FileDownloaderAnswers::notModifiedLeavesTheReplyAlone()
{
    server->answer("/f", HttpAnswer::notModified());
    DownloadProbe probe;
    const LogCapture log;
    QVERIFY(probe.run(onDownloadHost("/f")));
    QTRY_COMPARE(probe.outcome(), endedNotModified("old"));
    QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
    QVERIFY2(probe.network.reply(), "the reply of a 304 stays with its manager");
    QCOMPARE(log.lines(), QStringList(startLine));
}

void tst_FileDownloaderAnswers::deliveredReplyIsDeleted()
{
    server->answer("/f", HttpAnswer::ok("new"));
    DownloadProbe probe;
    const LogCapture log;
    probe.start(onDownloadHost("/f"));
    const QPointer<QNetworkReply> reply = probe.network.reply();
    QVERIFY(reply);
    QTRY_COMPARE(probe.outcome(), endedWritten("new"));
    QTRY_VERIFY(!reply);
}

void tst_FileDownloaderAnswers::emptyBodyCountsAsNotModified()
{
    server->answer("/f", HttpAnswer::ok(""));
    DownloadProbe probe;
    const LogCapture log;
    QVERIFY(probe.run(onDownloadHost("/f")));
    QTRY_COMPARE(probe.outcome(), endedNotModified("old"));
    QCOMPARE(log.lines(), QStringList({ startLine, "got an answer" }));
}

void tst_FileDownloaderAnswers::failures_data()
{
    QTest::addColumn<HttpAnswer>("answer");
    QTest::addColumn<QStringList>("log");
    const QString length = loggedHeader("Content-Length");
    const auto row = [](const char* name, const HttpAnswer& answer, const QStringList& log) {
        QTest::newRow(name) << answer << log;
    };
    row("404 with an error page", HttpAnswer::status(404, "<html>gone</html>"),
        failureLog("ContentNotFoundError", refusal("Not Found"), length, "<html>gone</html>"));
    row("404 with headers", HttpAnswer::status(404, "", { { "Server", "x" }, { "X-Trace", "1" } }),
        failureLog(
            "ContentNotFoundError", refusal("Not Found"),
            length + ", " + loggedHeader("Server") + ", " + loggedHeader("X-Trace"), ""));
    row("403", HttpAnswer::status(403, "no"),
        failureLog("ContentAccessDenied", refusal("Forbidden"), length, "no"));
    row("500", HttpAnswer::status(500, "broken"),
        failureLog("InternalServerError", refusal("Internal Server Error"), length, "broken"));
    row("503", HttpAnswer::status(503, "later"),
        failureLog("ServiceUnavailableError", refusal("Service Unavailable"), length, "later"));
    const QString closed = "Connection closed";
    row("body ends too early", HttpAnswer::announcing(100).send("torso").close(),
        failureLog("RemoteHostClosedError", closed, length, "torso"));
#ifndef Q_OS_WIN // Wine can lose the news of a reset
    row("reset in mid-body", HttpAnswer::announcing(100).send("torso").pause(50).reset(),
        failureLog("RemoteHostClosedError", closed, length, "torso"));
    row("reset behind the headers", HttpAnswer::announcing(100).pause(50).reset(),
        failureLog("RemoteHostClosedError", closed, length, ""));
#endif
    row("chunked body ends too early",
        HttpAnswer::head(200, { { "Transfer-Encoding", "chunked" } })
            .send("5\r\ntorso\r\n")
            .close(),
        failureLog("RemoteHostClosedError", closed, loggedHeader("Transfer-Encoding"), "torso"));
    row("end before the headers", HttpAnswer().close(),
        failureLog("RemoteHostClosedError", closed, "", ""));
    row("end in the headers", HttpAnswer().send("HTTP/1.1 200 OK\r\nContent-Le").close(),
        failureLog("RemoteHostClosedError", closed, "", ""));
}

void tst_FileDownloaderAnswers::failures()
{
    QFETCH(HttpAnswer, answer);
    QFETCH(QStringList, log);
    server->answer("/f", answer);
    DownloadProbe probe;
    const LogCapture capture;
    QVERIFY(probe.run(onDownloadHost("/f")));
    QTRY_COMPARE(probe.outcome(), endedNotModified("old"));
    QCOMPARE(capture.lines(), log);
}

void tst_FileDownloaderAnswers::failureWithoutOldTarget()
{
    server->answer("/f", HttpAnswer::status(404, "<html>gone</html>"));
    QVERIFY(QFile::remove(ApplicationFolder::path("target/file.bin")));
    DownloadProbe probe;
    const LogCapture log;
    QVERIFY(probe.run(onDownloadHost("/f")));
    QTRY_COMPARE(probe.outcome(), "notModiefied, flag 1, hidden 1, target none, temporary none");
}

void tst_FileDownloaderAnswers::unreachable_data()
{
    QTest::addColumn<QString>("host");
    QTest::addColumn<QString>("error");
    QTest::addColumn<QString>("text");
    QTest::newRow("connection refused") << "download.tarnwick.example"
                                        << "ConnectionRefusedError"
                                        << "Connection refused";
    QTest::newRow("host not found") << "nowhere.tarnwick.example"
                                    << "HostNotFoundError"
                                    << "Host nowhere.tarnwick.example not found";
}

void tst_FileDownloaderAnswers::unreachable()
{
    QFETCH(QString, host);
    QFETCH(QString, error);
    QFETCH(QString, text);
    server->shutDown();
    DownloadProbe probe;
    const LogCapture log;
    QVERIFY(probe.run(QUrl("https://" + host + "/f")));
    QTRY_COMPARE(probe.outcome(), endedNotModified("old"));
    QStringList lines = failureLog(error, text, "", "");
    lines.replaceInStrings("download.tarnwick.example", host);
    QCOMPARE(log.lines(), lines);
}

void tst_FileDownloaderAnswers::redirectToHttpsIsFollowed()
{
    server->answer("/f", HttpAnswer::redirect("https://mirror.tarnwick.example/moved"));
    server->answer("/moved", HttpAnswer::ok("new"));
    DownloadProbe probe;
    const LogCapture log;
    QVERIFY(probe.run(onDownloadHost("/f")));
    QTRY_COMPARE(probe.outcome(), endedWritten("new"));
    QCOMPARE(server->requestedPaths(), QStringList({ "/f", "/moved" }));
    const HttpRequest second = server->requests().constLast();
    QCOMPARE(second.header("If-Modified-Since"), "Thu, 29 Feb 2024 23:58:59 GMT");
    QCOMPARE(second.tls, QSsl::TlsV1_2);
    QCOMPARE(log.lines(), QStringList({ startLine, "got an answer" }));
}

void tst_FileDownloaderAnswers::redirectToHttpIsRefused()
{
    server->listenPlain();
    server->answer("/f", HttpAnswer::redirect("http://mirror.tarnwick.example/moved"));
    server->answer("/moved", HttpAnswer::ok("new"));
    DownloadProbe probe;
    const LogCapture log;
    QVERIFY(probe.run(onDownloadHost("/f")));
    QTRY_COMPARE(probe.outcome(), endedNotModified("old"));
    QCOMPARE(server->requestedPaths(), QStringList("/f"));
    QCOMPARE(
        log.lines().value(1).section(' ', 0, 3),
        "warning: ErrorNo:  QNetworkReply::InsecureRedirectError");
}

void tst_FileDownloaderAnswers::endlessRedirectsFail()
{
    server->answer("/f", HttpAnswer::redirect("/f"));
    DownloadProbe probe;
    const LogCapture log;
    QVERIFY(probe.run(onDownloadHost("/f")));
    QTRY_COMPARE(probe.outcome(), endedNotModified("old"));
    QCOMPARE(
        log.lines().value(1).section(' ', 0, 3),
        "warning: ErrorNo:  QNetworkReply::TooManyRedirectsError");
}

void tst_FileDownloaderAnswers::oldCopyIsReplacedNewCopyKept_data()
{
    QTest::addColumn<int>("secondsAfterCopy");
    QTest::addColumn<QString>("outcome");
    QTest::newRow("older on the server") << -1 << endedNotModified("old");
    QTest::newRow("same time") << 0 << endedNotModified("old");
    QTest::newRow("newer on the server") << 1 << endedWritten("new");
}

void tst_FileDownloaderAnswers::oldCopyIsReplacedNewCopyKept()
{
    QFETCH(int, secondsAfterCopy);
    QFETCH(QString, outcome);
    DownloadProbe probe;
    server->serve("/f", "new", probe.timestamp.addSecs(secondsAfterCopy));
    const LogCapture log;
    QVERIFY(probe.run(onDownloadHost("/f")));
    QTRY_COMPARE(probe.outcome(), outcome);
}

HALDEN_TEST_MAIN(tst_FileDownloaderAnswers)
#include "tst_filedownloader_answers.moc"
