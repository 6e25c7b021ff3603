#include "net/referencetime.h"
#include "tests/net/downloadprobe.h"
#include "tests/support/applicationfolder.h"
#include "tests/support/httpsserver.h"
#include "tests/support/logcapture.h"
#include "tests/support/testmain.h"
#include "tests/support/timezone.h"

#include <QMetaMethod>
#include <QScopedPointer>
#include <QSignalSpy>

using namespace TestSupport;

/// What a download does up to the moment its request is on the wire.
class tst_FileDownloaderStart : public QObject {
    Q_OBJECT

private slots:
    void init();

    void signalsArePublicAndSlotsPrivate();
    void constructorConnectsBeforeTheRequest();
    void constructorTakesTheParent();
    void eventsInOrder_data();
    void eventsInOrder();
    void signalsCarryTheirValues();
    void returnsFalseEvenWhenTheFileIsWrittenLater_data();
    void returnsFalseEvenWhenTheFileIsWrittenLater();
    void logsItsArguments_data();
    void logsItsArguments();
    void requestHeaders_data();
    void requestHeaders();
    void sendsTheTimestampAsGmt_data();
    void sendsTheTimestampAsGmt();
    void fileNameFromUrl_data();
    void fileNameFromUrl();
    void joinsPathAndFileName_data();
    void joinsPathAndFileName();
    void reportsProgress();

private:
    QScopedPointer<HttpsServer> server;
};

void tst_FileDownloaderStart::init()
{
    QTest::failOnWarning(QRegularExpression(".*"));
    ApplicationFolder::clear();
    QDir().mkpath(ApplicationFolder::path("target"));
    server.reset(new HttpsServer);
    server->listen();
    server->answerAnythingElse([](const HttpRequest&) { return HttpAnswer::ok("new"); });
}

void tst_FileDownloaderStart::signalsArePublicAndSlotsPrivate()
{
    const QMetaObject& metaObject = FileDownloader::staticMetaObject;
    for (int i = metaObject.methodOffset(); i < metaObject.methodCount(); ++i) {
        const QMetaMethod method = metaObject.method(i);
        const bool isSignal = method.methodType() == QMetaMethod::Signal;
        QCOMPARE(method.access(), isSignal ? QMetaMethod::Public : QMetaMethod::Private);
    }
}

void tst_FileDownloaderStart::constructorConnectsBeforeTheRequest()
{
    DownloadProbe probe;
    const QScopedPointer<FileDownloader> downloader(new FileDownloader(
        true, true, &probe.receiver, onDownloadHost("/f"), probe.timestamp, probe.folder + '/',
        probe.fileName, nullptr));
    QCOMPARE(probe.events, QStringList({ "show", "request" }));
    QCOMPARE(probe.receiver.labels, QStringList("file.bin"));
    QTRY_COMPARE(
        probe.events,
        QStringList({ "show", "request", "hide", "fileWriteFinished", "filePreWriteFinished",
                      "downloaded" }));
    QCOMPARE(readFile(probe.target()), "new");
}

void tst_FileDownloaderStart::constructorTakesTheParent()
{
    DownloadProbe probe;
    QObject parent;
    const auto* downloader = new FileDownloader(
        true, false, &probe.receiver, onDownloadHost("/f"), probe.timestamp, probe.folder + '/',
        probe.fileName, &parent);
    QCOMPARE(downloader->parent(), &parent);
    QTRY_COMPARE(probe.receiver.hidden, 1);
    QCOMPARE(server->requests().constFirst().header("If-Modified-Since"), QByteArray());
}

void tst_FileDownloaderStart::eventsInOrder_data()
{
    QTest::addColumn<HttpAnswer>("answer");
    QTest::addColumn<QStringList>("events");
    // Slots run inside the signal, so that the first signal is noted last.
    QTest::newRow("written") << HttpAnswer::ok("new")
                             << QStringList{ "show",      "request",
                                             "hide",      "fileWriteFinished",
                                             "flag",      "filePreWriteFinished",
                                             "downloaded" };
    QTest::newRow("empty") << HttpAnswer::ok(
        "") << QStringList{ "show", "request", "hide", "notModiefied", "flag", "downloaded" };
    QTest::newRow("not modified") << HttpAnswer::notModified()
                                  << QStringList{ "show", "request", "hide", "notModiefied",
                                                  "flag" };
}

void tst_FileDownloaderStart::eventsInOrder()
{
    QFETCH(HttpAnswer, answer);
    QFETCH(QStringList, events);
    server->answer("/f", answer);
    DownloadProbe probe;
    QVERIFY(probe.run(onDownloadHost("/f")));
    QTRY_COMPARE(probe.events, events);
    QCOMPARE(probe.downloader->parent(), nullptr);
}

