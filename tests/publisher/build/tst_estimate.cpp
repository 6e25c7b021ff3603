#include "publisher/build/estimate.h"
#include "tests/publisher/buildfixture.h"
#include "tests/publisher/commandrun.h"
#include "tests/support/applicationfolder.h"
#include "tests/support/testmain.h"

#include <QFile>
#include <QFileInfo>

using namespace TestSupport;
using namespace BuildFixture;
using namespace Publisher;

namespace {

constexpr qint64 mebibyte = 1 << 20;

EstimateRequest asked(std::optional<int> since = std::nullopt)
{
    EstimateRequest wanted;
    wanted.server = server();
    wanted.since = since;
    return wanted;
}

Estimate estimated(const EstimateRequest& wanted = asked())
{
    Estimate result;
    const Problem problem = estimate(wanted, result);
    if (problem)
        qFatal("%s", qPrintable(*problem));
    return result;
}

CommandRun start(const QStringList& options)
{
    return CommandRun(QStringList{ "estimate", server(), "--json" } + options);
}

} // namespace

/// What a publication costs, before players fetch it.
class tst_Estimate : public QObject {
    Q_OBJECT

private slots:
    void init()
    {
        ApplicationFolder::clear();
        put("Data/large.mpq", QByteArray(mebibyte, 'a'));
        put("Data/small.mpq", "small");
        published();
    }

    void firstPublicationIsNewForEveryone()
    {
        const Estimate told = estimated();
        QCOMPARE(told.since, 0);
        for (const PlayersShare& share : { told.updating, told.anew }) {
            QCOMPARE(share.files, 2);
            QCOMPARE(share.fileBytes, mebibyte + 5);
            // The window's text, and updater, launcher, manifest and the files twice.
            QCOMPARE(share.requests, 11);
        }
    }

    void onlyWhatHasChangedIsFetched()
    {
        put("Data/small.mpq", "another");
        published();
        put("Data/new.mpq", "new");
        published();
        const Estimate told = estimated();
        QCOMPARE(told.since, 2);
        QCOMPARE(told.updating.files, 1);
        QCOMPARE(told.updating.fileBytes, 3);
        QCOMPARE(told.updating.requests, 9);
        QCOMPARE(told.anew.files, 3);

        const Estimate older = estimated(asked(1));
        QCOMPARE(older.since, 1);
        QCOMPARE(older.updating.files, 2);
        QCOMPARE(older.updating.fileBytes, 10);
    }

    /// Every file twice, the manifest twice, and what each connection costs.
    void bytesOnTheLine()
    {
        const qint64 manifest = QFileInfo(server("patch.ini")).size();
        const qint64 content = 2 * (mebibyte + 5 + manifest);
        const qint64 line = estimated().anew.bytes;
        const auto overhead = static_cast<double>(line - content);
        // 6 % of the content, and 4 to 6 KiB for each of 11 connections.
        QVERIFY2(
            overhead > 0.05 * static_cast<double>(content) + 11 * 4096,
            qPrintable(QString::number(line)));
        QVERIFY2(
            overhead < 0.07 * static_cast<double>(content) + 11 * 6144,
            qPrintable(QString::number(line)));
    }

    void servingTime_data()
    {
        QTest::addColumn<qint64>("servers");
        QTest::addColumn<qint64>("connections");
        QTest::addColumn<double>("seconds");
        QTest::addColumn<qint64>("serversForAMinute");
        QTest::newRow("by the line") << qint64(1) << qint64(1000) << 80.0 << qint64(2);
        QTest::newRow("by connections") << qint64(1) << qint64(10) << 200.0 << qint64(4);
        QTest::newRow("by the lines of two") << qint64(2) << qint64(1000) << 40.0 << qint64(2);
    }

    /// 100 players, a million bytes and 20 connections each, 10 Mbit/s.
    void servingTime()
    {
        QFETCH(qint64, servers);
        QFETCH(qint64, connections);
        EstimateRequest wanted;
        wanted.players = 100;
        wanted.line = 10;
        wanted.servers = servers;
        wanted.connections = connections;
        PlayersShare share;
        share.bytes = 1'000'000;
        share.requests = 20;
        const ServingTime time = ServingTime::of(wanted, share);
        QTEST(time.seconds(), "seconds");
        QTEST(time.serversFor(60, servers), "serversForAMinute");
    }

