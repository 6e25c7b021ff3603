#include "tests/support/applicationfolder.h"
#include "tests/support/certificateauthority.h"
#include "tests/support/testmain.h"
#include "tests/world/community.h"
#include "tests/world/webservers.h"

#include <QDateTime>
#include <QDirIterator>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QLocale>
#include <QProcess>
#include <QRegularExpression>
#include <QSet>

#include <algorithm>
#include <limits>
#include <memory>
#include <numeric>
#include <optional>
#include <utility>

using namespace TestSupport;

namespace {

constexpr int longest = 600'000; // milliseconds
constexpr qint64 secondsOfAnHour = 3600;
constexpr qint64 secondsOfADay = 24 * secondsOfAnHour;
// In which all players of a day begin. A day begins and ends with some hours of quiet.
constexpr qint64 secondsOfAnEvening = 16 * secondsOfAnHour;
constexpr qint64 tolerance = 120;
// A busy machine notes the end of an answer at its two ends some seconds apart.
constexpr qint64 sameMoment = 10;
// What is told apart by its length alone has to differ by so much.
constexpr qint64 sameLength = 64;
constexpr int daysOfALoop = 5;
constexpr int fetchesOfAFileAgain = 7;
// Twice what Linux keeps of what a server has handed on: a smaller file has gone out for
// the server when a player hangs up.
constexpr qsizetype sizeOfALargeFile = 8 << 20;
// As the shipped one has it, and a build for tests many times over.
constexpr qsizetype sizeOfALauncher = 1 << 20;
// Each has two connections at most, and nginx takes 512.
constexpr int playersAtOnce = 60;
const QString program = "Halden-Launcher.exe";
const QString patchFolder = "/wow-client-patch/";

int numberFrom(const char* variable, int otherwise)
{
    bool isNumber = false;
    const int number = qEnvironmentVariableIntValue(variable, &isNumber);
    return isNumber ? number : otherwise;
}

/// What a player has met with a request, by his own account.
struct Met {
    int player;
    int status;
    QString path;
    qint64 time;
    qint64 since;
    bool isWhole;
    QByteArray md5;
};

QList<Met> accountOf(const QString& log)
{
    QList<Met> all;
    const QList<QByteArray> lines = readFile(log).split('\n');
    for (const QByteArray& line : lines) {
        const QList<QByteArray> words = line.split(' ');
        if (words.size() == 9)
            all.append({ words.at(0).toInt(), words.at(2).toInt(), QString::fromUtf8(words.at(3)),
                         words.at(4).toLongLong(), words.at(5).toLongLong(), words.at(7) == "1",
                         words.at(8) });
    }
    return all;
}

/// What has been published at what time, by its MD5; several where nothing tells one
/// from the other.
struct Published {
    QList<QByteArray> md5s;
    qint64 time;
    qint64 size;
};

/// As lengths tell them apart.
QList<Published> byLength(const QList<Published>& all)
{
    QList<Published> apart;
    for (const Published& one : all) {
        const auto same = std::find_if(apart.begin(), apart.end(), [&](const Published& other) {
            return std::abs(other.size - one.size) < sameLength;
        });
        if (same == apart.end())
            apart.append(one);
        else
            same->md5s += one.md5s;
    }
    return apart;
}

/// When each player had each publication, one after the other.
class Truth {
public:
    Truth(const QList<Met>& account, const QString& path, const QList<Published>& published)
        : publications(published)
    {
        for (const Met& met : account) {
            last[met.player] = std::max(last.value(met.player), met.time);
            if (met.path != path)
                continue;
            if (met.status == 200 && met.isWhole)
                take(met, placeOf(met.md5));
            else if (met.status == 304)
                take(met, placeAt(met.time));
        }
    }

    QList<int> holders() const
    {
        QList<int> counts(publications.size(), 0);
        for (const int place : current)
            ++counts[place];
        return counts;
    }

    int players() const
    {
        return static_cast<int>(current.size());
    }

    /// Who has not the last one.
    int behind() const
    {
        return players() - holders().constLast();
    }