void tst_FileDownloaderStart::signalsCarryTheirValues()
{
    DownloadProbe probe;
    probe.start(onDownloadHost("/f"));
    QSignalSpy downloaded(probe.downloader, SIGNAL(downloaded(QByteArray,QString,QString)));
    QSignalSpy preWritten(probe.downloader, SIGNAL(filePreWriteFinished(QString,QString)));
    QTRY_COMPARE(downloaded.size(), 1);
    const QString path = probe.folder + QDir::separator();
    QCOMPARE(downloaded.constFirst(), QVariantList({ QByteArray("new"), path, probe.fileName }));
    QCOMPARE(preWritten.size(), 1);
    QCOMPARE(preWritten.constFirst(), QVariantList({ path, probe.fileName }));
}

void tst_FileDownloaderStart::returnsFalseEvenWhenTheFileIsWrittenLater_data()
{
    QTest::addColumn<bool>("plain");
    QTest::newRow("download") << false;
    QTest::newRow("downloadPlain") << true;
}

void tst_FileDownloaderStart::returnsFalseEvenWhenTheFileIsWrittenLater()
{
    QFETCH(bool, plain);
    DownloadProbe probe;
    const QUrl url = onDownloadHost("/f");
    QCOMPARE(plain ? probe.startPlain(url) : probe.start(url), false);
    QTRY_COMPARE(probe.outcome(), endedWritten("new"));
}

void tst_FileDownloaderStart::logsItsArguments_data()
{
    QTest::addColumn<bool>("plain");
    QTest::addColumn<bool>("useTls");
    QTest::addColumn<QString>("line");
    const QString rest = "QUrl(\"https://download.tarnwick.example/f\")"
                         " \""
        + sandboxApplicationFolder() + "/target\" \"file.bin\"";
    QTest::newRow("with TLS settings") << false << true << "true " + rest;
    QTest::newRow("without TLS settings") << false << false << "false " + rest;
    QTest::newRow("plain") << true << false << rest;
}

void tst_FileDownloaderStart::logsItsArguments()
{
    QFETCH(bool, plain);
    QFETCH(bool, useTls);
    QFETCH(QString, line);
    DownloadProbe probe;
    probe.useTls = useTls;
    const LogCapture log;
    QVERIFY(plain ? probe.runPlain(onDownloadHost("/f")) : probe.run(onDownloadHost("/f")));
    QCOMPARE(log.lines(), QStringList({ line, "got an answer" }));
}

void tst_FileDownloaderStart::requestHeaders_data()
{
    QTest::addColumn<bool>("plain");
    QTest::addColumn<bool>("useTls");
    QTest::addColumn<QByteArray>("ifModifiedSince");
    const QByteArray date = "Thu, 29 Feb 2024 23:58:59 GMT";
    QTest::newRow("with TLS settings") << false << true << date;
    QTest::newRow("without TLS settings") << false << false << date;
    QTest::newRow("plain") << true << false << QByteArray();
}

void tst_FileDownloaderStart::requestHeaders()
{
    QFETCH(bool, plain);
    QFETCH(bool, useTls);
    QFETCH(QByteArray, ifModifiedSince);
    DownloadProbe probe;
    probe.useTls = useTls;
    const QUrl url = onDownloadHost("/a%20b");
    QVERIFY(plain ? probe.runPlain(url) : probe.run(url));
    QCOMPARE(server->requestedPaths(), QStringList("/a%20b"));
    const HttpRequest request = server->requests().constFirst();
    QCOMPARE(request.method, "GET");
    QCOMPARE(request.header("Host"), "download.tarnwick.example");
    QCOMPARE(request.header("User-Agent"), "Tarnwick Launcher");
    QCOMPARE(request.header("If-Modified-Since"), ifModifiedSince);
}

void tst_FileDownloaderStart::sendsTheTimestampAsGmt_data()
{
    QTest::addColumn<QByteArray>("zone");
    QTest::addColumn<QByteArray>("header");
    QTest::newRow("UTC") << QByteArray("UTC0") << QByteArray("Sat, 01 Jan 2000 10:15:00 GMT");
    QTest::newRow("Berlin") << QByteArray("CET-1CEST")
                            << QByteArray("Sat, 01 Jan 2000 09:15:00 GMT");
    QTest::newRow("New York") << QByteArray("EST5EDT")
                              << QByteArray("Sat, 01 Jan 2000 15:15:00 GMT");
#ifndef Q_OS_WIN // its C library knows no such names
    QTest::newRow("Newfoundland") << QByteArray("<-0330>3:30")
                                  << QByteArray("Sat, 01 Jan 2000 13:45:00 GMT");
    QTest::newRow("the day before")
        << QByteArray("<+14>-14") << QByteArray("Fri, 31 Dec 1999 20:15:00 GMT");
#endif
}

