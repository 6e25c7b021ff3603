#include "app/constants.h"
#include "tests/publisher/commandrun.h"
#include "tests/support/applicationfolder.h"
#include "tests/support/httpsserver.h"
#include "tests/support/testmain.h"
#include "tests/support/timezone.h"
#ifndef Q_OS_WIN
#include "tests/publisher/probe/terminal.h"
#endif

#include <QDir>
#include <QJsonArray>
#include <QJsonObject>
#include <QRegularExpression>
#include <QScopeGuard>
#include <QTcpServer>

#include <functional>

using namespace TestSupport;
using namespace Publisher;

namespace {

const QDateTime published = utc(QDate(2024, 5, 1), QTime(8, 0));
// What a launcher sends that has no copy.
const QDateTime oldDate = utc(QDate(2000, 1, 1), QTime(10, 15));
const QByteArray patchBody(5'000, 'p');
const QByteArray patchPath = "/wow-client-patch/live/Data/a%20b.mpq";
const QByteArray testPatchPath = "/wow-client-patch/test/Data/a%20b.mpq";
const QByteArray launcherPath = "/Halden-Launcher.exe";
const QByteArray updaterPath = "/Halden-Launcher-Updater.exe";
const QByteArray webPage = "<!DOCTYPE html><p>Bitte warten";

/// What a row does to a server on which everything is right.
using Spoil = std::function<void(HttpsServer&)>;

QByteArray manifest()
{
    return "[General]\nnumberOfFiles=2\nfile1=Data\nfile1-dirOnly=true\nfile1-pathOffset=\n"
           "file2=a b.mpq\nfile2-pathOffset=Data\nfile2-urlOffset=Data\nfile2-hash="
        + md5(patchBody).toLatin1() + '\n';
}

HttpHeaders dated()
{
    return { { "Last-Modified", httpDate(published) } };
}

QByteArray manifestOfMany(int files)
{
    QByteArray rows = "numberOfFiles=" + QByteArray::number(files) + '\n';
    for (int n = 1; n <= files; ++n) {
        const QByteArray key = "file" + QByteArray::number(n);
        rows += key + "=f" + QByteArray::number(n) + '\n' + key + "-pathOffset=\n" + key
            + "-hash=" + QByteArray(32, 'a') + '\n';
    }
    return rows;
}

/// The headers of a program, and something behind them.
QByteArray program(char letter)
{
    QByteArray bytes = QByteArray("\x7F"
                                  "ELF\x02\x01\x01");
    bytes.resize(120, '\0');
    bytes[16] = 2; // a program
    bytes[32] = 64; // with a table of segments behind the header
    bytes[54] = 56;
    bytes[56] = 1;
    bytes[40] = 64; // and one of sections, which may be the same
    bytes[58] = 40;
    bytes[60] = 1;
    return bytes + QByteArray(3'000, letter);
}

/// Everything that is served, as a folder of this machine.
QString putTree()
{
    QString tree = ApplicationFolder::path("server");
    writeFile(tree + "/patch.ini", manifest());
    writeFile(tree + "/Halden-Launcher.exe", program('l'));
    writeFile(tree + "/Halden-Launcher-Updater.exe", program('u'));
    writeFile(tree + "/wow-client-patch/live/Data/a b.mpq", patchBody);
    return tree;
}

/// A server as the launcher needs it.
void furnish(HttpsServer& server)
{
    for (const char* path : { "/patch.ini", "/patchTest.ini" })
        server.answer(path, HttpAnswer::ok(manifest(), dated()));
    server.serve(launcherPath, program('l'), published);
    server.serve(updaterPath, program('u'), published);
    server.answer("/alert", HttpAnswer::ok("<html><p>Willkommen"));
    server.answer(patchPath, HttpAnswer::ok(patchBody, dated()));
    server.answer(testPatchPath, HttpAnswer::ok(patchBody, dated()));
}

/// 304 only to the very same date, as nginx does by default.
HttpsServer::Handler exactDates(const QByteArray& body)
{
    return [body](const HttpRequest& request) {
        return request.header("If-Modified-Since") == httpDate(published)
            ? HttpAnswer::notModified()
            : HttpAnswer::ok(body, dated());
    };
}

CommandRun run(const QStringList& arguments)
{
    return CommandRun(QStringList{ "probe", "--json" } + arguments);
}

QString host()
{
    return QUrl(downloadBaseUrl).host();
}

QString webHost()
{
    return QUrl(launcherInfoUrl).host();
}

QString address(const HttpsServer& server)
{
    return "https://" + host() + ':' + QString::number(server.port());
}

constexpr qint64 secondsOfAnHour = 3600;

Validity validFor(int days)
{
    // An hour more, so that the days are full ones.
    return { QDateTime::currentDateTimeUtc().addDays(-1),
             QDateTime::currentDateTimeUtc().addDays(days).addSecs(secondsOfAnHour) };
}

} // namespace

/// What `probe` finds on live servers, and what it leaves alone.
class tst_Probe : public QObject {
    Q_OBJECT

private slots:
    void initTestCase()
    {
        trustedAuthority();
        trustedCertificate();
    }

    void init()
    {
        ApplicationFolder::clear();
    }

    void finds_data()
    {
        QTest::addColumn<Spoil>("spoil");
        QTest::addColumn<QStringList>("options");
        QTest::addColumn<QStringList>("findings");
        addManifestRows();
        addFileRows();
        addAnswerRows();
        addDateRows();
    }

    void finds()
    {
        QFETCH(Spoil, spoil);
        QFETCH(QStringList, options);
        QFETCH(QStringList, findings);
        HttpsServer server;
        server.listen(0);
        furnish(server);
        spoil(server);
        const CommandRun probed = run(options + QStringList{ address(server) });
        QCOMPARE(probed.findings(), findings);
        QCOMPARE(probed.code, findings.isEmpty() ? ExitCode::Fine : ExitCode::Findings);
        QCOMPARE(probed.messages, QString());
    }

    /// Everything is asked as launchers ask, and nothing else.
    void asksLikeLaunchers()
    {
        HttpsServer server;
        server.listen(0);
        furnish(server);
        const CommandRun probed = run({ "--deep", address(server) });
        QCOMPARE(probed.json.value("files").toInt(), 4);
        const QList<HttpRequest> requests = server.requests();
        QVERIFY(requests.size() >= 10);
        for (const HttpRequest& request : requests) {
            QCOMPARE(request.method, QByteArray("GET"));
            QCOMPARE(request.tls, QSsl::TlsV1_2);
            QCOMPARE(request.header("User-Agent"), applicationDisplayName.toUtf8());
            QVERIFY(!request.header("If-Modified-Since").isEmpty());
        }
        QCOMPARE(server.requestCount("/patchTest.ini"), 0);
        QCOMPARE(server.requestCount(patchPath), 1);
    }

    /// Four connections to the host of the files when many wait for their turn, and
    /// one to the host of the text in the window.
    void neverMoreThanFourAtOnce()
    {
        constexpr int files = 30;
        HttpsServer web;
        web.listen(0);
        int mostOfWeb = 0;
        web.answer("/alert", [&](const HttpRequest&) {
            mostOfWeb = std::max(mostOfWeb, web.openConnections());
            return HttpAnswer::ok("<html><p>Willkommen");
        });
        HttpsServer server;
        server.listen(0);
        furnish(server);
        server.answer("/patch.ini", HttpAnswer::ok(manifestOfMany(files), dated()));
        int most = 0;
        int asked = 0;
        int held = 0;
        server.answerAnythingElse([&](const HttpRequest& request) {
            most = std::max(most, server.openConnections());
            if (request.path.contains("halden-probe"))
                return HttpAnswer::status(404, "none");
            // Nobody is answered before all have asked who may.
            held = held % 4 + 1;
            ++asked;
            if (held == 4 || asked == files)
                QMetaObject::invokeMethod(&server, &HttpsServer::release, Qt::QueuedConnection);
            return HttpAnswer::held(HttpAnswer::ok("x", dated()));
        });
        const QString alert = "https://" + webHost() + ':' + QString::number(web.port()) + "/alert";
        QCOMPARE(run({ "--alert", alert, address(server) }).code, ExitCode::Fine);
        QCOMPARE(most, 4);
        QCOMPARE(mostOfWeb, 1);
        QCOMPARE(web.requestCount("/alert"), 1);
    }

    void certificates_data()
    {
        QTest::addColumn<Validity>("validity");
        QTest::addColumn<QString>("name");
        QTest::addColumn<QStringList>("findings");
        const QString untrusted = "certificate-untrusted " + host();
        QTest::newRow("long enough") << validFor(20) << host() << QStringList{};
        QTest::newRow("soon over")
            << validFor(5) << host() << QStringList{ "certificate-expiring " + host() };
        QTest::newRow("over") << Validity::expired() << host() << QStringList{ untrusted };
        QTest::newRow("not yet") << Validity::notYet() << host() << QStringList{ untrusted };
        QTest::newRow("for another host")
            << Validity::current() << "other.example" << QStringList{ untrusted };
    }

    void certificates()
    {
        QFETCH(Validity, validity);
        QFETCH(QString, name);
        QFETCH(QStringList, findings);
        HttpsServer server(trustedAuthority().issue({ name, webHost() }, validity));
        server.listen(0);
        furnish(server);
        const CommandRun probed = run({ address(server) });
        QCOMPARE(probed.findings(), findings);
        QCOMPARE(probed.code, findings.isEmpty() ? ExitCode::Fine : ExitCode::Findings);
    }

    void certificateOfAStranger()
    {
        const CertificateAuthority stranger;
        HttpsServer server(stranger.issue({ host() }));
        server.listen(0);
        furnish(server);
        QCOMPARE(
            run({ address(server) }).findings(), QStringList{ "certificate-untrusted " + host() });
    }

    /// The report tells the days even when they are enough, whole ones and no midnights.
    void daysOfTheCertificate()
    {
        Validity validity = validFor(20);
        validity.notAfter = validity.notAfter.addSecs(22 * secondsOfAnHour);
        HttpsServer server(trustedAuthority().issue(communityHosts(), validity));
        server.listen(0);
        furnish(server);
        QCOMPARE(run({ address(server) }).json.value("certificateDays").toInt(), 20);
        QCOMPARE(
            run({ "--days", "30", address(server) }).findings(),
            QStringList{ "certificate-expiring " + host() });
    }

    void serverWithoutTls12_data()
    {
        QTest::addColumn<TlsVersion>("version");
        QTest::newRow("1.0 only") << TlsVersion::Only10;
        QTest::newRow("1.3 only") << TlsVersion::Only13;
    }

    void serverWithoutTls12()
    {
        QFETCH(TlsVersion, version);
        HttpsServer server(trustedCertificate(), version);
        server.listen(0);
        furnish(server);
        const CommandRun probed = run({ address(server) });
        QCOMPARE(probed.findings(), QStringList{ "tls-1.2-missing " + host() });
        QCOMPARE(probed.code, ExitCode::Findings);
    }

    void plainHttp()
    {
        const CommandRun probed = run({ "http://" + host() });
        QCOMPARE(probed.findings(), QStringList{ "server-without-tls http://" + host() + '/' });
        QCOMPARE(probed.code, ExitCode::Findings);
    }

    void nobodyThere()
    {
        quint16 port = 0;
        {
            HttpsServer server;
            server.listen(0);
            port = server.port();
        }
        const CommandRun probed = run({ "https://" + host() + ':' + QString::number(port) });
        QCOMPARE(probed.findings(), QStringList{ "server-unreachable " + host() });
        QCOMPARE(probed.code, ExitCode::InputOutput);
    }

    /// An add-on may bring web pages; only a page under another name is an error.
    void pageOfAnAddOn()
    {
        HttpsServer server;
        server.listen(0);
        furnish(server);
        server.answer(
            "/patch.ini",
            HttpAnswer::ok(
                "numberOfFiles=1\nfile1=Hilfe.HTML\nfile1-pathOffset=.\nfile1-urlOffset=.\n"
                "file1-hash="
                    + md5(webPage).toLatin1() + '\n',
                dated()));
        server.answer("/wow-client-patch/live/Hilfe.HTML", HttpAnswer::ok(webPage, dated()));
        QCOMPARE(run({ "--deep", address(server) }).findings(), QStringList{});
    }

#ifndef Q_OS_WIN // where a test has no terminal, and a folder cannot be closed for its own owner
    /// The whole is known as soon as the manifest is: two launcher files, the text for
    /// the window, the patch file.
    void progressOnATerminal()
    {
        HttpsServer server;
        server.listen(0);
        furnish(server);
        // Slower than the line is drawn.
        server.answer(
            patchPath,
            HttpAnswer::announcing(patchBody.size()).drip(patchBody, patchBody.size() / 4, 300));
        const Terminal terminal;
        const CommandRun probed = run({ "--deep", address(server) });
        const QByteArray drawn = terminal.takeText();
        QCOMPARE(probed.code, ExitCode::Fine);
        QCOMPARE(probed.json.value("files").toInt(), 4);
        static const QRegularExpression line("Asking: [1-4] of 4 files, [0-9.]+ KiB, ");
        QVERIFY2(line.match(QString::fromUtf8(drawn)).hasMatch(), drawn.constData());
    }

    /// What could not be looked at must not pass for a server without findings.
    void noRoomToLook()
    {
        HttpsServer server;
        server.listen(0);
        furnish(server);
        const QString closed = ApplicationFolder::path("closed");
        QVERIFY(QDir().mkpath(closed));
        QVERIFY(QFile::setPermissions(closed, QFile::ReadOwner | QFile::ExeOwner));
        qputenv("TMPDIR", closed.toUtf8());
        const auto restore = qScopeGuard([] { qunsetenv("TMPDIR"); });
        const CommandRun probed = run({ address(server) });
        QCOMPARE(probed.code, ExitCode::InputOutput);
        QVERIFY2(
            probed.messages.contains("patch.ini cannot be looked at"), qPrintable(probed.messages));
        QVERIFY2(probed.messages.contains("another one in TMPDIR"), qPrintable(probed.messages));
    }
#endif

    void tree_data()
    {
        QTest::addColumn<int>("localSize");
        QTest::addColumn<QStringList>("findings");
        QTest::newRow("same size") << int(patchBody.size()) << QStringList{};
        QTest::newRow("another size") << 4'999 << QStringList{ "length-wrong patch.ini" };
    }

    void tree()
    {
        QFETCH(int, localSize);
        QFETCH(QStringList, findings);
        HttpsServer server;
        server.listen(0);
        furnish(server);
        const QString tree = putTree();
        writeFile(tree + "/wow-client-patch/live/Data/a b.mpq", QByteArray(localSize, 'p'));
        QCOMPARE(run({ "--tree", tree, address(server) }).findings(), findings);
    }

    void treeHoldsSomethingElse_data()
    {
        QTest::addColumn<QString>("path");
        QTest::addColumn<QByteArray>("content");
        QTest::addColumn<QStringList>("findings");
        const QString updater = "Halden-Launcher-Updater.exe";
        const QByteArray none;
        // Such as yesterday's out of a cache.
        QTest::newRow("a later manifest") << "patch.ini" << manifest() + '\n'
                                          << QStringList{ "differs-from-tree patch.ini" };
        QTest::newRow("a later launcher of the same size")
            << "Halden-Launcher.exe" << program('m')
            << QStringList{ "differs-from-tree Halden-Launcher.exe" };
        QTest::newRow("a later updater")
            << updater << program('v') << QStringList{ "differs-from-tree " + updater };
        QTest::newRow("no manifest")
            << "patch.ini" << none << QStringList{ "missing-in-tree patch.ini" };
        QTest::newRow("no launcher") << "Halden-Launcher.exe" << none
                                     << QStringList{ "missing-in-tree Halden-Launcher.exe" };
        QTest::newRow("no patch file") << "wow-client-patch/live/Data/a b.mpq" << none
                                       << QStringList{ "missing-in-tree patch.ini" };
        QTest::newRow("nothing") << "" << none
                                 << QStringList{ "missing-in-tree " + updater,
                                                 "missing-in-tree Halden-Launcher.exe",
                                                 "missing-in-tree patch.ini" };
    }

    void treeHoldsSomethingElse()
    {
        QFETCH(QString, path);
        QFETCH(QByteArray, content);
        QFETCH(QStringList, findings);
        HttpsServer server;
        server.listen(0);
        furnish(server);
        const QString tree = putTree();
        if (path.isEmpty())
            QDir(tree).removeRecursively();
        else if (content.isEmpty())
            QFile::remove(tree + '/' + path);
        else
            writeFile(tree + '/' + path, content);
        QDir().mkpath(tree);
        const CommandRun probed = run({ "--deep", "--tree", tree, address(server) });
        QCOMPARE(probed.findings(), findings);
        QCOMPARE(probed.code, ExitCode::Findings);
    }

    /// The text lies on the web host, which another server's admin has to name.
    void infoOfAnotherServer()
    {
        HttpsServer server;
        server.listen(0);
        furnish(server);
        const QString other
            = "https://" + communityHosts().constLast() + ':' + QString::number(server.port());
        const CommandRun unnamed({ "probe", other });
        QVERIFY2(unnamed.text.contains("--alert"), qPrintable(unnamed.text));
        QCOMPARE(server.requestCount("/alert"), 0);
        server.answer("/text", HttpAnswer::status(404));
        QCOMPARE(
            run({ "--alert", other + "/text", other }).findings(),
            QStringList{ "info-missing /text" });
    }

    /// Once, and not once more for older protocols.
    void silentServerIsWaitedForOnce()
    {
        QTest::failOnWarning(QRegularExpression(".*"));
        QTcpServer silent;
        QVERIFY(silent.listen(QHostAddress::Any));
        int connections = 0;
        connect(&silent, &QTcpServer::newConnection, &silent, [&] { ++connections; });
        const CommandRun probed = run(
            { "--timeout", "1", "https://" + host() + ':' + QString::number(silent.serverPort()) });
        QCOMPARE(probed.findings(), QStringList{ "server-unreachable " + host() });
        const QString text = probed.json["findings"][0]["text"].toString();
        QVERIFY2(text.contains("nothing for 1 seconds"), qPrintable(text));
        QCOMPARE(probed.code, ExitCode::InputOutput);
        QCOMPARE(connections, 1);
    }

    void plainHttpWhereTlsIsSpoken()
    {
        HttpsServer server;
        server.listenPlain(0);
        server.greet(HttpAnswer()
                         .awaitBytes()
                         .send("HTTP/1.1 400 Bad Request\r\n"
                               "Content-Length: 0\r\n\r\n")
                         .close());
        const CommandRun probed
            = run({ "https://" + host() + ':' + QString::number(server.plainPort()) });
        QCOMPARE(probed.findings(), QStringList{ "server-without-tls " + host() });
        QCOMPARE(probed.code, ExitCode::Findings);
    }

    void usage_data()
    {
        QTest::addColumn<QStringList>("arguments");
        QTest::addColumn<ExitCode>("code");
        QTest::newRow("no address") << QStringList{} << ExitCode::Usage;
        QTest::newRow("two addresses")
            << QStringList{ "https://a/", "https://b/" } << ExitCode::Usage;
        QTest::newRow("a bare name") << QStringList{ "a.example" } << ExitCode::Usage;
        QTest::newRow("another scheme") << QStringList{ "ftp://a/" } << ExitCode::Usage;
        QTest::newRow("days in words")
            << QStringList{ "--days", "many", "https://a/" } << ExitCode::Usage;
        QTest::newRow("no time") << QStringList{ "--timeout", "0", "https://a/" }
                                 << ExitCode::Usage;
        QTest::newRow("unknown finding")
            << QStringList{ "--accept", "all", "https://a/" } << ExitCode::Usage;
        QTest::newRow("no such tree")
            << QStringList{ "--tree", "/nowhere", "https://a/" } << ExitCode::InputOutput;
    }

    void usage()
    {
        QFETCH(QStringList, arguments);
        QFETCH(ExitCode, code);
        const CommandRun refused = run(arguments);
        QCOMPARE(refused.code, code);
        QVERIFY2(!refused.messages.isEmpty(), "the refusal must say why");
    }

private:
    static void
    add(const char* name, const QStringList& findings, const Spoil& spoil,
        const QStringList& options = {})
    {
        QTest::newRow(name) << spoil << options << findings;
    }

    /// One path with another answer.
    static Spoil with(const QByteArray& path, const HttpAnswer& answer)
    {
        return [=](HttpsServer& server) {
            server.answer(path, answer);
        };
    }

    static Spoil with(const QByteArray& path, const HttpsServer::Handler& handler)
    {
        return [=](HttpsServer& server) {
            server.answer(path, handler);
        };
    }

    /// Manifests in full, the launcher's files by their dates.
    static void serveDated(
        HttpsServer& server, const QByteArray& path, const QByteArray& body,
        const QDateTime& lastModified)
    {
        if (path == "/patch.ini")
            server.answer(
                path, HttpAnswer::ok(body, { { "Last-Modified", httpDate(lastModified) } }));
        else
            server.serve(path, body, lastModified);
    }

    static void serveCached(
        HttpsServer& server, const QByteArray& path, const QByteArray& body,
        const QByteArray& cacheControl)
    {
        const HttpsServer::Handler whole = [body](const HttpRequest&) {
            return HttpAnswer::ok(body, dated());
        };
        const auto plain = path == "/patch.ini" ? whole : HttpsServer::servingFile(body, published);
        server.answer(path, [=](const HttpRequest& request) {
            const bool isNew = request.header("If-Modified-Since") == httpDate(oldDate);
            HttpHeaders headers = dated();
            headers.append({ "Cache-Control", cacheControl });
            return isNew ? HttpAnswer::ok(body, headers) : plain(request);
        });
    }

    static void addManifestRows()
    {
        add("everything right", {}, [](HttpsServer&) {});
        add("everything right to the depth", {}, [](HttpsServer&) {}, { "--deep", "--test" });
        add("no manifest", { "manifest-missing patch.ini" },
            with("/patch.ini", HttpAnswer::status(404)));
        add("no test manifest", { "manifest-missing patchTest.ini" },
            with("/patchTest.ini", HttpAnswer::status(404)), { "--test" });
        add("test manifest not asked for", {}, with("/patchTest.ini", HttpAnswer::status(404)));
        const auto next = [](HttpsServer& server) {
            server.answer(
                "/patch-next.ini", HttpAnswer::ok(manifest().replace("a b.mpq", "c.mpq"), dated()));
        };
        add("no next manifest", { "manifest-missing patch-next.ini" }, [](HttpsServer&) {},
            { "--next" });
        add("no file of the next manifest", { "file-missing patch-next.ini" }, next, { "--next" });
        add("next manifest not asked for", {}, next);
        add("a manifest that cannot be read",
            { "count-missing patch.ini", "manifest-malformed patch.ini" },
            with("/patch.ini", HttpAnswer::ok("nothing of that kind")));
        add("a manifest that is misread", { "name-missing patch.ini", "value-misread patch.ini" },
            [](HttpsServer& server) {
                server.answer(
                    "/patch.ini",
                    HttpAnswer::ok(manifest().replace("=a b.mpq", "=a,b.mpq"), dated()));
            });
        add("a web page for a manifest", { "error-page patch.ini" },
            with("/patch.ini", HttpAnswer::ok(webPage)));
    }

    static void addFileRows()
    {
        add("no launcher", { "launcher-file-missing Halden-Launcher.exe" },
            with(launcherPath, HttpAnswer::status(404)));
        add("no updater", { "launcher-file-missing Halden-Launcher-Updater.exe" },
            with(updaterPath, HttpAnswer::status(404)));
        add("words in the launcher's place", { "not-a-program Halden-Launcher.exe" },
            [](HttpsServer& server) {
                server.serve(launcherPath, "Service unavailable", published);
            });
        add("a launcher that is cut short", { "not-a-program Halden-Launcher.exe" },
            [](HttpsServer& server) {
                server.serve(launcherPath, program('l').first(100), published);
            });
        add("no text for the window", { "info-missing /alert" },
            with("/alert", HttpAnswer::status(404)));
        add("an empty text for the window", { "file-empty /alert" },
            with("/alert", HttpAnswer::ok("")));
        add("a text for the window that is kept by caches", { "cached-too-long /alert" },
            with("/alert", HttpAnswer::ok("x", { { "Cache-Control", "s-maxage=60" } })));
        add("no patch file", { "file-missing patch.ini" },
            with(patchPath, HttpAnswer::status(404)));
        add("no test patch file", { "file-missing patchTest.ini" },
            with(testPatchPath, HttpAnswer::status(404)), { "--test" });
        add("forbidden", { "file-unreachable patch.ini" },
            with(patchPath, HttpAnswer::status(403)));
        add("server error", { "file-unreachable patch.ini" },
            with(patchPath, HttpAnswer::status(503)));
        add("connection cut", { "file-unreachable patch.ini" },
            with(patchPath, HttpAnswer::announcing(9'000).send("some").reset()));
        add("cut short in the depth", { "file-unreachable patch.ini" },
            with(patchPath, HttpAnswer::announcing(9'000).send(patchBody).close()), { "--deep" });
        add("another content", { "hash-mismatch patch.ini" },
            with(patchPath, HttpAnswer::ok(QByteArray(5'000, 'q'))), { "--deep" });
        add("another content, not looked at", {},
            with(patchPath, HttpAnswer::ok(QByteArray(5'000, 'q'))));
        add("empty", { "file-empty patch.ini" }, with(patchPath, HttpAnswer::ok("")));
    }

    static void addAnswerRows()
    {
        add("a web page for a patch file", { "error-page patch.ini" },
            with(patchPath, HttpAnswer::ok(webPage)));
        add("200 for whatever is missing",
            { "missing-file-answered halden-probe-asks-for-what-is-not-there.exe",
              "missing-file-answered "
              "wow-client-patch/live/halden-probe-asks-for-what-is-not-there" },
            [](HttpsServer& server) {
                server.answerAnythingElse([](const HttpRequest&) { return HttpAnswer::ok("hm"); });
            });
        add("no length", { "length-missing patch.ini" },
            with(patchPath, HttpAnswer::chunked({ patchBody })));
        add("packed", { "content-encoded patch.ini" },
            with(patchPath, HttpAnswer::ok("\x1f\x8b", { { "Content-Encoding", "gzip" } })));
        add("named as not packed", {},
            with(patchPath, HttpAnswer::ok(patchBody, { { "Content-Encoding", "identity" } })));
        add("redirected to plain http", { "redirect-insecure patch.ini" },
            with(patchPath, HttpAnswer::redirect("http://download.tarnwick.example/x")));
        add("redirected to a file", { "redirect-insecure patch.ini" },
            with(patchPath, HttpAnswer::redirect("file:///etc/hosts")));
        add("manifest redirected to plain http", { "redirect-insecure patch.ini" },
            with("/patch.ini", HttpAnswer::redirect("http://download.tarnwick.example/x")));
        add("redirected on the server", {}, [](HttpsServer& server) {
            server.answer(patchPath, HttpAnswer::redirect("/elsewhere"));
            server.answer("/elsewhere", HttpAnswer::ok(patchBody));
        });
        add("redirected in a circle", { "file-unreachable patch.ini" },
            with(patchPath, HttpAnswer::redirect(patchPath)));
    }

    /// Whatever copy a launcher has, and however it came to it.
    static void addManifestDateRows()
    {
        const QString finding = "manifest-not-modified patch.ini";
        add("304 to every later date for the manifest", { finding },
            [](HttpsServer& server) { server.serve("/patch.ini", manifest(), published); });
        add("304 to dates ahead for the manifest", { finding },
            withoutCopiesOf([](const QDateTime& copy) {
                return copy > QDateTime::currentDateTimeUtc().addYears(1);
            }));
        // As a server answers that does not believe dates ahead.
        add("304 to dates of today for the manifest", { finding },
            withoutCopiesOf([](const QDateTime& copy) {
                return copy > published && copy <= QDateTime::currentDateTimeUtc();
            }));
        add("an error to a later date for the manifest", { "file-unreachable patch.ini" },
            with("/patch.ini", [](const HttpRequest& request) {
                return request.header("If-Modified-Since") == httpDate(oldDate)
                    ? HttpAnswer::ok(manifest(), dated())
                    : HttpAnswer::status(500);
            }));
        add("304 to the exact date for the manifest, which nobody's copy has", {},
            with("/patch.ini", exactDates(manifest())));
    }

    /// A server that answers 304 for the manifest to copies of such a date.
    static Spoil withoutCopiesOf(bool (*isRefused)(const QDateTime&))
    {
        return with("/patch.ini", [=](const HttpRequest& request) {
            return isRefused(fromHttpDate(request.header("If-Modified-Since")))
                ? HttpAnswer::notModified()
                : HttpAnswer::ok(manifest(), dated());
        });
    }

    static void addLauncherDateRows()
    {
        for (const QByteArray& path : { launcherPath, updaterPath }) {
            const QString name = path.mid(1);
            const QByteArray body = program('p');
            add(qPrintable("exact dates only for " + name),
                { "later-date-answered-in-full " + name }, with(path, exactDates(body)));
            add(qPrintable("dates ignored for " + name),
                { "exact-date-answered-in-full " + name, "later-date-answered-in-full " + name },
                with(path, HttpAnswer::ok(body, dated())));
            // As some servers do by themselves.
            add(qPrintable("dates ahead ignored for " + name),
                { "later-date-answered-in-full " + name },
                with(path, [body](const HttpRequest& request) {
                    const QDateTime copy = fromHttpDate(request.header("If-Modified-Since"));
                    return copy >= published && copy <= QDateTime::currentDateTimeUtc()
                        ? HttpAnswer::notModified()
                        : HttpAnswer::ok(body, dated());
                }));
        }
    }

    static void addDateRows()
    {
        addManifestDateRows();
        addLauncherDateRows();
        for (const QByteArray& path : { QByteArray("/patch.ini"), launcherPath, updaterPath }) {
            const QString name = path.mid(1);
            const QByteArray body = path == "/patch.ini" ? manifest() : program('p');
            const QDateTime ahead = QDateTime::currentDateTimeUtc().addDays(1);
            add(qPrintable("dated tomorrow: " + name), { "date-ahead " + name },
                [=](HttpsServer& server) { serveDated(server, path, body, ahead); });
            add(qPrintable("kept by caches: " + name), { "cached-too-long " + name },
                [=](HttpsServer& server) { serveCached(server, path, body, "max-age=600"); });
            add(qPrintable("asked for by caches: " + name), {}, [=](HttpsServer& server) {
                serveCached(server, path, body, "no-cache, max-age=600");
            });
            add(qPrintable("304 whatever the date for " + name),
                { "earlier-date-not-answered " + name }, with(path, HttpAnswer::notModified()));
        }
        add("304 for a patch file", { "patch-file-not-modified patch.ini" },
            [](HttpsServer& server) { server.serve(patchPath, patchBody, published); });
        add("304 for a patch file whatever the date",
            { "earlier-date-not-answered patch.ini", "patch-file-not-modified patch.ini" },
            with(patchPath, HttpAnswer::notModified()));
    }
};

HALDEN_TEST_MAIN(tst_Probe)
#include "tst_probe.moc"
