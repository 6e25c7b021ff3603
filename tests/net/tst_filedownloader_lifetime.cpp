#include "tests/net/downloadprobe.h"
#include "tests/support/applicationfolder.h"
#include "tests/support/httpsserver.h"
#include "tests/support/logcapture.h"
#include "tests/support/testmain.h"

#include <QDir>
#include <QNetworkAccessManager>
#include <QTimer>

#include <memory>
#include <vector>

using namespace TestSupport;

namespace {

#ifndef Q_OS_WIN // the process folder tells all this
/// Threads of this process that serve a network access manager.
int networkThreads()
{
    int count = 0;
    const QStringList threads
        = QDir("/proc/self/task").entryList(QDir::Dirs | QDir::NoDotAndDotDot);
    for (const QString& thread : threads)
        count
            += readFile("/proc/self/task/" + thread + "/comm").startsWith("QNetworkAccess") ? 1 : 0;
    return count;
}

qsizetype allThreads()
{
    return QDir("/proc/self/task").entryList(QDir::Dirs | QDir::NoDotAndDotDot).size();
}

qsizetype openDescriptors()
{
    return QDir("/proc/self/fd")
        .entryList(QDir::AllEntries | QDir::System | QDir::NoDotAndDotDot)
        .size();
}
#endif

} // namespace

/// What is left of a download when it has ended, several at once, and servers
/// that go silent.
class tst_FileDownloaderLifetime : public QObject {
    Q_OBJECT

private slots:
    void init();

    void staysAliveAfterTheEnd_data();
    void staysAliveAfterTheEnd();
    void severalAtOnce();
#ifndef Q_OS_WIN
    void givesBackThreadsAndDescriptors_data();
    void givesBackThreadsAndDescriptors();
#endif
    void silentServer_data();
    void silentServer();
    void slowServerIsNoSilentServer();

private:
    QScopedPointer<HttpsServer> server;
};

void tst_FileDownloaderLifetime::init()
{
    ApplicationFolder::clear();
    writeFile(ApplicationFolder::path("target/file.bin"), "old");
    server.reset(new HttpsServer);
    server->listen();
}

void tst_FileDownloaderLifetime::staysAliveAfterTheEnd_data()
{
    QTest::addColumn<HttpAnswer>("answer");
    QTest::newRow("written") << HttpAnswer::ok("new");
    QTest::newRow("not modified") << HttpAnswer::notModified();
    QTest::newRow("failed") << HttpAnswer::status(404);
}

void tst_FileDownloaderLifetime::staysAliveAfterTheEnd()
{
    QFETCH(HttpAnswer, answer);
    server->answer("/f", answer);
    DownloadProbe probe;
    const LogCapture log;
    probe.start(onDownloadHost("/f"));
    QVERIFY(probe.network.reply());
    const QPointer<QNetworkAccessManager> manager = probe.network.reply()->manager();
    QTRY_VERIFY(probe.flag.state());
#ifndef Q_OS_WIN
    QTRY_COMPARE(networkThreads(), 0);
#endif
    QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
    QVERIFY2(probe.downloader, "a downloader lives until the process ends");
    QVERIFY2(manager, "a downloader's manager lives until the process ends");
}

void tst_FileDownloaderLifetime::severalAtOnce()
{
    server->answerAnythingElse(
        [](const HttpRequest& request) { return HttpAnswer::ok("content of " + request.path); });
    // The slowest is first and fails; none waits for another or takes its answer.
    server->answer("/0", HttpAnswer::announcing(100).drip("torso", 1, 20).close());
    const LogCapture log;
    std::vector<std::unique_ptr<DownloadProbe>> probes;
    for (int i = 0; i < 10; ++i) {
        probes.push_back(std::make_unique<DownloadProbe>("file" + QString::number(i)));
        probes.back()->start(onDownloadHost('/' + QString::number(i)));
    }
    for (size_t i = 1; i < probes.size(); ++i) {
        QTRY_COMPARE(
            probes[i]->outcome().section(' ', 5),
            endedWritten("content of /" + QByteArray::number(i)).section(' ', 5));
        QCOMPARE(probes[i]->receiver.hidden, 1);
    }
    QTRY_VERIFY(probes[0]->flag.state());
    QVERIFY(!QFile::exists(probes[0]->target()));
    QCOMPARE(QDir(probes[0]->folder).entryList(QDir::Files).size(), 10);
}

#ifndef Q_OS_WIN
void tst_FileDownloaderLifetime::givesBackThreadsAndDescriptors_data()
{
    QTest::addColumn<HttpAnswer>("answer");
    QTest::newRow("written") << HttpAnswer::ok("new");
    QTest::newRow("not modified") << HttpAnswer::notModified();
    QTest::newRow("missing") << HttpAnswer::status(404);
    QTest::newRow("cut short") << HttpAnswer::announcing(100).send("torso").close();
    QTest::newRow("redirected") << HttpAnswer::redirect("/end");
}