    /// Of these, who was online an hour after it.
    int onlineAndBehind() const
    {
        int count = 0;
        for (auto player = current.cbegin(); player != current.cend(); ++player) {
            const qint64 hour = publications.constLast().time + secondsOfAnHour;
            if (*player + 1 < publications.size() && last.value(player.key()) > hour)
                ++count;
        }
        return count;
    }

    /// When anybody had it for the first time.
    qint64 firstOf(qsizetype place) const
    {
        qint64 first = std::numeric_limits<qint64>::max();
        for (const QMap<int, qint64>& player : firsts)
            first = std::min(first, player.value(static_cast<int>(place), first));
        return first;
    }

    qint64 timeOf(qsizetype place) const
    {
        return publications.at(place).time;
    }

    /// When so many of a hundred had it or a later one; none where that has not come.
    std::optional<qint64> momentOf(int share, qsizetype place) const
    {
        QList<qint64> moments;
        for (const QMap<int, qint64>& player : firsts) {
            qint64 first = std::numeric_limits<qint64>::max();
            for (auto had = player.cbegin(); had != player.cend(); ++had) {
                if (had.key() >= place)
                    first = std::min(first, had.value());
            }
            if (first != std::numeric_limits<qint64>::max())
                moments.append(first);
        }
        std::sort(moments.begin(), moments.end());
        const qsizetype needed = (firsts.size() * share + 99) / 100;
        return needed <= moments.size() ? std::optional(moments.at(needed - 1)) : std::nullopt;
    }

private:
    int placeOf(const QByteArray& md5) const
    {
        for (int place = 0; place < publications.size(); ++place) {
            if (publications.at(place).md5s.contains(md5))
                return place;
        }
        qFatal("nobody has published what came");
    }

    int placeAt(qint64 time) const
    {
        int place = 0;
        while (place + 1 < publications.size() && publications.at(place + 1).time <= time)
            ++place;
        return place;
    }

    void take(const Met& met, int place)
    {
        current[met.player] = place;
        QMap<int, qint64>& first = firsts[met.player];
        if (!first.contains(place))
            first[place] = met.time;
    }

    QList<Published> publications;
    QMap<int, int> current;
    QMap<int, QMap<int, qint64>> firsts;
    QMap<int, qint64> last;
};

/// What goes wrong for players, by their own account.
struct TrueTroubles {
    explicit TrueTroubles(const QList<Met>& account)
    {
        for (const Met& met : account) {
            if (met.since - met.time > tolerance)
                ahead.insert(met.player);
            if (met.path.startsWith(patchFolder) && met.status == 200)
                takeFile(met);
            if (met.path == '/' + program && met.status == 200 && met.isWhole)
                launchers[met.player][met.md5].insert(met.time / secondsOfADay);
        }
    }

    int loops() const
    {
        return static_cast<int>(std::count_if(
            launchers.cbegin(), launchers.cend(), [](const QMap<QByteArray, QSet<qint64>>& one) {
                return std::any_of(one.cbegin(), one.cend(), [](const QSet<qint64>& days) {
                    return days.size() >= daysOfALoop;
                });
            }));
    }

    /// Fetches of one file by one player, where there are so many.
    QList<int> again() const
    {
        QList<int> counts;
        for (const int count : fetches) {
            if (count >= fetchesOfAFileAgain)
                counts.append(count);
        }
        return counts;
    }

    int broken = 0;
    QSet<int> breakers = {};
    QSet<int> ahead = {};

private:
    void takeFile(const Met& met)
    {
        ++fetches[{ met.player, met.path }];
        if (met.isWhole)
            return;
        breakers.insert(met.player);
        ++broken;
    }

