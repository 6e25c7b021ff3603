#include "core/signalboolhelperclass.h"
#include "net/inithandler.h"
#include "net/referencetime.h"
#include "tests/net/progressreceiver.h"
#include "tests/net/replywatcher.h"
#include "tests/support/applicationfolder.h"
#include "tests/support/httpsserver.h"
#include "tests/support/logcapture.h"
#include "tests/support/testmain.h"

#include <QDir>
#include <QPointer>
#include <QSignalSpy>

using namespace TestSupport;

namespace {

const QStringList libs{ "ssleay32.dll", "libssl32.dll", "libeay32.dll" };
const QString mirror = "https://mirror.tarnwick.example/";

void placeAllBut(const QStringList& missing)
{
    for (const QString& lib : libs) {
        if (!missing.contains(lib))
            writeFile(ApplicationFolder::path(lib), "library");
    }
}

/// Where a library lands: the application folder's path has no separator.
QString landingPlace(const QString& lib)
{
    return sandboxApplicationFolder() + lib;
}

QString missingLine(const QString& lib)
{
    return "\" lib: " + lib + "is missing\"";
}

const QString shownUrl = "QUrl(\"" + mirror + "ssleay32.dll\")";
const QString versusLine = shownUrl + "  versus  " + shownUrl + "  versus  " + shownUrl;

QString downloadLine(const QString& lib)
{
    return "Download File:  \"" + lib + "\"  under url:  \"" + mirror + lib
        + "\" with timestamp:  QDateTime(2000-01-01 10:15:00.000 "
        + fixedReferenceTime().timeZoneAbbreviation() + " Qt::LocalTime)";
}

QString requestLine(const QString& lib)
{
    return "QUrl(\"" + mirror + lib + "\") \"\" \"" + lib + '"';
}

} // namespace

class tst_InitHandler : public QObject {
    Q_OBJECT

private slots:
    void init();
    void cleanup();

    void hasNoParent();
    void start_data();
    void start();
    void checkLibsAddsToTheQueue();
    void aFolderIsNoLibrary();
    void contentIsNotInspected();
    void getLibsWithEmptyQueue();
    void getLibsFetchesOneAfterTheOther();
    void failedLibraryDoesNotStopTheChain();
    void downloadsWithoutTlsSettings();
    void deletedHandlerIsNotCalledBack();

private:
    ProgressReceiver receiver;
};

void tst_InitHandler::init()
{
    ApplicationFolder::clear();
    receiver.events.clear();
}

void tst_InitHandler::cleanup()
{
    for (const QString& lib : libs)
        QFile::remove(landingPlace(lib));
}

void tst_InitHandler::hasNoParent()
{
    const InitHandler handler(&receiver);
    QCOMPARE(handler.parent(), nullptr);
}

void tst_InitHandler::start_data()
{
    QTest::addColumn<QStringList>("missing");
    for (int set = 0; set < 8; ++set) {
        QStringList missing;
        for (int i = 0; i < 3; ++i) {
            if (set & (1 << i))
                missing.append(libs[i]);
        }
        QTest::addRow("missing: %s", qPrintable(missing.join(", "))) << missing;
    }
}

void tst_InitHandler::start()
{
    QFETCH(QStringList, missing);
    placeAllBut(missing);
    QStringList lines{ "initer called" };
    for (const QString& lib : missing) {
        lines.append(missingLine(lib));
        if (lib == "ssleay32.dll")
            lines.append(versusLine);
    }
    if (!missing.isEmpty())
        lines.append("we need some libs");

    const LogCapture log;
    const ReplyWatcher network;
    const QPointer<InitHandler> handler = new InitHandler(&receiver);
    QSignalSpy complete(handler, SIGNAL(clientInitComplete()));
    QStringList linesBeforeSignal;
    connect(
        handler, &InitHandler::clientInitComplete, this, [&] { linesBeforeSignal = log.lines(); });
    handler->start();
    QCOMPARE(log.lines(), lines);
    QCOMPARE(linesBeforeSignal, lines);
    QCOMPARE(complete.size(), 1);
    QVERIFY2(handler, "the handler may only go through the event loop");
    QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
    QCOMPARE(handler.isNull(), missing.isEmpty());
    QCOMPARE(network.replies().size(), 0);
    QCOMPARE(receiver.events, QStringList());
    delete handler;
}

void tst_InitHandler::checkLibsAddsToTheQueue()
{
    placeAllBut({ "ssleay32.dll" });
    const LogCapture log;
    const QPointer<InitHandler> handler = new InitHandler(&receiver);
    QCOMPARE(handler->checkLibs(), false);
    QCOMPARE(handler->checkLibs(), false);
    const QStringList once{ missingLine("ssleay32.dll"), versusLine };
    QCOMPARE(log.lines(), once + once);

    HttpsServer server;
    server.listen();
    QSignalSpy complete(handler, SIGNAL(clientInitComplete()));
    handler->getLibs();
    QTRY_COMPARE(complete.size(), 1);
    QCOMPARE(server.requestedPaths(), QStringList({ "/ssleay32.dll", "/ssleay32.dll" }));
}

