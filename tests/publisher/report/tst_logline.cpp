#include "publisher/report/asked.h"
#include "publisher/report/keyedhash.h"
#include "publisher/report/logline.h"
#include "publisher/report/logtime.h"
#include "publisher/report/shown.h"
#include "publisher/report/visitoraddress.h"
#include "tests/support/testmain.h"
#include "tests/support/timezone.h"

#include <QDateTime>

using namespace TestSupport;
using namespace Publisher;

Q_DECLARE_METATYPE(Publisher::LineFault)

namespace {

const QByteArray combined
    = R"(192.0.2.1 - - [20/Nov/2026:10:46:01 +0000] "GET /patch.ini HTTP/1.1" 200 1300 "-" "Tarnwick Launcher")";
const QByteArray caddy
    = R"({"level":"info","ts":1795171561.25,"logger":"http.log.access.log0","msg":"handled request",)"
      R"("request":{"remote_ip":"192.0.2.1","remote_port":"4","proto":"HTTP/1.1","method":"GET",)"
      R"("host":"download.tarnwick.example","uri":"/patch.ini","headers":{"User-Agent":["Tarnwick Launcher"],)"
      R"("Accept":["a","b"],"If-Modified-Since":["Thu, 19 Nov 2026 08:00:00 GMT"]},"tls":{"resumed":false,"v":771}},)"
      R"("user_id":"","duration":0.0125,"size":1300,"status":200,"resp_headers":{"Server":["Caddy"],)"
      R"("Last-Modified":["Fri, 20 Nov 2026 08:00:00 GMT"]}})";

std::int64_t seconds(const QDate& date, const QTime& time)
{
    return utc(date, time).toSecsSinceEpoch();
}

const std::int64_t asked = seconds({ 2026, 11, 20 }, { 10, 46, 1 });
const std::int64_t copyDate = seconds({ 2026, 11, 19 }, { 8, 0 });
const std::int64_t fileDate = seconds({ 2026, 11, 20 }, { 8, 0 });

/// With what the shipped configurations add.
QByteArray extended(const QByteArray& further)
{
    return combined + R"( "Thu, 19 Nov 2026 08:00:00 GMT" "Fri, 20 Nov 2026 08:00:00 GMT" )"
        + further;
}

QByteArray with(QByteArray line, const char* before, const char* after)
{
    if (!line.contains(before))
        qFatal("no \"%s\"", before);
    return line.replace(before, after);
}

} // namespace

/// Lines of access logs, one by one.
class tst_LogLine : public QObject {
    Q_OBJECT

private slots:
    void everyFormatTellsTheRequest_data()
    {
        QTest::addColumn<QByteArray>("line");
        QTest::addColumn<bool>("hasDates");
        QTest::addColumn<double>("duration");
        QTest::newRow("combined") << combined << false << -1.0;
        QTest::newRow("with a field behind") << combined + R"( "192.0.2.7")" << false << -1.0;
        QTest::newRow("in another time zone")
            << with(combined, "10:46:01 +0000", "16:16:01 +0530") << false << -1.0;
        QTest::newRow("with a user's name")
            << with(combined, " - - ", R"( - x [01/Jan/2020:00:00:00 +0000] \"GET )") << false
            << -1.0;
        QTest::newRow("nginx") << extended("seconds=0.0125 request=1") << true << 0.0125;
        QTest::newRow("Apache") << extended("microseconds=12500 earlier=0 sent=1500 connection=+")
                                << true << 0.0125;
        QTest::newRow("Caddy") << caddy << true << 0.0125;
        QTest::newRow("Caddy with escapes")
            << with(caddy, R"(uri":"/patch.ini)", R"(uri":"\u002fpatch.ini)") << true << 0.0125;
        QTest::newRow("Caddy behind a proxy") << with(
            caddy, R"("remote_ip":"192.0.2.1")",
            R"("remote_ip":"203.0.113.9","client_ip":"192.0.2.1")")
                                              << true << 0.0125;
        QTest::newRow("Caddy with blanks")
            << with(caddy, R"(,"size":)", R"( , "size" : )") << true << 0.0125;
    }

