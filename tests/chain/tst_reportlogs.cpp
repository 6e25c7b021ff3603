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

#include <memory>

using namespace TestSupport;

namespace {

constexpr int longest = 300'000; // milliseconds
constexpr qint64 secondsOfADay = 86'400;
constexpr qint64 tolerance = 120;
// A busy machine notes the end of an answer at its two ends some seconds apart.
constexpr qint64 sameMoment = 60;
constexpr int daysOfALoop = 5;
// Twice what Linux keeps of what a server has handed on: a smaller file has gone out for
// the server when a player hangs up.
constexpr qsizetype sizeOfALargeFile = 8 << 20;
// More than a busy machine serves at once would be turned away.
constexpr int startsPerSecond = 30;
const QString program = "Halden-Launcher.exe";

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

/// What has been published at what time, by its MD5.
struct Published {
    QByteArray md5;
    qint64 time;
};

/// When each player had each publication, one after the other.
class Truth {
public:
    Truth(const QList<Met>& account, const QString& path, const QList<Published>& published)
        : publications(published)
    {
        for (const Met& met : account) {
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

    /// Until so many of a hundred had it or a later one; negative where that has not come.
    qint64 secondsUntil(int share, qsizetype place) const
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
        return needed <= moments.size() ? moments.at(needed - 1) - publications.at(place).time : -1;
    }

private:
    int placeOf(const QByteArray& md5) const
    {
        for (int place = 0; place < publications.size(); ++place) {
            if (publications.at(place).md5 == md5)
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
};

/// With the times of a text log moved.
QByteArray moved(const QByteArray& log, qint64 shift)
{
    static const QRegularExpression time(R"(\[(\d\d/\w{3}/\d{4}:\d\d:\d\d:\d\d) ([+-]\d{4})\])");
    static const QRegularExpression json(R"("ts":(\d+)(\.\d+)?)");
    QString result;
    const QStringList lines = QString::fromLatin1(log).split('\n', Qt::SkipEmptyParts);
    for (QString line : lines) {
        if (const auto match = time.match(line); match.hasMatch()) {
            const QDateTime before
                = QLocale::c().toDateTime(match.captured(1), "dd/MMM/yyyy:hh:mm:ss");
            line.replace(
                match.capturedStart(1), match.capturedLength(1),
                QLocale::c().toString(before.addSecs(shift), "dd/MMM/yyyy:hh:mm:ss"));
        } else if (const auto number = json.match(line); number.hasMatch()) {
            line.replace(
                number.capturedStart(1), number.capturedLength(1),
                QString::number(number.captured(1).toLongLong() + shift));
        }
        result += line + '\n';
    }
    return result.toLatin1();
}

QByteArray hashOf(const QString& path)
{
    return TestSupport::md5(readFile(path)).toLatin1();
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
/// and so are the times of the log that comes of it. Nothing else of it is changed.
/// HALDEN_REPORT_PLAYERS and HALDEN_REPORT_DAYS make more of both.
class tst_ReportLogs : public QObject {
    Q_OBJECT

private:
    const int players = numberFrom("HALDEN_REPORT_PLAYERS", 30);
    const int days = numberFrom("HALDEN_REPORT_DAYS", 7);

    Community community;
    std::unique_ptr<ServerProcess> server;
    QProcess many;
    QString accountFile;
    QList<Published> manifests;
    QList<Published> launchers;
    QStringList logs;

    qint64 shiftOf(int day) const
    {
        return (day - days) * secondsOfADay;
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
              "--clock-shift",
              QString::number(shiftOf(0)),
              "--players",
              QString::number(players),
              "--spread",
              QString::number(players / startsPerSecond),
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

    /// Notes what is live, and since when.
    void note(qint64 time)
    {
        const QByteArray manifest = hashOf(community.path("patch.ini"));
        if (manifests.isEmpty() || manifests.last().md5 != manifest)
            manifests.append({ manifest, time });
        const QByteArray launcher = hashOf(community.path(program));
        if (launchers.isEmpty() || launchers.last().md5 != launcher)
            launchers.append({ launcher, time });
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

    void publishOn(int day)
    {
        const qint64 time = QDateTime::currentSecsSinceEpoch() + shiftOf(day);
        if (day == 3)
            writeFile(
                Community::sourcePath("live", "Data/large.mpq"), QByteArray(sizeOfALargeFile, 'l'));
        if (day == 3 || day == 6) {
            writeFile(
                Community::sourcePath("live", "Data/new.mpq"), QByteArray(1000, char('a' + day)));
            community.publishChanges();
        }
        if (day == 2) {
            writeFile(community.path(program), readFile(community.path(program)) + "newer");
        }
        dateNewFiles(time);
        note(time);
    }

    void live(const QString& name)
    {
        for (int day = 1; day <= days; ++day) {
            publishOn(day);
            server->start("127.0.0.1", 443);
            QVERIFY(playOnce(shiftOf(day)));
            // All that it has to write is there then.
            server->stop();
            const QString log = WebServers::logFileOf(name);
            logs.append(ApplicationFolder::path(QString("day%1.log").arg(day)));
            writeFile(logs.last(), moved(readFile(log), shiftOf(day)));
            QVERIFY(QFile::remove(log));
        }
        many.closeWriteChannel();
        QVERIFY(many.waitForFinished(longest));
    }

    QJsonObject reported() const
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

    static void
    compareAdoption(const QJsonObject& told, const Truth& truth, bool mayHideTheFirst = false)
    {
        QList<int> holders;
        const QJsonArray publications = told["publications"].toArray();
        // Caddy confirms copies without a date, so the one from before shows by nothing.
        const qsizetype hidden = truth.holders().size() - publications.size();
        if (hidden == 1)
            holders.append(told["unknown"].toInt());
        for (const QJsonValue publication : publications)
            holders.append(publication["players"].toInt());
        QCOMPARE(holders, truth.holders());
        QVERIFY(hidden == 0 || mayHideTheFirst);
        QCOMPARE(told["players"].toInt(), truth.players());
        for (qsizetype place = 1; place < truth.holders().size(); ++place) {
            for (const int share : { 50, 90, 99 }) {
                const QJsonValue seconds
                    = publications.at(place - hidden)[QString("seconds%1").arg(share)];
                const qint64 expected = truth.secondsUntil(share, place);
                QCOMPARE(seconds.isNull(), expected < 0);
                if (expected >= 0)
                    QVERIFY2(
                        std::abs(seconds.toInteger() - expected) <= sameMoment,
                        qPrintable(QString("%1 %2").arg(seconds.toInteger()).arg(expected)));
            }
        }
    }

    static void compareTroubles(const QJsonObject& report, const QList<Met>& account)
    {
        QSet<int> ahead;
        QSet<int> breakers;
        int broken = 0;
        QMap<int, QMap<QByteArray, QSet<qint64>>> launchersOf;
        for (const Met& met : account) {
            if (met.since - met.time > tolerance)
                ahead.insert(met.player);
            if (met.path.startsWith("/wow-client-patch/") && met.status == 200 && !met.isWhole) {
                breakers.insert(met.player);
                ++broken;
            }
            if (met.path == '/' + program && met.status == 200 && met.isWhole)
                launchersOf[met.player][met.md5].insert(met.time / secondsOfADay);
        }
        int loops = 0;
        for (const auto& days : std::as_const(launchersOf))
            loops += std::any_of(days.cbegin(), days.cend(), [](const QSet<qint64>& one) {
                return one.size() >= daysOfALoop;
            });
        const QJsonValue troubles = report["troubles"];
        QVERIFY(loops > 0 && broken > 0 && !ahead.isEmpty());
        QCOMPARE(elementOf(troubles, "id", "launcher-loop")["players"].toInt(), loops);
        QCOMPARE(elementOf(troubles, "id", "download-broken")["count"].toInt(), broken);
        QCOMPARE(elementOf(troubles, "id", "download-broken")["players"].toInt(), breakers.size());
        QCOMPARE(elementOf(troubles, "id", "clock-ahead")["players"].toInt(), ahead.size());
        for (const char* id : { "server-error", "client-error", "no-launcher", "dated-ahead" })
            QVERIFY2(elementOf(troubles, "id", id).isEmpty(), id);
    }

    void compareAll(const QString& name)
    {
        server = WebServers::communityServer(name);
        beginPlayers();
        live(name);
        if (QTest::currentTestFailed())
            return;
        const QList<Met> account = accountOf(accountFile);
        const QJsonObject report = reported();
        QCOMPARE(report["logs"]["wrong"].toInt(), 0);
        QSet<int> online;
        for (const Met& met : account)
            online.insert(met.player);
        QCOMPARE(report["players"].toInt(), online.size());
        const QJsonValue adoption = report["adoption"];
        compareAdoption(
            elementOf(adoption, "track", "live"), Truth(account, "/patch.ini", manifests));
        compareAdoption(
            elementOf(adoption, "track", "launcher"), Truth(account, '/' + program, launchers),
            name == "caddy");
        compareTroubles(report, account);
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
        manifests.clear();
        launchers.clear();
        logs.clear();
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