void tst_FileDownloaderLifetime::givesBackThreadsAndDescriptors()
{
    QFETCH(HttpAnswer, answer);
    server->answer("/f", answer);
    server->answer("/end", HttpAnswer::ok("new"));
    const LogCapture log;
    // What the process opens only once is open after the first download.
    DownloadProbe first;
    QVERIFY(first.run(onDownloadHost("/f")));
    QTRY_COMPARE(networkThreads(), 0);
    QTRY_COMPARE(server->openConnections(), 0);
    const qsizetype before = openDescriptors();
    const qsizetype threadsBefore = allThreads();

    std::vector<std::unique_ptr<DownloadProbe>> probes;
    for (int i = 0; i < 50; ++i) {
        probes.push_back(std::make_unique<DownloadProbe>("file" + QString::number(i)));
        probes.back()->start(onDownloadHost("/f"));
    }
    QVERIFY2(allThreads() >= threadsBefore + 50, "each download runs in a thread of its own");
    for (const auto& probe : probes)
        QTRY_VERIFY_WITH_TIMEOUT(probe->flag.state(), patience);
    QTRY_COMPARE(networkThreads(), 0);
    QTRY_COMPARE(server->openConnections(), 0);
    QTRY_COMPARE(openDescriptors(), before);
}
#endif

void tst_FileDownloaderLifetime::silentServer_data()
{
    QTest::addColumn<HttpAnswer>("answer");
    QTest::addColumn<QByteArray>("content");
    QTest::addColumn<QString>("headers");
    const QString none = "Headers: QList() content: \"\"";
    const QString length = "Headers: QList(" + loggedHeader("Content-Length") + ") content: \"\"";
    QTest::newRow("no answer") << HttpAnswer() << QByteArray() << none;
    QTest::newRow("in mid-headers")
        << HttpAnswer().send("HTTP/1.1 200 OK\r\n") << QByteArray() << none;
    QTest::newRow("behind the headers") << HttpAnswer::announcing(100) << QByteArray() << length;
    QTest::newRow("in mid-body") << HttpAnswer::announcing(100).send("torso") << QByteArray("torso")
                                 << length;
    const QByteArray large(2'000'000, 'x');
    QTest::newRow("in the body of a large file")
        << HttpAnswer::announcing(3'000'000).send(large) << large << length;
}

void tst_FileDownloaderLifetime::silentServer()
{
    QFETCH(HttpAnswer, answer);
    QFETCH(QByteArray, content);
    QFETCH(QString, headers);
    server->answer("/f", answer);
    DownloadProbe probe;
    const LogCapture log;
    probe.start(onDownloadHost("/f"));
    QNetworkReply* reply = probe.network.reply();
    QVERIFY(reply);
    QCOMPARE(reply->request().transferTimeout(), 60000);
    QTRY_COMPARE(server->requestCount("/f"), 1);
    QTRY_COMPARE(reply->bytesAvailable(), content.size());
    auto* timer = reply->findChild<QTimer*>();
    QVERIFY2(timer, "the reply watches for silence");
    // Data stops it, and the start that follows is an event of its own.
    QTRY_VERIFY(timer->isActive());
    QCOMPARE(timer->interval(), 60000);
    QCOMPARE(probe.outcome(), "unfinished, flag 0, hidden 0, target 'old', temporary none");

    // A minute passes.
    timer->start(0);
    QTRY_COMPARE(probe.outcome(), endedNotModified("old"));
    // The toolkit closes a reply that it gives up and then complains about reads.
    QStringList lines = log.lines().mid(1);
    QCOMPARE(
        lines.removeAll("warning: QIODevice::read (QNetworkReplyHttpImpl): device not open"), 2);
    QCOMPARE(
        lines,
        QStringList({ "warning: ErrorNo:  QNetworkReply::OperationCanceledError for url:  "
                      "\"https://download.tarnwick.example/f\"",
                      "Request failed,  \"Operation canceled\"", headers, "got an answer" }));
    QTRY_COMPARE(server->openConnections(), 0);
}

/// Every byte starts the minute anew, however long the whole takes.
void tst_FileDownloaderLifetime::slowServerIsNoSilentServer()
{
    server->answer("/f", HttpAnswer::announcing(11).drip("new content", 1, 20));
    DownloadProbe probe;
    const LogCapture log;
    probe.start(onDownloadHost("/f"));
    QNetworkReply* reply = probe.network.reply();
    QVERIFY(reply);
    const auto limits = std::make_shared<QList<int>>();
    connect(reply, &QNetworkReply::readyRead, this, [reply, limits] {
        auto* timer = reply->findChild<QTimer*>();
        limits->append(timer->interval());
        timer->start(100000);
    });
    QTRY_COMPARE(probe.outcome(), endedWritten("new content"));
    QVERIFY2(limits->size() > 2, "the body did not come in pieces");
    QCOMPARE(*limits, QList<int>(limits->size(), 60000));
}

HALDEN_TEST_MAIN(tst_FileDownloaderLifetime)
#include "tst_filedownloader_lifetime.moc"