    void everyFormatTellsTheRequest()
    {
        QFETCH(QByteArray, line);
        QFETCH(bool, hasDates);
        QFETCH(double, duration);
        const std::string text = line.toStdString();
        LineParser parser;
        LogLine read;
        QCOMPARE(parser.parse(text, read), LineFault::None);
        QCOMPARE(read.address, std::string_view("192.0.2.1"));
        QCOMPARE(read.time, asked);
        QCOMPARE(read.method, std::string_view("GET"));
        QCOMPARE(read.target, std::string_view("/patch.ini"));
        QCOMPARE(read.status, 200);
        QCOMPARE(read.bytes, 1300);
        QVERIFY(read.userAgent && isLauncher(*read.userAgent));
        QCOMPARE(read.ifModifiedSince, hasDates ? std::optional(copyDate) : std::nullopt);
        QCOMPARE(read.lastModified, hasDates ? std::optional(fileDate) : std::nullopt);
        QCOMPARE(read.seconds.value_or(-1), duration);
    }

    /// Apache has no number for none.
    void noBytes()
    {
        const std::string line = with(combined, "200 1300", "304 -").toStdString();
        LogLine read;
        QCOMPARE(LineParser().parse(line, read), LineFault::None);
        QCOMPARE(read.status, 304);
        QCOMPARE(read.bytes, 0);
    }

    void lettersOfJson()
    {
        const std::string line
            = with(caddy, R"("/patch.ini")", "\"/\\u0047r\\u00f6\\u00dfe\\u20ac\\\"\\n\"")
                  .toStdString();
        LineParser parser;
        LogLine read;
        QCOMPARE(parser.parse(line, read), LineFault::None);
        QCOMPARE(QString::fromUtf8(read.target), QString::fromUtf8("/Größe€\"\n"));
    }

    void durationsThatAreNone()
    {
        for (const QByteArray& text :
             { with(caddy, R"("duration":0.0125)", R"("duration":-1)"), extended("seconds=-1"),
               extended("seconds=x"), extended("microseconds=-1") }) {
            const std::string line = text.toStdString();
            LogLine read;
            QCOMPARE(LineParser().parse(line, read), LineFault::None);
            QVERIFY(!read.seconds);
        }
    }

    void connectionsAreTold_data()
    {
        QTest::addColumn<QByteArray>("further");
        QTest::addColumn<bool>("isNew");
        QTest::newRow("nginx, first") << QByteArray("seconds=0.1 request=1") << true;
        QTest::newRow("nginx, second") << QByteArray("seconds=0.1 request=2") << false;
        QTest::newRow("Apache, first") << QByteArray("microseconds=1 earlier=0") << true;
        QTest::newRow("Apache, second") << QByteArray("microseconds=1 earlier=1") << false;
    }

    void connectionsAreTold()
    {
        QFETCH(QByteArray, further);
        const std::string line = extended(further).toStdString();
        LogLine read;
        QCOMPARE(LineParser().parse(line, read), LineFault::None);
        QVERIFY(read.isNewConnection.has_value());
        QTEST(*read.isNewConnection, "isNew");
    }

    /// Apache has handed all of it on when the player goes.
    void apachesBrokenDownloadsAreAsLongAsWhatWentOut()
    {
        const std::string line
            = extended("microseconds=1 earlier=0 sent=700 connection=X").toStdString();
        LogLine read;
        QCOMPARE(LineParser().parse(line, read), LineFault::None);
        QCOMPARE(read.bytes, 700);
    }

