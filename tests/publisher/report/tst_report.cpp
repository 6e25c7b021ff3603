#include "publisher/report/pairtally.h"
#include "publisher/report/reporttext.h"
#include "publisher/report/toptally.h"
#include "tests/publisher/accesslog.h"
#include "tests/publisher/buildfixture.h"
#include "tests/publisher/commandrun.h"
#include "tests/support/applicationfolder.h"
#include "tests/support/testmain.h"

#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>
#include <QProcess>
#include <QRegularExpression>

#include <algorithm>

using namespace TestSupport;
using namespace BuildFixture;
using namespace Publisher;

namespace {

constexpr qint64 hour = 3600;
constexpr qint64 day = 24 * hour;
const QString launcher = "/Halden-Launcher.exe";
const QString patchFile = "/wow-client-patch/live/Data/0123456789abcdef0123456789abcdef/a.mpq";

QJsonObject reported(const QStringList& arguments)
{
    const CommandRun run(QStringList{ "report", "--json" } + arguments);
    if (run.code != ExitCode::Fine)
        qFatal("%s", qPrintable(run.messages));
    return run.json;
}

QJsonObject reported(const AccessLog& log, const QStringList& options = {})
{
    return reported(QStringList{ log.write() } + options);
}

/// The element of a list that has this value there; an empty one where none has.
QJsonObject elementOf(const QJsonValue& list, const QString& key, const QJsonValue& value)
{
    const QJsonArray array = list.toArray();
    for (const QJsonValue element : array) {
        if (element[key] == value)
            return element.toObject();
    }
    return {};
}

QJsonObject adoptionOf(const QJsonObject& report, const QString& track)
{
    return elementOf(report["adoption"], "track", track);
}

QJsonObject troubleOf(const QJsonObject& report, const QString& id)
{
    return elementOf(report["troubles"], "id", id);
}

/// How many players have each publication, the oldest first.
QList<int> holdersOf(const QJsonObject& report, const QString& track)
{
    QList<int> holders;
    const QJsonArray publications = adoptionOf(report, track)["publications"].toArray();
    for (const QJsonValue publication : publications)
        holders.append(publication["players"].toInt());
    return holders;
}

/// Marks of players change with every run.
QJsonValue withoutMarks(const QJsonValue& value)
{
    if (value.isArray()) {
        QJsonArray array;
        const QJsonArray elements = value.toArray();
        for (const QJsonValue element : elements)
            array.append(withoutMarks(element));
        return array;
    }
    if (!value.isObject())
        return value;
    QJsonObject object = value.toObject();
    if (object["player"].isString())
        object["player"] = "mark";
    for (auto member = object.begin(); member != object.end(); ++member)
        member.value() = withoutMarks(member.value());
    return object;
}

QByteArray comparable(const QJsonObject& report)
{
    return QJsonDocument(withoutMarks(report).toObject()).toJson();
}

/// Two publications and a release, ten players of whom three miss the second one.
AccessLog someDays()
{
    AccessLog log;
    for (int player = 1; player <= 10; ++player) {
        log.add({ .player = player, .second = qint64(player) * 60, .copy = -day, .file = 0 });
        log.add({ .player = player,
                  .second = player * 60 + 1,
                  .target = launcher,
                  .bytes = 500'000,
                  .copy = -day,
                  .file = -hour });
        if (player <= 7)
            log.add({ .player = player,
                      .second = day + player * hour,
                      .bytes = 10'200,
                      .copy = player * 60,
                      .file = day });
    }
    return log;
}

/// The launcher again and again, by one player.
AccessLog loopOf(const QList<qint64>& copies, qint64 begin, qint64 file)
{
    AccessLog log;
    for (qsizetype i = 0; i < copies.size(); ++i)
        log.add({ .second = 100 * i + begin,
                  .target = launcher,
                  .bytes = 500'000,
                  .copy = copies.at(i),
                  .file = file });
    return log;
}

constexpr const char* wholeReport
    = R"(From 2026-11-02 10:00 UTC to 2026-11-05 12:00 UTC: 29 players, 0 other addresses

Live manifest: 9 players, 3 of them without the latest
    dated 2026-11-02 12:00 UTC: 3 players
        it or a later one: 50 % after 6 minutes, 90 % after 10 minutes, 99 % after 10 minutes
    dated 2026-11-03 12:00 UTC: 6 players
        it or a later one: 50 % after 6.0 hours, 90 % not yet, 99 % not yet

Launcher: 11 players, 0 of them without the latest
    dated 2026-11-02 11:00 UTC: 10 players
        it or a later one: 50 % after 67 minutes, 90 % after 3.0 days, 99 % not yet
    unknown: 1 players

Load: 47 requests, 23.5 MiB, 47 connections
    most requests in a minute: 22, 2026-11-05 12:00 UTC
    most bytes in a minute: 19.1 MiB, 2026-11-05 12:00 UTC
    most connections in a minute: 22, 2026-11-05 12:00 UTC
    of 29 downloads the slowest tenth had 8.3 Mbit/s at most, the slower half 8.3 Mbit/s
    In the 24 hours after the latest publication 6 players got it: 6 connections, 59.8 KiB.

1: answers that there is no such thing (addresses: 1) [client-error]
        1  MARK
        1  404 /patch.ini
    A patch file among them: publish again with `halden-publish build`. All else is strangers who try doors.

Of the requests 94 % tell the date of the player's copy, 94 % how long they took, 94 % whether they opened a connection.
Players are addresses here: several behind one count once, and one who changes his address counts again.
Wrong lines: 1 of 52; the first ones:
    FOLDER/access.log, line 51: of no known format
Logs whose last line has no end, which is left out: 1.
Lines that tell of no request: 1.
Requests of your own, left out: 3.
)";