void tst_FileDownloaderStart::sendsTheTimestampAsGmt()
{
    QFETCH(QByteArray, zone);
    QFETCH(QByteArray, header);
    const TimeZone home(zone);
    DownloadProbe probe;
    probe.timestamp = fixedReferenceTime();
    QVERIFY(probe.run(onDownloadHost("/f")));
    QCOMPARE(server->requests().constFirst().header("If-Modified-Since"), header);

    // A time in UTC goes out as it is, wherever the player lives.
    DownloadProbe other;
    QVERIFY(other.run(onDownloadHost("/f")));
    QCOMPARE(
        server->requests().constLast().header("If-Modified-Since"),
        "Thu, 29 Feb 2024 23:58:59 GMT");
}

void tst_FileDownloaderStart::fileNameFromUrl_data()
{
    QTest::addColumn<QByteArray>("url");
    QTest::addColumn<QString>("given");
    QTest::addColumn<QString>("name");
    QTest::newRow("last segment") << QByteArray("/a/b/patch.mpq") << ""
                                  << "patch.mpq";
    QTest::newRow("umlaut") << QByteArray("/%C3%9Cbersicht.txt") << ""
                            << "Übersicht.txt";
    QTest::newRow("blank") << QByteArray("/a%20b.txt") << ""
                           << "a b.txt";
    QTest::newRow("plus stays") << QByteArray("/a+b.txt") << ""
                                << "a+b.txt";
    QTest::newRow("percent") << QByteArray("/100%25.txt") << ""
                             << "100%.txt";
    QTest::newRow("query is no name") << QByteArray("/f.txt?name=g.txt") << ""
                                      << "f.txt";
    QTest::newRow("given name wins") << QByteArray("/a/b/patch.mpq") << "own.mpq"
                                     << "own.mpq";
    QTest::newRow("given name is not decoded") << QByteArray("/f") << "a%20b"
                                               << "a%20b";
}

void tst_FileDownloaderStart::fileNameFromUrl()
{
    QFETCH(QByteArray, url);
    QFETCH(QString, given);
    QFETCH(QString, name);
    DownloadProbe probe(given);
    const QUrl address = QUrl::fromEncoded("https://download.tarnwick.example" + url);
    QVERIFY(probe.run(address));
    QCOMPARE(probe.receiver.labels, QStringList(name));
    QCOMPARE(QDir(probe.folder).entryList(QDir::Files), QStringList(name));
}

void tst_FileDownloaderStart::joinsPathAndFileName_data()
{
    QTest::addColumn<QString>("folder");
    QTest::addColumn<QString>("target");
    const QString folder = sandboxApplicationFolder();
    QTest::newRow("folder") << folder + "/target" << folder + "/target" + QDir::separator() + "f";
    QTest::newRow("separator given too")
        << folder + "/target/" << folder + "/target/" + QDir::separator() + "f";
#ifndef Q_OS_WIN // there it would be a computer in the network
    QTest::newRow("root") << "/"
                          << "//f";
#endif
    QTest::newRow("application folder") << "" << folder + 'f';
}

void tst_FileDownloaderStart::joinsPathAndFileName()
{
    QFETCH(QString, folder);
    QFETCH(QString, target);
    DownloadProbe probe("f");
    probe.folder = folder;
    probe.start(onDownloadHost("/f"));
    QSignalSpy preWritten(probe.downloader, SIGNAL(filePreWriteFinished(QString,QString)));
    QTRY_COMPARE(preWritten.size(), 1);
    QCOMPARE(preWritten.constFirst().constFirst().toString() + 'f', target);
    QCOMPARE(readFile(target), "new");
    QVERIFY(QFile::remove(target));
}

void tst_FileDownloaderStart::reportsProgress()
{
    const QByteArray body(1000000, 'x');
    server->answer("/f", HttpAnswer::ok(body));
    DownloadProbe probe;
    QVERIFY(probe.run(onDownloadHost("/f")));
    QVERIFY(!probe.receiver.updates.isEmpty());
    const QPair<qint64, qint64> complete{ body.size(), body.size() };
    QCOMPARE(probe.receiver.updates.constLast(), complete);
    QCOMPARE(probe.receiver.updates.constFirst().second, body.size());
}

HALDEN_TEST_MAIN(tst_FileDownloaderStart)
#include "tst_filedownloader_start.moc"