    void wrongLines_data()
    {
        QTest::addColumn<QByteArray>("line");
        QTest::addColumn<LineFault>("fault");
        const auto row = [](const char* name, const QByteArray& line, LineFault fault) {
            QTest::newRow(name) << line << fault;
        };
        row("empty", "", LineFault::NoFormat);
        row("text", "something else altogether", LineFault::NoFormat);
        row("a quote alone", "\"", LineFault::NoFormat);
        row("no address", combined.mid(combined.indexOf(' ')), LineFault::NoFormat);
        row("zeros", QByteArray(100, '\0'), LineFault::NoFormat);
        row("an impossible day", with(combined, "20/Nov", "31/Nov"), LineFault::NoTime);
        row("an impossible month", with(combined, "20/Nov", "20/nov"), LineFault::NoTime);
        row("an impossible hour", with(combined, "10:46", "24:46"), LineFault::NoTime);
        row("an impossible second", with(combined, "10:46:01", "10:46:61"), LineFault::NoTime);
        row("letters between two months", with(combined, "20/Nov", "20/vDe"), LineFault::NoTime);
        row("before launchers", with(combined, "2026", "1970"), LineFault::NoTime);
        row("a sign in the day", with(combined, "[20/", "[-2/"), LineFault::NoTime);
        row("cut in the request", combined.left(60), LineFault::NoRequest);
        row("no status", with(combined, "200 1300", "abc 1300"), LineFault::NoStatus);
        row("a status too large", with(combined, "200 1300", "2000 1300"), LineFault::NoStatus);
        row("no length", with(combined, "200 1300", "200 13x"), LineFault::NoBytes);
        row("a negative length", with(combined, "200 1300", "200 -13"), LineFault::NoBytes);
        row("a length too large", with(combined, "200 1300", "200 99999999999999999999"),
            LineFault::NoBytes);
        row("cut in the agent", combined.chopped(4), LineFault::Cut);
        row("cut JSON", caddy.chopped(1), LineFault::Cut);
        row("JSON with more behind", caddy + "x", LineFault::Cut);
        row("brackets without end", "{\"a\":" + QByteArray(50'000, '['), LineFault::Cut);
        row("JSON with a negative size", with(caddy, "\"size\":1300", "\"size\":-1"),
            LineFault::NoBytes);
        row("JSON with a status too large", with(caddy, "\"status\":200", "\"status\":2000"),
            LineFault::NoStatus);
        row("JSON with a negative status", with(caddy, "\"status\":200", "\"status\":-200"),
            LineFault::NoStatus);
        row("JSON without an address", with(caddy, R"("remote_ip":"192.0.2.1",)", ""),
            LineFault::NoRequest);
        row("a bracket that closes nothing", R"({"a":]})", LineFault::Cut);
        row("JSON with a huge time", with(caddy, "1795171561.25", "1e300"), LineFault::NoTime);
        row("JSON without a time", with(caddy, "\"ts\"", "\"st\""), LineFault::NoTime);
        row("JSON of a start", R"({"level":"info","ts":1795171561.25,"msg":"serving"})",
            LineFault::OtherMessage);
        row("JSON of an error", with(caddy, "\"size\":1300,", ""), LineFault::OtherMessage);
    }

    void wrongLines()
    {
        QFETCH(QByteArray, line);
        const std::string text = line.toStdString();
        LogLine read;
        QTEST(LineParser().parse(text, read), "fault");
    }

    /// As servers note what is no HTTP.
    void requestsThatAreNone_data()
    {
        QTest::addColumn<QByteArray>("request");
        QTest::newRow("bytes of TLS") << QByteArray(R"(\x16\x03\x01)");
        QTest::newRow("nothing") << QByteArray();
        QTest::newRow("an escaped quote") << QByteArray(R"(\")");
        QTest::newRow("one word") << QByteArray("GET");
    }

    void requestsThatAreNone()
    {
        QFETCH(QByteArray, request);
        const std::string line
            = with(combined, "GET /patch.ini HTTP/1.1", request.constData()).toStdString();
        LogLine read;
        QCOMPARE(LineParser().parse(line, read), LineFault::None);
        QVERIFY(read.method.empty());
        QVERIFY(read.target.empty());
        QCOMPARE(read.status, 200);
    }

    void pathsAreShownSafely_data()
    {
        QTest::addColumn<QByteArray>("path");
        QTest::addColumn<QString>("shown");
        QTest::newRow("plain") << QByteArray("/patch.ini") << "/patch.ini";
        QTest::newRow("letters") << QByteArray("/Größe") << QString::fromUtf8("/Größe");
        QTest::newRow("terminal") << QByteArray("/\x1b[31m") << "/\\x1b[31m";
        QTest::newRow("eight-bit control") << QByteArray("/\xc2\x9b") << "/\\xc2\\x9b";
        QTest::newRow("no UTF-8") << QByteArray("/\xff\xc3") << "/\\xff\\xc3";
        QTest::newRow("backwards") << "/" + QByteArray::fromHex("e280ae") << "/\\xe2\\x80\\xae";
        QTest::newRow("an address") << QByteArray("/?a=192.0.2.1&b") << "/?a=[address]&b";
        QTest::newRow("a long address") << QByteArray("/2001:db8::1/x") << "/[address]/x";
    }

    void pathsAreShownSafely()
    {
        QFETCH(QByteArray, path);
        QTEST(Shown::path(path.toStdString()), "shown");
    }

    void longPathsAreCut()
    {
        QVERIFY(Shown::path(std::string(100'000, 'a')).size() < 200);
    }

    void households_data()
    {
        QTest::addColumn<QString>("one");
        QTest::addColumn<QString>("other");
        QTest::addColumn<bool>("isSame");
        QTest::newRow("IPv4") << "192.0.2.1"
                              << "192.0.2.2" << false;
        QTest::newRow("IPv4 in IPv6") << "192.0.2.1"
                                      << "::ffff:192.0.2.1" << true;
        QTest::newRow("two machines") << "2001:db8:0:1::1"
                                      << "2001:db8:0:1:a:b:c:d" << true;
        QTest::newRow("two households") << "2001:db8:0:1::1"
                                        << "2001:db8:0:2::1" << false;
        QTest::newRow("short and long") << "2001:db8::1:0:0:0:1"
                                        << "2001:0db8:0:1::1" << true;
        QTest::newRow("a gap in the first half") << "2001::1:0:0:0:0:1"
                                                 << "2001:0:0:1::" << false;
        QTest::newRow("too many groups") << "1:2:3:4:5:6:7::8:9"
                                         << "1:2:3:4:5:6:7::8:8" << false;
        QTest::newRow("names") << "a.example"
                               << "b.example" << false;
        QTest::newRow("no address") << "::::"
                                    << ":::" << false;
    }

    void households()
    {
        QFETCH(QString, one);
        QFETCH(QString, other);
        const std::string first = one.toStdString();
        const std::string second = other.toStdString();
        const VisitorAddress a(first);
        const VisitorAddress b(second);
        QTEST(a.household() == b.household(), "isSame");
    }

    /// Of its authors' paper, and of all lengths.
    void keyedHash()
    {
        const KeyedHash hash({ 0x0706050403020100U, 0x0f0e0d0c0b0a0908U });
        std::string text;
        for (char byte = 0; byte < 15; ++byte)
            text += byte;
        QCOMPARE(hash.of(text), 0xa129ca6149be45e5U);
        QCOMPARE(hash.of({}), 0x726fdb47dd0e0e31U);
        QCOMPARE(hash.of(text.substr(0, 8)), 0x93f5f5799a932462U);
        QVERIFY(KeyedHash::ofOneRun().of(text) != KeyedHash::ofOneRun().of(text));
    }

    void whatLaunchersAskFor_data()
    {
        QTest::addColumn<QString>("target");
        QTest::addColumn<int>("asked");
        const auto row = [](const char* target, Asked what) {
            QTest::newRow(target) << target << static_cast<int>(what);
        };
        row("/alert", Asked::Info);
        row("/Halden-Launcher-Updater.exe", Asked::Updater);
        row("/Halden-Launcher.exe", Asked::Launcher);
        row("/patch.ini", Asked::LiveManifest);
        row("/patchTest.ini", Asked::TestManifest);
        row("/wow-client-patch/live/Data/0/a.mpq", Asked::PatchFile);
        row("/wow-client-patch", Asked::Other);
        row("/patch.ini?x", Asked::Other);
        row("/", Asked::Other);
        row("https://download.tarnwick.example/patch.ini", Asked::Other);
    }

    void whatLaunchersAskFor()
    {
        QFETCH(QString, target);
        QTEST(static_cast<int>(askedBy(target.toStdString())), "asked");
    }
};

HALDEN_TEST_MAIN(tst_LogLine)
#include "tst_logline.moc"