/// The second at which a file of the tree was dated, in the log's time.
qint64 secondOf(const QString& path)
{
    return AccessLog::at(0).secsTo(QFileInfo(path).lastModified());
}

void pack(const QString& program, const QStringList& options, const QString& log)
{
    QProcess process;
    process.start(program, options + QStringList{ log });
    QVERIFY2(process.waitForFinished() && process.exitCode() == 0, qPrintable(program));
}

/// As a pipe brings it.
QJsonObject reportedFromPipe(const QString& log)
{
    QProcess process;
    process.setStandardInputFile(log);
    process.start(HALDEN_PUBLISH, { "report", "--json", "-" });
    process.waitForFinished();
    return QJsonDocument::fromJson(process.readAllStandardOutput()).object();
}

} // namespace

/// What access logs tell of players.
class tst_Report : public QObject {
    Q_OBJECT

private slots:
    void init()
    {
        ApplicationFolder::clear();
    }

    void adoptionIsTold()
    {
        const QJsonObject report = reported(someDays());
        QCOMPARE(report["players"].toInt(), 10);
        const QJsonObject live = adoptionOf(report, "live");
        QCOMPARE(live["players"].toInt(), 10);
        QCOMPARE(live["behind"].toInt(), 3);
        QCOMPARE(holdersOf(report, "live"), (QList<int>{ 3, 7 }));
        const QJsonValue second = live["publications"][1];
        QCOMPARE(second["time"].toString(), AccessLog::at(day).toString(Qt::ISODate));
        QCOMPARE(second["seconds50"].toInt(), 5 * hour);
        QVERIFY(second["seconds90"].isNull());
        QCOMPARE(
            live["publications"][0]["lastOnline"].toString(),
            AccessLog::at(600).toString(Qt::ISODate));
        QCOMPARE(holdersOf(report, "launcher"), (QList<int>{ 10 }));
        QVERIFY(adoptionOf(report, "test").isEmpty());
    }

    void daysOfPlayers()
    {
        AccessLog log = someDays();
        log.add({ .player = 1, .second = 5, .copy = -day, .file = 0 });
        const QJsonArray days = reported(log).value("playersByDay").toArray();
        QCOMPARE(days.size(), 2);
        QCOMPARE(days[0]["time"].toString(), QString("2026-11-02T00:00:00Z"));
        QCOMPARE(days[0]["players"].toInt(), 10);
        QCOMPARE(days[1]["players"].toInt(), 7);
    }

    void lastOfThemOnline()
    {
        AccessLog log;
        for (const qint64 second : { 300, 700, 100 })
            log.add({ .player = static_cast<int>(second / 100), .second = second, .file = -day });
        const QJsonValue live = adoptionOf(reported(log), "live");
        QCOMPARE(
            live["publications"][0]["lastOnline"].toString(),
            AccessLog::at(700).toString(Qt::ISODate));
    }

    /// The later one counts of two that a player got in one second.
    void publicationsOfOneMoment()
    {
        AccessLog log;
        for (const qint64 file : { -day, qint64(-1) })
            log.add({ .second = 0, .file = file });
        QCOMPARE(holdersOf(reported(log), "live"), (QList<int>{ 0, 1 }));
    }

    void durations_data()
    {
        QTest::addColumn<qint64>("seconds");
        QTest::addColumn<QString>("words");
        QTest::newRow("seconds") << qint64(119) << "119 seconds";
        QTest::newRow("two minutes") << qint64(120) << "2 minutes";
        QTest::newRow("minutes") << 2 * hour - 1 << "119 minutes";
        QTest::newRow("two hours") << 2 * hour << "2.0 hours";
        QTest::newRow("hours") << 2 * day - hour << "47.0 hours";
        QTest::newRow("two days") << 2 * day << "2.0 days";
    }

    void durations()
    {
        QFETCH(qint64, seconds);
        QTEST(ReportText::duration(seconds), "words");
    }

    void curveEndsWithTheLast()
    {
        AccessLog log;
        for (int player = 0; player <= 120; ++player)
            log.add({ .player = player, .second = player, .file = 0 });
        const QJsonArray curve
            = adoptionOf(reported(log), "live")["publications"][0]["curve"].toArray();
        QCOMPARE(curve.size(), 61);
        QCOMPARE(curve.first()["seconds"].toInt(), 1);
        QCOMPARE(curve.first()["players"].toInt(), 2);
        QCOMPARE(curve.last()["seconds"].toInt(), 120);
        QCOMPARE(curve.last()["players"].toInt(), 121);
    }

    /// The first publication was dated before the logs begin, so nothing is said about
    /// its pace.
    void whatIsOlderThanTheLogsHasNoPace()
    {
        AccessLog log;
        log.add({ .copy = -day, .file = -hour });
        const QJsonValue first = adoptionOf(reported(log), "live")["publications"][0];
        QVERIFY(first["seconds50"].isNull());
        QVERIFY(first["curve"].toArray().isEmpty());
    }