void tst_InitHandler::aFolderIsNoLibrary()
{
    placeAllBut({ "libeay32.dll" });
    QVERIFY(QDir().mkpath(ApplicationFolder::path("libeay32.dll")));
    const LogCapture log;
    InitHandler handler(&receiver);
    QCOMPARE(handler.checkLibs(), false);
}

void tst_InitHandler::contentIsNotInspected()
{
    for (const QString& lib : libs)
        writeFile(ApplicationFolder::path(lib), QByteArray());
    const LogCapture log;
    InitHandler handler(&receiver);
    QCOMPARE(handler.checkLibs(), true);
    QCOMPARE(log.lines(), QStringList());
}

void tst_InitHandler::getLibsWithEmptyQueue()
{
    const LogCapture log;
    const ReplyWatcher network;
    const QPointer<InitHandler> handler = new InitHandler(&receiver);
    QSignalSpy complete(handler, SIGNAL(clientInitComplete()));
    handler->getLibs();
    QCOMPARE(log.lines(), QStringList("we have the libs"));
    QCOMPARE(complete.size(), 1);
    QVERIFY(handler);
    QTRY_VERIFY(!handler);
    QCOMPARE(network.replies().size(), 0);
}

void tst_InitHandler::getLibsFetchesOneAfterTheOther()
{
    HttpsServer server;
    server.listen();
    for (const QString& lib : libs)
        server.answer('/' + lib.toLatin1(), HttpAnswer::ok("content of " + lib.toLatin1()));
    const LogCapture log;
    const QPointer<InitHandler> handler = new InitHandler(&receiver);
    QSignalSpy complete(handler, SIGNAL(clientInitComplete()));
    handler->start();
    QCOMPARE(complete.size(), 1);
    const qsizetype startLines = log.lines().size();
    handler->getLibs();
    QTRY_COMPARE(complete.size(), 2);
    QTRY_VERIFY(!handler);

    QStringList lines;
    QStringList paths;
    QStringList events;
    for (const QString& lib : libs) {
        lines += { downloadLine(lib), requestLine(lib), "got an answer" };
        paths.append('/' + lib);
        events += { "show " + lib, "hide" };
        QCOMPARE(readFile(landingPlace(lib)), "content of " + lib.toLatin1());
    }
    QCOMPARE(log.lines().mid(startLines), lines + QStringList("we have the libs"));
    QCOMPARE(server.requestedPaths(), paths);
    QCOMPARE(receiver.events, events);
    QCOMPARE(QDir(ApplicationFolder::path()).entryList({ "*.dll" }), QStringList());
}

void tst_InitHandler::failedLibraryDoesNotStopTheChain()
{
    HttpsServer server;
    server.listen();
    server.answer("/libssl32.dll", HttpAnswer::announcing(100).send("torso").close());
    server.answer("/libeay32.dll", HttpAnswer::ok("content"));
    const LogCapture log;
    const QPointer<InitHandler> handler = new InitHandler(&receiver);
    QSignalSpy complete(handler, SIGNAL(clientInitComplete()));
    handler->start();
    handler->getLibs();
    QTRY_COMPARE(complete.size(), 2);
    QCOMPARE(
        server.requestedPaths(),
        QStringList({ "/ssleay32.dll", "/libssl32.dll", "/libeay32.dll" }));
    QVERIFY(!QFile::exists(landingPlace("ssleay32.dll")));
    QVERIFY(!QFile::exists(landingPlace("libssl32.dll")));
    QCOMPARE(readFile(landingPlace("libeay32.dll")), "content");
    QTRY_VERIFY(!handler);
}

void tst_InitHandler::downloadsWithoutTlsSettings()
{
    HttpsServer server(trustedCertificate(), TlsVersion::Only13);
    server.listen();
    server.answer("/libeay32.dll", HttpAnswer::ok("content"));
    placeAllBut({ "libeay32.dll" });
    const LogCapture log;
    auto* handler = new InitHandler(&receiver);
    handler->checkLibs();
    QSignalSpy complete(handler, SIGNAL(clientInitComplete()));
    handler->downloadNextLib();
    QTRY_COMPARE(complete.size(), 1);
    QCOMPARE(server.requests().size(), 1);
    QCOMPARE(server.requests().constFirst().header("If-Modified-Since"), QByteArray());
    QCOMPARE(readFile(landingPlace("libeay32.dll")), "content");
}

/// The flag outlives the handler, and a download may still set it.
void tst_InitHandler::deletedHandlerIsNotCalledBack()
{
    HttpsServer server;
    server.listen();
    server.answer("/ssleay32.dll", HttpAnswer::ok("content"));
    const LogCapture log;
    auto* handler = new InitHandler(&receiver);
    handler->start();
    handler->getLibs();
    delete handler;
    QTRY_COMPARE(receiver.events, QStringList({ "show ssleay32.dll", "hide" }));
    QCOMPARE(server.requestedPaths(), QStringList("/ssleay32.dll"));
    QCOMPARE(log.lines().constLast(), "got an answer");
}

HALDEN_TEST_MAIN(tst_InitHandler)
#include "tst_inithandler.moc"