    QMap<std::pair<int, QString>, int> fetches;
    QMap<int, QMap<QByteArray, QSet<qint64>>> launchers;
};

/// Whose request a line is of, by the address that he has here.
int playerOf(const QString& line)
{
    static const QRegularExpression address(R"(127\.1\.(\d+)\.(\d+))");
    const auto match = address.match(line);
    return match.captured(1).toInt() * 250 + match.captured(2).toInt() - 1;
}

QString movedLine(QString line, qint64 shift)
{
    static const QRegularExpression time(R"(\[(\d\d/\w{3}/\d{4}:\d\d:\d\d:\d\d) ([+-]\d{4})\])");
    static const QRegularExpression json(R"("ts":(\d+)(\.\d+)?)");
    if (const auto match = time.match(line); match.hasMatch()) {
        const QDateTime before = QLocale::c().toDateTime(match.captured(1), "dd/MMM/yyyy:hh:mm:ss");
        line.replace(
            match.capturedStart(1), match.capturedLength(1),
            QLocale::c().toString(before.addSecs(shift), "dd/MMM/yyyy:hh:mm:ss"));
    } else if (const auto number = json.match(line); number.hasMatch()) {
        line.replace(
            number.capturedStart(1), number.capturedLength(1),
            QString::number(number.captured(1).toLongLong() + shift));
    }
    return line;
}

/// With the times of its lines moved, by so much more for each player before theirs.
QByteArray moved(const QByteArray& log, qint64 shift, qint64 apart)
{
    QString result;
    const QStringList lines = QString::fromLatin1(log).split('\n', Qt::SkipEmptyParts);
    for (const QString& line : lines)
        result += movedLine(line, shift + playerOf(line) * apart) + '\n';
    return result.toLatin1();
}

void setDate(const QString& path, qint64 time)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadWrite)
        || !file.setFileTime(
            QDateTime::fromSecsSinceEpoch(time), QFileDevice::FileModificationTime))
        qFatal("%s cannot be dated", qPrintable(path));
}

} // namespace

/// Logs that real servers have written, of players whose ways are known. Every round of
/// players is a day: their clocks and the dates of what is published are moved there,
/// each player's some minutes further than that of the one before, and so are the times
/// of the log that comes of it. Nothing else of it is changed.
/// HALDEN_REPORT_PLAYERS and HALDEN_REPORT_DAYS make more of both.
class tst_ReportLogs : public QObject {
    Q_OBJECT

private:
    const int players = numberFrom("HALDEN_REPORT_PLAYERS", 30);
    const int days = numberFrom("HALDEN_REPORT_DAYS", 7);
    const qint64 apart = secondsOfAnEvening / players;

    Community community;
    std::unique_ptr<ServerProcess> server;
    QProcess many;
    QString accountFile;
    qint64 beginning = 0;
    QList<Published> manifests;
    QList<Published> launchers;
    QStringList logs;
    QStringList combinedLogs;

    /// To an hour after midnight of that day. The last one was yesterday.
    qint64 shiftOf(int day) const
    {
        return (day - days - 1) * secondsOfADay + secondsOfAnHour - beginning % secondsOfADay;
    }

    void beginPlayers()
    {
        accountFile = ApplicationFolder::path("account");
        many.start(
            HALDEN_PLAYERS,
            { "--by-line",
              "--starts",
              "0",
              "--settled",
              "--own-addresses",
              "--apart",
              QString::number(apart),
              "--clock-shift",
              QString::number(shiftOf(0)),
              "--players",
              QString::number(players),
              "--at-once",
              QString::number(playersAtOnce),
              "--online",
              "70",
              "--stuck",
              "10",
              "--breaking-off",
              "10",
              "--clocks-ahead",
              "10",
              "--authority",
              trustedAuthority().certificateFile(),
              "--log",
              accountFile });
        QVERIFY(many.waitForStarted());
    }

    bool playOnce(qint64 shift)
    {
        many.write(QByteArray::number(shift) + '\n');
        while (!many.canReadLine()) {
            if (!many.waitForReadyRead(longest))
                return false;
        }
        return many.readLine() == "played\n";
    }

    void note(QList<Published>& all, const QString& name, qint64 time) const
    {
        const QByteArray content = readFile(community.path(name));
        const QByteArray md5 = TestSupport::md5(content).toLatin1();
        if (all.isEmpty() || !all.constLast().md5s.contains(md5))
            all.append({ { md5 }, time, content.size() });
    }

    /// What has just been published, with a date of that day.
    void dateNewFiles(qint64 time) const
    {
        QDirIterator files(community.path({}), QDir::Files, QDirIterator::Subdirectories);
        while (files.hasNext()) {
            const QString path = files.next();
            if (QFileInfo(path).lastModified().toSecsSinceEpoch() > time)
                setDate(path, time);
        }
    }