    void sizesTellWhereDatesAreMissing()
    {
        AccessLog log;
        for (int player = 1; player <= 4; ++player)
            log.add({ .player = player, .second = player, .bytes = 10'000 });
        for (int player = 1; player <= 3; ++player)
            log.add({ .player = player, .second = day + player, .bytes = 10'200 });
        // Broken off.
        log.add({ .player = 4, .second = 2 * day, .bytes = 4'000 });
        const QJsonObject report = reported(log);
        QCOMPARE(holdersOf(report, "live"), (QList<int>{ 1, 3 }));
        QCOMPARE(adoptionOf(report, "live")["behind"].toInt(), 1);
    }

    /// As servers note them that count what goes over the line.
    void lengthsThatVaryALittleAreOne()
    {
        AccessLog log;
        for (int i = 0; i < 6; ++i)
            log.add({ .second = i * hour, .target = launcher, .bytes = 500'000 + i % 3 });
        const QJsonObject report = reported(log);
        QCOMPARE(holdersOf(report, "launcher"), (QList<int>{ 1 }));
        QCOMPARE(troubleOf(report, "launcher-loop")["count"].toInt(), 6);
    }

    /// Of a start's two runs the one that has it breaks the other's off, and many of them
    /// at the same byte.
    void brokenLaunchersAreNoVersion()
    {
        AccessLog log;
        for (int player = 1; player <= 3; ++player) {
            for (const qint64 release : { qint64(0), day }) {
                const qint64 second = release + player * hour;
                const qint64 whole = release == 0 ? 500'000 : 510'000;
                log.add({ .player = player, .second = second, .target = launcher, .bytes = whole });
                log.add({ .player = player,
                          .second = second + 100,
                          .target = launcher,
                          .bytes = 300'000 });
            }
        }
        const QJsonObject report = reported(log);
        QCOMPARE(holdersOf(report, "launcher"), (QList<int>{ 0, 3 }));
        QCOMPARE(adoptionOf(report, "launcher")["behind"].toInt(), 0);
    }

    /// "304" tells that there is nothing newer.
    void launcherThatIsConfirmedIsHad()
    {
        AccessLog log;
        log.add({ .player = 1, .target = launcher, .bytes = 500'000, .copy = -day, .file = -hour });
        log.add({ .player = 1,
                  .second = day + 1,
                  .target = launcher,
                  .bytes = 500'000,
                  .copy = 0,
                  .file = day });
        log.add({ .player = 2,
                  .second = 2 * day,
                  .target = launcher,
                  .status = 304,
                  .bytes = 0,
                  .copy = day + 5 });
        QCOMPARE(holdersOf(reported(log), "launcher"), (QList<int>{ 0, 2 }));
    }

    /// Nobody has fetched it while the logs were written.
    void launcherThatIsOnlyConfirmedIsHad()
    {
        AccessLog log;
        log.add({ .target = launcher, .status = 304, .bytes = 0, .copy = 0, .file = -day });
        QCOMPARE(holdersOf(reported(log), "launcher"), (QList<int>{ 1 }));
    }

    void treeNumbersPublications()
    {
        put("Data/a.mpq", "a");
        published();
        put("Data/a.mpq", "b");
        BuildRequest second = request();
        second.message = "spring";
        published(second);
        const qint64 date = QFileInfo(server("patch.ini")).lastModified().toSecsSinceEpoch();
        const qint64 begin = date - AccessLog::at(0).toSecsSinceEpoch();
        AccessLog log;
        log.add({ .player = 1, .second = begin + hour, .copy = 0, .file = begin });
        // A log that tells no dates.
        log.add({ .player = 2, .second = begin + hour });
        const QJsonObject report = reported(log, { "--tree", server() });
        QCOMPARE(holdersOf(report, "live"), (QList<int>{ 2 }));
        const QJsonValue live = adoptionOf(report, "live")["publications"][0];
        QCOMPARE(live["number"].toInt(), 2);
        QCOMPARE(live["message"].toString(), "spring");
    }

    /// What some get before all others leaves nobody behind.
    void theNextOne()
    {
        put("Data/a.mpq", "a");
        published();
        put("Data/a.mpq", "b");
        BuildRequest next = request();
        next.next = true;
        published(next);
        const qint64 live = secondOf(server("patch.ini"));
        const qint64 early = secondOf(server("patch-next.ini"));
        AccessLog log;
        log.add({ .player = 1, .second = early + 2 * hour, .file = live });
        log.add({ .player = 2, .second = early + 2 * hour, .file = early });
        log.add({ .player = 3, .second = early + 2 * hour, .file = live });
        const QJsonObject report = reported(log, { "--tree", server() });
        const QJsonObject told = adoptionOf(report, "live");
        QCOMPARE(holdersOf(report, "live"), (QList<int>{ 2, 1 }));
        QVERIFY(!told["publications"][0]["isNext"].toBool());
        QVERIFY(told["publications"][1]["isNext"].toBool());
        QCOMPARE(told["behind"].toInt(), 0);
        QVERIFY(troubleOf(report, "online-and-behind").isEmpty());
    }

    void filesThatNoManifestNames()
    {
        put("Data/a.mpq", "a");
        published();
        const QString named = '/' + placeOf("Data/a.mpq");
        AccessLog log;
        for (const QString& target : { named, patchFile })
            log.add({ .target = target, .bytes = 1 });
        log.add({ .target = patchFile + ".old", .status = 404, .bytes = 100 });
        const QJsonObject trouble
            = troubleOf(reported(log, { "--tree", server() }), "file-unnamed");
        QCOMPARE(trouble["count"].toInt(), 2);
        QCOMPARE(trouble["cases"][0]["path"].toString(), patchFile);
        QVERIFY(troubleOf(reported(log), "file-unnamed").isEmpty());
    }

    /// The tree knows sizes, so that even who is alone with a broken download shows.
    void treeTellsWhatIsBroken()
    {
        put("Data/a.mpq", QByteArray(100'000, 'a'));
        published();
        AccessLog log;
        log.add({ .target = '/' + placeOf("Data/a.mpq"), .bytes = 50'000 });
        QVERIFY(troubleOf(reported(log), "download-broken").isEmpty());
        const QJsonObject trouble
            = troubleOf(reported(log, { "--tree", server() }), "download-broken");
        QCOMPARE(trouble["count"].toInt(), 1);
        QCOMPARE(trouble["players"].toInt(), 1);
    }

    void loops_data()
    {
        QTest::addColumn<QList<qint64>>("copies");
        QTest::addColumn<bool>("isLoop");
        QTest::newRow("each copy newer than the file")
            << QList<qint64>{ 10, 110, 210, 310, 410, 510 } << true;
        QTest::newRow("always the same copy") << QList<qint64>(6, -day) << true;
        QTest::newRow("several players, old copies")
            << QList<qint64>{ -6 * day, -5 * day, -4 * day, -3 * day, -2 * day, -1 * day } << false;
        QTest::newRow("both runs of two starts") << QList<qint64>(4, -day) << false;
        QTest::newRow("no dates") << QList<qint64>(6, qint64(-1)) << true;
    }

    void loops()
    {
        QFETCH(QList<qint64>, copies);
        AccessLog log;
        for (qsizetype i = 0; i < copies.size(); ++i) {
            AccessLog::Request request{ .second = 100 * i + 50,
                                        .target = launcher,
                                        .bytes = 500'000 };
            if (copies.at(i) != -1) {
                request.copy = copies.at(i);
                request.file = 0;
            }
            log.add(request);
        }
        QTEST(!troubleOf(reported(log), "launcher-loop").isEmpty(), "isLoop");
    }

    void loopsByDates_data()
    {
        QTest::addColumn<QList<qint64>>("copies");
        QTest::addColumn<qint64>("begin");
        QTest::addColumn<qint64>("file");
        QTest::newRow("copies newer than the file")
            << QList<qint64>{ 1, 2, 3, 4, 5 } << hour << qint64(0);
        QTest::newRow("a file dated ahead")
            << QList<qint64>{ 10, 110, 210, 310, 410 } << qint64(50) << day;
    }

    void loopsByDates()
    {
        QFETCH(QList<qint64>, copies);
        QFETCH(qint64, begin);
        QFETCH(qint64, file);
        const QJsonObject trouble
            = troubleOf(reported(loopOf(copies, begin, file)), "launcher-loop");
        QCOMPARE(trouble["count"].toInt(), 5);
    }

    void brokenLaunchersAreNoLoop()
    {
        AccessLog log;
        for (int i = 0; i < 8; ++i)
            log.add({ .second = i * hour,
                      .target = launcher,
                      .bytes = i < 4 ? 500'000 : 100'000,
                      .copy = -day,
                      .file = 0 });
        QVERIFY(troubleOf(reported(log), "launcher-loop").isEmpty());
    }

    void fetchedAgain_data()
    {
        QTest::addColumn<int>("times");
        QTest::addColumn<bool>("isTrouble");
        QTest::newRow("three starts") << 6 << false;
        QTest::newRow("four starts") << 8 << true;
    }

    void fetchedAgain()
    {
        QFETCH(int, times);
        AccessLog log;
        for (int i = 0; i < times; ++i)
            log.add({ .second = i * hour, .target = patchFile, .bytes = 100'000 });
        const QJsonObject trouble = troubleOf(reported(log), "file-again");
        QTEST(!trouble.isEmpty(), "isTrouble");
        if (!trouble.isEmpty())
            QCOMPARE(trouble["cases"][0]["path"].toString(), patchFile);
    }

    void theWorstCasesComeFirst()
    {
        AccessLog log;
        for (int player = 1; player <= 12; ++player) {
            for (int i = 0; i < 6 + player; ++i)
                log.add({ .player = player, .second = i, .target = patchFile, .bytes = 10 });
        }
        const QJsonObject trouble = troubleOf(reported(log), "file-again");
        QCOMPARE(trouble["players"].toInt(), 12);
        const QJsonArray cases = trouble["cases"].toArray();
        QCOMPARE(cases.size(), 10);
        QCOMPARE(cases.first()["count"].toInt(), 18);
        QCOMPARE(cases.last()["count"].toInt(), 9);
    }

    /// Whose they were is known of the first eight.
    void brokenBeforeTheFirstWholeOne()
    {
        AccessLog log;
        for (int player = 1; player <= 10; ++player)
            log.add({ .player = player, .target = patchFile, .bytes = 30'000 });
        log.add({ .player = 11, .target = patchFile, .bytes = 100'000 });
        const QJsonObject trouble = troubleOf(reported(log), "download-broken");
        QCOMPARE(trouble["count"].toInt(), 10);
        QCOMPARE(trouble["players"].toInt(), 8);
    }

    void brokenDownloads_data()
    {
        QTest::addColumn<QList<qint64>>("sizes");
        QTest::newRow("first") << QList<qint64>{ 30'000, 100'000, 100'000 };
        QTest::newRow("in between") << QList<qint64>{ 100'000, 30'000, 100'000 };
        QTest::newRow("last") << QList<qint64>{ 100'000, 100'000, 30'000 };
    }

    void brokenDownloads()
    {
        QFETCH(QList<qint64>, sizes);
        AccessLog log;
        for (qsizetype i = 0; i < sizes.size(); ++i)
            log.add({ .player = static_cast<int>(i), .target = patchFile, .bytes = sizes.at(i) });
        const QJsonObject trouble = troubleOf(reported(log), "download-broken");
        QCOMPARE(trouble["count"].toInt(), 1);
        QCOMPARE(trouble["players"].toInt(), 1);
    }

    /// Who has the launcher first quits, and breaks the other run's off.
    void brokenLaunchersAreNoTrouble()
    {
        AccessLog log;
        for (const qint64 bytes : { 500'000, 200'000 })
            log.add({ .target = launcher, .bytes = bytes, .copy = -day, .file = 0 });
        QVERIFY(troubleOf(reported(log), "download-broken").isEmpty());
    }

    void clocksAndDatesAhead()
    {
        AccessLog log;
        log.add({ .player = 1, .second = 0, .copy = hour, .file = -day });
        log.add({ .player = 2, .second = 0, .copy = -1, .file = -day });
        log.add({ .player = 3, .second = 0, .target = launcher, .copy = -day, .file = day });
        // No clocks are that exact.
        log.add({ .player = 4, .second = 0, .copy = 100, .file = 100 });
        const QJsonObject report = reported(log);
        QCOMPARE(troubleOf(report, "clock-ahead")["players"].toInt(), 1);
        const QJsonObject dated = troubleOf(report, "dated-ahead");
        QCOMPARE(dated["count"].toInt(), 1);
        QCOMPARE(dated["cases"][0]["path"].toString(), launcher);
    }

    void errorsAndStrangers()
    {
        AccessLog log;
        log.add({ .player = 1, .target = "/.env?key=1", .status = 404, .agent = "scanner" });
        log.add({ .player = 1, .target = "/.env", .status = 404, .agent = "scanner" });
        log.add({ .player = 2, .status = 503 });
        log.add({ .player = 3, .agent = "browser" });
        log.add({ .player = 4, .target = "/.env", .status = 404, .agent = "scanner" });
        // Who has gone before the answer is no trouble of his or ours.
        log.add({ .player = 2, .status = 499, .bytes = 0 });
        const QJsonObject report = reported(log);
        QCOMPARE(report["players"].toInt(), 1);
        QCOMPARE(report["strangers"].toInt(), 3);
        const QJsonObject client = troubleOf(report, "client-error");
        QCOMPARE(client["count"].toInt(), 3);
        QCOMPARE(client["players"].toInt(), 2);
        QCOMPARE(client["cases"][2]["path"].toString(), "404 /.env");
        const QJsonObject ofServer = troubleOf(report, "server-error");
        QCOMPARE(ofServer["count"].toInt(), 1);
        QCOMPARE(ofServer["players"].toInt(), 1);
        QCOMPARE(troubleOf(report, "no-launcher")["count"].toInt(), 4);
    }

    void launchersOnlyGet()
    {
        const QByteArray line = AccessLog().add({}).text();
        AccessLog log;
        log.addText(QByteArray(line).replace("GET", "HEAD"));
        const QJsonObject report = reported(log);
        QCOMPARE(report["players"].toInt(), 0);
        QCOMPARE(troubleOf(report, "no-launcher")["count"].toInt(), 1);
    }

    void onlineAndBehind_data()
    {
        QTest::addColumn<qint64>("second");
        QTest::addColumn<int>("players");
        QTest::newRow("within the hour") << day + hour - 1 << 0;
        QTest::newRow("after it") << day + hour + 1 << 1;
    }

    void onlineAndBehind()
    {
        QFETCH(qint64, second);
        AccessLog log = someDays();
        // Online, and the server has an error for him.
        log.add({ .player = 9, .second = second, .status = 503, .bytes = 0 });
        const QJsonObject trouble = troubleOf(reported(log), "online-and-behind");
        QTEST(trouble["players"].toInt(), "players");
    }

    void loadIsTold()
    {
        AccessLog log;
        for (int i = 0; i < 5; ++i)
            log.add({ .player = i, .second = i, .bytes = 100, .copy = 0, .file = -1 });
        for (int i = 0; i < 20; ++i)
            log.add({ .player = i,
                      .second = 600 + i,
                      .target = patchFile,
                      .bytes = 1'000'000,
                      .copy = 0,
                      .file = -1,
                      .duration = i < 2 ? 10.0 : 1.0 });
        const QJsonValue load = reported(log).value("load");
        QCOMPARE(load["requests"].toInt(), 25);
        QCOMPARE(load["bytes"].toInt(), 20'000'500);
        QCOMPARE(load["mostRequests"]["count"].toInt(), 20);
        QCOMPARE(load["mostRequests"]["time"].toString(), AccessLog::at(600).toString(Qt::ISODate));
        QCOMPARE(load["timedDownloads"].toInt(), 20);
        const double slowest = load["slowestTenth"].toDouble();
        QVERIFY2(slowest >= 100'000 && slowest < 106'000, qPrintable(QString::number(slowest)));
        const double half = load["slowerHalf"].toDouble();
        QVERIFY2(half >= 1'000'000 && half < 1'060'000, qPrintable(QString::number(half)));
    }

    /// Where logs do not tell, each request is a connection.
    void connectionsAreCounted()
    {
        AccessLog log;
        log.add({}).add({ .file = 0 });
        log.addText(AccessLog().add({ .file = 0 }).text().replace("request=1", "request=2"));
        const QJsonValue load = reported(log).value("load");
        QCOMPARE(load["connections"].toInt(), 2);
        QCOMPARE(load["mostConnections"]["count"].toInt(), 2);
    }

    void theFirstOfSeveralBusiestMinutes()
    {
        AccessLog log;
        for (int minute = 40; minute >= 0; --minute)
            log.add({ .second = qint64(minute) * 60 });
        const QJsonValue peak = reported(log).value("load")["mostRequests"];
        QCOMPARE(peak["count"].toInt(), 1);
        QCOMPARE(peak["time"].toString(), AccessLog::at(0).toString(Qt::ISODate));
    }

    /// The 24 hours from the latest publication on.
    void patchDayIsTold()
    {
        AccessLog log = someDays();
        log.add({ .player = 8, .second = 2 * day + hour, .bytes = 10'200, .file = day });
        const QJsonValue told = reported(log).value("load")["patchDay"];
        QCOMPARE(told["time"].toString(), AccessLog::at(day).toString(Qt::ISODate));
        QCOMPARE(told["players"].toInt(), 7);
        QCOMPARE(told["requests"].toInt(), 7);
        QCOMPARE(told["bytes"].toInt(), 71'400);
        QCOMPARE(told["connections"].toInt(), 7);
        QVERIFY(told["estimate"].isUndefined());
    }

    void patchDayIsHeldAgainstTheEstimate()
    {
        put("Data/a.mpq", QByteArray(100'000, 'a'));
        published();
        const qint64 begin = secondOf(server("patch.ini"));
        const auto estimated = [&](int players) {
            AccessLog log;
            for (int player = 1; player <= players; ++player)
                log.add({ .player = player, .second = begin + player, .file = begin });
            // Before, so that the publication's own day is in the log.
            log.add({ .player = 1, .second = begin - hour, .status = 503 });
            return reported(log, { "--tree", server() }).value("load")["patchDay"]["estimate"];
        };
        const QJsonValue one = estimated(1);
        QVERIFY(one["bytes"].toInt() > 100'000);
        QVERIFY(one["requests"].toInt() > 1);
        QCOMPARE(one["connections"].toInt(), one["requests"].toInt());
        QCOMPARE(estimated(3)["bytes"].toInt(), 3 * one["bytes"].toInt());
        QCOMPARE(estimated(3)["requests"].toInt(), 3 * one["requests"].toInt());
        const QString log = ApplicationFolder::path("access.log");
        const CommandRun run({ "report", log, "--tree", server() });
        QVERIFY2(run.text.contains("The estimate for as many: "), qPrintable(run.text));
    }

    void ownRequestsAreLeftOut()
    {
        const QJsonObject report = reported(someDays(), { "--own", "192.0.2.3" });
        QCOMPARE(report["players"].toInt(), 9);
        QCOMPARE(report["logs"]["leftOut"].toInt(), 3);
    }

    /// Half a log each, in this order and the other, packed or not.
    void orderAndPackingDoNotMatter()
    {
        const AccessLog log = someDays();
        const QByteArray whole = comparable(reported(log));
        AccessLog first;
        AccessLog second;
        for (qsizetype i = 0; i < log.lines().size(); ++i)
            (i % 2 == 0 ? first : second).addText(log.lines().at(log.lines().size() - 1 - i));
        const QString one = first.write("one.log");
        const QString two = second.write("two.log");
        QCOMPARE(comparable(reported({ one, two })), whole);
        QCOMPARE(comparable(reported({ two, one })), whole);
        pack("gzip", {}, one);
        pack("zstd", { "-q" }, two);
        QCOMPARE(comparable(reported({ two + ".zst", one + ".gz" })), whole);
        QCOMPARE(comparable(reportedFromPipe(log.write())), whole);
        QCOMPARE(comparable(reportedFromPipe(two + ".zst")), comparable(reported({ two })));
    }

    /// As whoever adds to a packed log leaves it.
    void packedTextsBehindOneAnother()
    {
        const AccessLog log = someDays();
        const QString path = log.write();
        pack("gzip", { "-k" }, path);
        const QByteArray packed = readFile(path + ".gz");
        writeFile(path + ".2", packed + packed);
        const QJsonValue logs = reported({ path + ".2" }).value("logs");
        QCOMPARE(logs["lines"].toInt(), 2 * static_cast<int>(log.lines().size()));
    }

    void cutPackedLogTellsWhatThereIs()
    {
        AccessLog log;
        for (int i = 0; i < 100'000; ++i)
            log.add({ .player = i % 200, .second = i });
        const QString path = log.write();
        pack("gzip", { "-k" }, path);
        const QByteArray packed = readFile(path + ".gz");
        writeFile(path + ".cut", packed.first(packed.size() / 2));
        const QJsonValue logs = reported({ path + ".cut" }).value("logs");
        QVERIFY(logs["lines"].toInt() > 10'000);
        QVERIFY(logs["lines"].toInt() < 90'000);
        QCOMPARE(logs["wrong"].toInt(), 0);
    }

    void wrongLinesAreCountedWithTheirNumbers()
    {
        AccessLog log;
        log.addText("half a line\n").add({}).addText(QByteArray(200'000, 'x') + '\n').add({});
        log.addText("\n").addText("192.0.2.9 - - [unfinished");
        const QString path = log.write();
        const CommandRun run({ "report", path });
        QVERIFY2(run.text.contains("Wrong lines: 3 of 5"), qPrintable(run.text));
        for (const QString line :
             { "line 1: of no known format", "line 3: too long", "line 5: of no known format" })
            QVERIFY2(run.text.contains(path + ", " + line), qPrintable(run.text));
        const QJsonValue logs = reported({ path }).value("logs");
        QCOMPARE(logs["wrong"].toInt(), 3);
        QCOMPARE(logs["unfinished"].toInt(), 1);
    }

    void onlyTheFirstWrongLinesAreNamed()
    {
        AccessLog log;
        for (int i = 0; i < 15; ++i)
            log.addText("half a line\n");
        const QJsonValue logs = reported(log).value("logs");
        QCOMPARE(logs["wrong"].toInt(), 15);
        QCOMPARE(logs["wrongLines"].toArray().size(), 10);
        QCOMPARE(logs["wrongLines"][9]["line"].toInt(), 10);
    }

    void linesOfOtherKinds()
    {
        AccessLog log;
        log.addText(R"({"level":"info","ts":1795171561.25,"msg":"serving"})"
                    "\n");
        log.addText(AccessLog().add({ .file = 0 }).text().replace("\n", "\r\n"));
        log.addText(QByteArray(200'000, 'x'));
        const QJsonObject report = reported(log);
        const QJsonValue logs = report["logs"];
        QCOMPARE(logs["otherLines"].toInt(), 1);
        QCOMPARE(logs["unfinished"].toInt(), 1);
        QCOMPARE(logs["wrong"].toInt(), 0);
        QCOMPARE(logs["lines"].toInt(), 2);
        QCOMPARE(report["load"]["connections"].toInt(), 1);
    }

    void countsThatAreNotExactSaySo()
    {
        QVERIFY(reported(someDays()).value("logs")["isExact"].toBool());
        AccessLog log;
        for (int i = 0; i <= 20'000; ++i)
            log.add({ .target = QString("/%1").arg(i), .status = 404 });
        QVERIFY(!reported(log).value("logs")["isExact"].toBool());
        const CommandRun run({ "report", log.write() });
        QVERIFY2(run.text.contains("There were too many paths"), qPrintable(run.text.right(300)));
    }

    void rubbishDoesNoHarm_data()
    {
        QTest::addColumn<QByteArray>("rubbish");
        QByteArray all;
        for (unsigned i = 0; i < 100'000; ++i)
            all += static_cast<char>(i * i % 251);
        QTest::newRow("bytes") << all;
        QTest::newRow("zeros") << QByteArray(3'000'000, '\0');
        QTest::newRow("line ends") << QByteArray(100'000, '\n');
        QTest::newRow("brackets") << QByteArray(100'000, '{') + '\n';
        QTest::newRow("nothing") << QByteArray();
    }

    void rubbishDoesNoHarm()
    {
        QFETCH(QByteArray, rubbish);
        AccessLog log;
        log.addText(rubbish).addText("\n").add({});
        QCOMPARE(reported(log).value("players").toInt(), 1);
    }

    /// Word by word; a mark stands for the player's.
    void everythingIsTold()
    {
        AccessLog log = someDays();
        for (int i = 0; i < 20; ++i)
            log.add({ .player = 20 + i,
                      .second = 3 * day,
                      .target = patchFile,
                      .bytes = 1'000'000,
                      .copy = 0,
                      .file = 0,
                      .duration = i < 2 ? 10.0 : 1.0 });
        log.add({ .player = 3, .second = 3 * day, .status = 404 });
        log.add({ .player = 20, .second = 3 * day, .target = launcher, .status = 304, .bytes = 0 });
        log.add(
            { .player = 22, .second = -2 * hour, .target = launcher, .status = 304, .bytes = 0 });
        log.addText("half a line\n{}\n").addText("192.0.2.9 - - [unfinished");
        const CommandRun run({ "report", log.write(), "--own", "192.0.2.1" });
        QString text = run.text;
        static const QRegularExpression mark("\\b[0-9a-f]{8}\\b");
        text.replace(mark, "MARK").replace(ApplicationFolder::path(), "FOLDER");
        QCOMPARE(text, QString(wholeReport));
    }

    void addressesAndHostileTextsDoNotComeOut()
    {
        AccessLog log = someDays();
        log.add({ .player = 77,
                  .target = "/<script>alert(1)</script>\x1b[2J/192.0.2.77",
                  .status = 404,
                  .agent = "\x1b[31m" });
        log.addText("192.0.2.78 bad line\n");
        const QString path = log.write();
        for (const QStringList& form : { QStringList(), QStringList("--json") }) {
            const CommandRun run(QStringList{ "report", path } + form);
            QCOMPARE(run.code, ExitCode::Fine);
            QVERIFY2(!run.text.contains("192.0.2"), qPrintable(run.text));
            QVERIFY(!run.text.contains('\x1b'));
        }
    }

    void pageEscapesWhatComesFromLogs()
    {
        AccessLog log = someDays();
        log.add({ .target = "/<script>alert(1)</script>{{trouble}}&amp;", .status = 404 });
        const QString page = ApplicationFolder::path("report.html");
        QCOMPARE(CommandRun({ "report", log.write(), "--html", page }).code, ExitCode::Fine);
        const QByteArray html = readFile(page);
        QVERIFY(html.contains("&lt;script&gt;alert(1)&lt;/script&gt;{{trouble}}&amp;amp;"));
        QVERIFY(!html.contains("<script"));
        QVERIFY(!html.contains("192.0.2"));
        QVERIFY(!html.contains("http://") && !html.contains("https://"));
        QCOMPARE(html.count("{{"), html.count("{{trouble}}&amp;amp;"));
    }

    void pageSaysWhatTheTextSays()
    {
        AccessLog log = someDays();
        log.add({ .target = "/patch.ini.old", .status = 404 });
        const QString page = ApplicationFolder::path("report.html");
        QCOMPARE(CommandRun({ "report", log.write(), "--html", page }).code, ExitCode::Fine);
        const QByteArray html = readFile(page);
        for (const QByteArray part :
             { "<dt>Players</dt><dd>10</dd>", "<dt>Kinds of trouble</dt><dd>2</dd>",
               "<code>halden-publish build</code>", "<td class=\"number\">unknown</td>",
               "<td class=\"number\">5.0 hours</td>", "<td class=\"number\">not yet</td>",
               "Of 10 downloads the slowest tenth had", ">published</text>",
               "In the 24 hours after the latest publication 7 players got it",
               "role=\"region\" tabindex=\"0\"", "<code>404 /patch.ini.old</code>" })
            QVERIFY2(html.contains(part), part.constData());
    }

    /// Each line is a comment, or a name with labels and a number.
    void metricsAreWhatTheExporterReads()
    {
        const QString file = ApplicationFolder::path("halden.prom");
        QCOMPARE(
            CommandRun({ "report", someDays().write(), "--metrics", file }).code, ExitCode::Fine);
        const QList<QByteArray> lines = readFile(file).trimmed().split('\n');
        static const QRegularExpression valid(
            R"(^(# (HELP|TYPE) halden_report_\w+ .+|halden_report_\w+(\{\w+="[\w-]+"(,\w+="\d+")?\})? [0-9.e+]+)$)");
        for (const QByteArray& line : lines)
            QVERIFY2(valid.match(QString::fromUtf8(line)).hasMatch(), line.constData());
        const QByteArray end = QByteArray::number(AccessLog::at(day + 7 * hour).toSecsSinceEpoch());
        for (const QByteArray& line :
             { QByteArray("halden_report_players{track=\"live\"} 10"),
               QByteArray("halden_report_players_behind{track=\"live\"} 3"),
               QByteArray("halden_report_adoption_seconds{track=\"live\",percent=\"50\"} 18000"),
               QByteArray("halden_report_trouble{kind=\"launcher-loop\"} 0"),
               QByteArray("halden_report_requests 27"),
               QByteArray("halden_report_sent_bytes 5171400"),
               QByteArray("halden_report_connections 27"),
               QByteArray("halden_report_peak_requests_per_minute 2"),
               QByteArray("halden_report_peak_bytes_per_minute 510000"),
               QByteArray("halden_report_lines 27"), QByteArray("halden_report_wrong_lines 0"),
               "halden_report_first_request_seconds "
                   + QByteArray::number(AccessLog::at(60).toSecsSinceEpoch()),
               "halden_report_last_request_seconds " + end })
            QVERIFY2(lines.contains(line), line.constData());
    }

    void filesThatCannotBeWritten_data()
    {
        QTest::addColumn<QString>("option");
        QTest::newRow("page") << "--html";
        QTest::newRow("metrics") << "--metrics";
    }

    void filesThatCannotBeWritten()
    {
        QFETCH(QString, option);
        const CommandRun run({ "report", "/dev/null", option, "/nowhere/file" });
        QCOMPARE(run.code, ExitCode::InputOutput);
        QVERIFY2(run.messages.contains("/nowhere/file"), qPrintable(run.messages));
    }

    /// Anybody may ask for any number of paths.
    void tallyOfPathsIsBounded()
    {
        TopTally tally(100);
        for (int i = 0; i < 100'000; ++i) {
            tally.add("/often");
            tally.add(std::to_string(i));
        }
        QVERIFY(!tally.isExact());
        QCOMPARE(tally.total(), 200'000);
        QCOMPARE(tally.top(1).front().text, std::string("/often"));
        QVERIFY(tally.top(1000).size() <= 100);
    }

    void tallyOfPairsIsBounded()
    {
        PairTally tally(1000);
        for (std::uint32_t i = 0; i < 50'000; ++i) {
            tally.add(1, 1);
            tally.add(2, i + 2);
        }
        QVERIFY(!tally.isExact());
        std::uint32_t most = 0;
        std::uint32_t pairs = 0;
        tally.forEach([&](std::uint32_t player, std::uint32_t, std::uint32_t count) {
            most = player == 1 ? count : most;
            ++pairs;
        });
        QCOMPARE(most, 50'000U);
        QVERIFY(pairs <= 1000);
    }

    void senselessCommandLines_data()
    {
        QTest::addColumn<QStringList>("arguments");
        QTest::addColumn<ExitCode>("code");
        QTest::addColumn<QString>("words");
        QTest::newRow("no log") << QStringList() << ExitCode::Usage << "give an access log";
        QTest::newRow("a log that is not there")
            << QStringList("/nowhere.log") << ExitCode::InputOutput << "/nowhere.log";
        QTest::newRow("a folder") << QStringList("/tmp") << ExitCode::InputOutput
                                  << "it is a folder";
        QTest::newRow("no tree") << QStringList{ "/dev/null", "--tree", "/nowhere" }
                                 << ExitCode::InputOutput << "/nowhere";
    }

    void senselessCommandLines()
    {
        QFETCH(QStringList, arguments);
        QFETCH(QString, words);
        const CommandRun run(QStringList("report") + arguments);
        QTEST(run.code, "code");
        QVERIFY2(run.messages.contains(words), qPrintable(run.messages));
    }

    void damagedPackedLog_data()
    {
        QTest::addColumn<QByteArray>("beginning");
        QTest::newRow("gzip") << QByteArray("\x1f\x8b\x08");
        QTest::newRow("zstd") << QByteArray("\x28\xb5\x2f\xfd");
    }

    void damagedPackedLog()
    {
        QFETCH(QByteArray, beginning);
        writeFile(ApplicationFolder::path("packed"), beginning + QByteArray(100, 'x'));
        const CommandRun run({ "report", ApplicationFolder::path("packed") });
        QCOMPARE(run.code, ExitCode::InputOutput);
        QVERIFY2(run.messages.contains("damaged"), qPrintable(run.messages));
    }

    void emptyLog()
    {
        const CommandRun run({ "report", "/dev/null" });
        QCOMPARE(run.code, ExitCode::Fine);
        QVERIFY2(run.text.contains("The logs tell of no request."), qPrintable(run.text));
    }
};

HALDEN_TEST_MAIN(tst_Report)
#include "tst_report.moc"