    void waitingTime_data()
    {
        QTest::addColumn<qint64>("roundTrip");
        QTest::addColumn<double>("megabits");
        QTest::addColumn<double>("seconds");
        QTest::newRow("no distance") << qint64(0) << 8.0 << 10.0;
        // Ten requests in each run, four round trips each.
        QTest::newRow("far away") << qint64(100) << 8.0 << 14.0;
        QTest::newRow("wide line") << qint64(100) << 80.0 << 5.0;
    }

    /// Ten million bytes and 21 connections, of which one is not of a run.
    void waitingTime()
    {
        QFETCH(qint64, roundTrip);
        QFETCH(double, megabits);
        EstimateRequest wanted;
        wanted.roundTrip = roundTrip;
        wanted.playersLine = megabits;
        PlayersShare share;
        share.bytes = 10'000'000;
        share.requests = 21;
        QTEST(Publisher::waitingTime(wanted, share), "seconds");
    }

    void missing_data()
    {
        QTest::addColumn<QString>("file");
        QTest::newRow("manifest") << "patch.ini";
        QTest::newRow("patch file") << placeOf("Data/small.mpq");
    }

    void missing()
    {
        QFETCH(QString, file);
        QVERIFY(QFile::remove(server(file)));
        const CommandRun run = start({ "--players", "10", "--line", "100" });
        QCOMPARE(run.code, ExitCode::InputOutput);
        QVERIFY2(run.messages.contains(server(file)), qPrintable(run.messages));
    }

    void commandTells()
    {
        const QJsonObject told = start({ "--players", "1000", "--line", "100" }).json;
        const QJsonObject anew = told.value("anew").toObject();
        QCOMPARE(anew.value("files").toInt(), 2);
        const double bytes = anew.value("bytes").toDouble();
        QCOMPARE(anew.value("lineSeconds").toDouble(), 1000 * bytes * 8 / 100e6);
        QCOMPARE(anew.value("connectionSeconds").toDouble(), 1000 * 11 / 500.0);
        QCOMPARE(anew.value("serversForAnEvening").toInt(), 1);
        QCOMPARE(anew.value("waitingSeconds").toDouble(), 5 * 4 * 0.03 + bytes * 8 / 50e6);

        const CommandRun text({ "estimate", server(), "--players", "1000", "--line", "100" });
        QVERIFY2(text.text.contains("A new player lacks 2 files, 1.0 MiB."), qPrintable(text.text));
        QVERIFY2(
            text.text.contains("A player with 50 Mbit/s and 30 ms waits 1.0 seconds."),
            qPrintable(text.text));
        QVERIFY2(
            text.text.contains("1000 such players: 3 minutes by the lines, 22 seconds by the "
                               "connections; servers for an evening: 1."),
            qPrintable(text.text));
    }

    void senselessCommandLines_data()
    {
        QTest::addColumn<QStringList>("options");
        QTest::addColumn<QString>("words");
        QTest::newRow("no players") << QStringList{ "--line", "1" } << "--players";
        QTest::newRow("no line") << QStringList{ "--players", "1" } << "--line";
        QTest::newRow("no players at all")
            << QStringList{ "--line", "1", "--players", "0" } << "--players";
        QTest::newRow("no connections")
            << QStringList{ "--line", "1", "--players", "1", "--connections", "0" }
            << "--connections";
    }

    void senselessCommandLines()
    {
        QFETCH(QStringList, options);
        QFETCH(QString, words);
        const CommandRun run = start(options);
        QCOMPARE(run.code, ExitCode::Usage);
        QVERIFY2(run.messages.contains(words), qPrintable(run.messages));
    }

    void unknownPublication()
    {
        const CommandRun run = start({ "--line", "1", "--players", "1", "--since", "7" });
        QCOMPARE(run.code, ExitCode::InputOutput);
        QVERIFY2(run.messages.contains("no publication 7"), qPrintable(run.messages));
    }
};

HALDEN_TEST_MAIN(tst_Estimate)
#include "tst_estimate.moc"