    /// A file more and a file changed in turn, which leaves the manifest as long as it was.
    void changePatch(int day) const
    {
        const auto put = [](int number, char content, qsizetype size) {
            writeFile(
                Community::sourcePath("live", QString("Data/%1.mpq").arg(number)),
                QByteArray(size, content));
        };
        if (day == 3)
            put(0, 'l', sizeOfALargeFile);
        put(day % 6 == 0 ? day - 3 : day, static_cast<char>(day), 1000);
        community.publishChanges();
    }

    void publishOn(int day)
    {
        const qint64 time = QDateTime::currentSecsSinceEpoch() + shiftOf(day);
        if (day % 3 == 0)
            changePatch(day);
        if (day % 10 == 2)
            writeFile(
                community.path(program), readFile(community.path(program)) + QByteArray(1000, '+'));
        dateNewFiles(time);
        note(manifests, "patch.ini", time);
        note(launchers, program, time);
    }

    /// What the server has written by then, and nothing of it once more.
    void collect(const QString& log, int day, QStringList& all) const
    {
        all.append(log + QString(".day%1").arg(day));
        writeFile(all.constLast(), moved(readFile(log), shiftOf(day), apart));
        QVERIFY(QFile::remove(log));
    }

    void live(const QString& name)
    {
        for (int day = 1; day <= days; ++day) {
            publishOn(day);
            server->start("127.0.0.1", 443);
            QVERIFY(playOnce(shiftOf(day)));
            // All that it has to write is there then.
            server->stop();
            collect(WebServers::logFileOf(name), day, logs);
            if (QFile::exists(WebServers::combinedLogFileOf(name)))
                collect(WebServers::combinedLogFileOf(name), day, combinedLogs);
        }
        many.closeWriteChannel();
        QVERIFY(many.waitForFinished(longest));
    }

    static QJsonObject reported(const QStringList& logs)
    {
        QProcess process;
        process.start(HALDEN_PUBLISH, QStringList{ "report", "--json" } + logs);
        process.waitForFinished(longest);
        return QJsonDocument::fromJson(process.readAllStandardOutput()).object();
    }

    static QJsonObject elementOf(const QJsonValue& list, const QString& key, const QString& value)
    {
        const QJsonArray array = list.toArray();
        for (const QJsonValue element : array) {
            if (element[key] == value)
                return element.toObject();
        }
        return {};
    }

    /// Until so many had it: since the date, or since somebody had it where none is told.
    static void comparePace(const QJsonValue& publication, const Truth& truth, qsizetype place)
    {
        const qint64 begin
            = publication["isDated"].toBool() ? truth.timeOf(place) : truth.firstOf(place);
        for (const int share : { 50, 90, 99 }) {
            const QJsonValue seconds = publication[QString("seconds%1").arg(share)];
            const std::optional<qint64> moment = truth.momentOf(share, place);
            QCOMPARE(seconds.isNull(), !moment);
            if (moment)
                QVERIFY2(
                    std::abs(seconds.toInteger() - (*moment - begin)) <= sameMoment,
                    qPrintable(QString("%1 %2").arg(seconds.toInteger()).arg(*moment - begin)));
        }
    }

    static void
    compareAdoption(const QJsonObject& told, const Truth& truth, bool mayHideTheFirst = false)
    {
        QList<int> holders;
        const QJsonArray publications = told["publications"].toArray();
        // Where copies are confirmed without a date the one from before shows by nothing.
        const qsizetype hidden = truth.holders().size() - publications.size();
        if (hidden == 1)
            holders.append(told["unknown"].toInt());
        for (const QJsonValue publication : publications)
            holders.append(publication["players"].toInt());
        QCOMPARE(holders, truth.holders());
        QVERIFY(hidden == 0 || mayHideTheFirst);
        QCOMPARE(told["players"].toInt(), truth.players());
        QCOMPARE(told["behind"].toInt() + (hidden == 1 ? holders.constFirst() : 0), truth.behind());
        for (qsizetype place = 1; place < truth.holders().size(); ++place)
            comparePace(publications.at(place - hidden), truth, place);
    }

    static void compareTroubles(const QJsonObject& report, const QList<Met>& account, bool hasDates)
    {
        const TrueTroubles truth(account);
        const QJsonValue troubles = report["troubles"];
        const auto told = [&](const char* id, const char* what) {
            return elementOf(troubles, "id", id)[QLatin1String(what)].toInt();
        };
        QVERIFY(truth.loops() > 0 && truth.broken > 0 && !truth.ahead.isEmpty());
        QCOMPARE(told("launcher-loop", "players"), truth.loops());
        QCOMPARE(told("download-broken", "count"), truth.broken);
        QCOMPARE(told("download-broken", "players"), truth.breakers.size());
        QCOMPARE(told("clock-ahead", "players"), hasDates ? truth.ahead.size() : 0);
        const QList<int> again = truth.again();
        QCOMPARE(told("file-again", "players"), again.size());
        QCOMPARE(told("file-again", "count"), std::accumulate(again.begin(), again.end(), 0));
        for (const char* id : { "server-error", "client-error", "no-launcher", "dated-ahead" })
            QVERIFY2(elementOf(troubles, "id", id).isEmpty(), id);
    }

    static void comparePlayers(const QJsonObject& report, const QList<Met>& account)
    {
        QSet<int> online;
        QMap<qint64, QSet<int>> byDay;
        for (const Met& met : account) {
            online.insert(met.player);
            byDay[met.time / secondsOfADay].insert(met.player);
        }
        QCOMPARE(report["players"].toInt(), online.size());
        QCOMPARE(report["strangers"].toInt(), 0);
        QList<int> told;
        const QJsonArray days = report["playersByDay"].toArray();
        for (const QJsonValue day : days)
            told.append(day["players"].toInt());
        QList<int> expected;
        for (const QSet<int>& day : std::as_const(byDay))
            expected.append(static_cast<int>(day.size()));
        QCOMPARE(told, expected);
    }

    void compare(
        const QStringList& read, const QList<Published>& live, const QList<Published>& programs,
        bool hasDates, bool mayHideTheFirst)
    {
        const QList<Met> account = accountOf(accountFile);
        const QJsonObject report = reported(read);
        QCOMPARE(report["logs"]["wrong"].toInt(), 0);
        QVERIFY(report["logs"]["isExact"].toBool());
        comparePlayers(report, account);
        const QJsonValue adoption = report["adoption"];
        const Truth manifest(account, "/patch.ini", live);
        compareAdoption(elementOf(adoption, "track", "live"), manifest);
        compareAdoption(
            elementOf(adoption, "track", "launcher"), Truth(account, '/' + program, programs),
            mayHideTheFirst);
        compareTroubles(report, account, hasDates);
        QCOMPARE(
            elementOf(report["troubles"], "id", "online-and-behind")["players"].toInt(),
            manifest.onlineAndBehind());
    }

    void compareAll(const QString& name)
    {
        server = WebServers::communityServer(name);
        beginPlayers();
        live(name);
        if (QTest::currentTestFailed())
            return;
        compare(logs, manifests, launchers, true, name == "caddy");
        if (!combinedLogs.isEmpty())
            compare(combinedLogs, byLength(manifests), byLength(launchers), false, true);
        qInfo("%s: %lld lines", qPrintable(name), qlonglong(accountOf(accountFile).size()));
    }

private slots:
    void initTestCase()
    {
        trustedAuthority();
        trustedCertificate();
    }

    void init()
    {
        ApplicationFolder::clear();
        community.publish();
        beginning = QDateTime::currentSecsSinceEpoch();
        const QString launcher = community.path(program);
        writeFile(launcher, readFile(launcher).first(sizeOfALauncher));
        setDate(launcher, beginning - 100 * secondsOfADay);
        manifests.clear();
        launchers.clear();
        logs.clear();
        combinedLogs.clear();
    }

    void cleanup()
    {
        many.kill();
        many.waitForFinished();
        server.reset();
    }

    // A function each, since the limit of time is a function's.
    void nothingDiffersForNginx()
    {
        compareAll("nginx");
    }

    void nothingDiffersForApache()
    {
        compareAll("apache");
    }

    void nothingDiffersForCaddy()
    {
        compareAll("caddy");
    }
};

HALDEN_TEST_MAIN(tst_ReportLogs)
#include "tst_reportlogs.moc"
