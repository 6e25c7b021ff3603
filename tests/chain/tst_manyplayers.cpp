#include "tests/support/applicationfolder.h"
#include "tests/support/testmain.h"
#include "tests/world/community.h"
#include "tests/world/launcherprocess.h"
#include "tests/world/player.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>

using TestSupport::writeFile;

namespace {

constexpr int patience = 60'000; // milliseconds

/// The first answer to each address, in order. The two runs overtake each other, and
/// the one behind asks by what the other has written already: its answers vary.
QStringList firstAnswers(const QStringList& requests)
{
    QStringList asked;
    QStringList answers;
    for (const QString& request : requests) {
        const QString address = request.section(' ', 1);
        if (!asked.contains(address))
            answers.append(request);
        asked.append(address);
    }
    for (const QString& address : std::as_const(asked)) {
        if (asked.count(address) > 2)
            answers.append("more than twice: " + address);
    }
    return answers;
}

} // namespace

/// The program that plays hundreds of players against the launcher as players get it.
class tst_ManyPlayers : public QObject {
    Q_OBJECT

private:
    Community community;
    Player player;
    QProcess many;

    void begin(const QStringList& options)
    {
        many.start(
            HALDEN_PLAYERS,
            QStringList{ "--by-line", "--starts", "0", "--authority", "/run/halden/authority.pem",
                         "--truth", community.path({}) }
                + options);
        QVERIFY(many.waitForStarted());
    }

    /// One start of everybody.
    bool playOnce()
    {
        many.write("\n");
        while (!many.canReadLine()) {
            if (!many.waitForReadyRead(patience))
                return false;
        }
        return many.readLine() == "played\n";
    }

    QJsonObject report()
    {
        many.closeWriteChannel();
        many.waitForFinished(patience);
        return QJsonDocument::fromJson(many.readAllStandardOutput()).object();
    }

    QStringList takeRequests()
    {
        QStringList requests = community.requests();
        community.forgetRequests();
        return requests;
    }

    static void startLauncher(const Player& player)
    {
        LauncherProcess launcher;
        launcher.start();
        QVERIFY2(launcher.waitForBothRuns(player), qPrintable(launcher.lastLines()));
        launcher.stop();
    }

private slots:
    void init()
    {
        TestSupport::ApplicationFolder::clear();
        community.publish();
        player.settle();
        community.start();
        community.forgetRequests();
    }

    void cleanup()
    {
        many.kill();
        many.waitForFinished();
        community.stop();
    }

    /// Addresses and answers, in their order.
    void conversationIsTheLaunchers()
    {
        begin({ "--testers", "100", "--settled" });
        for (const QString& day :
             { QString("first"), QString("nothing new"), QString("a new patch") }) {
            if (day == "a new patch") {
                writeFile(Community::sourcePath("live", "Data/new.mpq"), "new");
                writeFile(Community::sourcePath("test", "Data/new for testers.mpq"), "new");
                community.publishChanges();
            }
            community.forgetRequests();
            startLauncher(player);
            const QStringList launchers = takeRequests();
            QVERIFY(playOnce());
            const QStringList ours = takeRequests();
            QCOMPARE(firstAnswers(ours), firstAnswers(launchers));
        }
        const QJsonObject told = report();
        QCOMPARE(told["starts"].toInt(), 3);
        QCOMPARE(told["stranded"].toArray(), QJsonArray());
    }

    /// Whoever has no launcher of today gets the published one, is started again with
    /// it, and does not get it once more.
    void launcherIsExchangedOnce()
    {
        begin({ "--players", "20" });
        QVERIFY(playOnce());
        QVERIFY(playOnce());
        const QJsonObject told = report();
        QCOMPARE(told["starts"].toInt(), 60);
        QCOMPARE(told["launchersTwice"].toInt(), 0);
        QCOMPARE(told["wrong"].toInt(), 0);
        QCOMPARE(told["missing"].toInt(), 0);
        QCOMPARE(told["stranded"].toArray(), QJsonArray());
    }

    void whoIsDueWaits()
    {
        const QString log = TestSupport::ApplicationFolder::path("account");
        begin({ "--players", "5", "--settled", "--at-once", "1", "--log", log });
        QVERIFY(playOnce());
        report();
        QByteArrayList turns;
        const QByteArrayList lines = TestSupport::readFile(log).trimmed().split('\n');
        for (const QByteArray& line : lines) {
            const QByteArray whose = line.split(' ').constFirst();
            if (turns.isEmpty() || turns.constLast() != whose)
                turns.append(whose);
        }
        QCOMPARE(turns.size(), 5);
    }

    void whatGoesWrongIsTold_data()
    {
        QTest::addColumn<bool>("isThere");
        QTest::addColumn<int>("wrong");
        QTest::addColumn<int>("missing");
        QTest::newRow("another content") << true << 6 << 0;
        QTest::newRow("no file") << false << 0 << 6;
    }

    /// By each of the two runs of three players.
    void whatGoesWrongIsTold()
    {
        QFETCH(bool, isThere);
        const QString file = community.patchPath("live", "Data/Größe der Welt.MPQ");
        QVERIFY(QFile::remove(file));
        if (isThere)
            writeFile(file, "something else");
        begin({ "--players", "3", "--settled" });
        QVERIFY(playOnce());
        const QJsonObject told = report();
        QTEST(told["wrong"].toInt(), "wrong");
        QTEST(told["missing"].toInt(), "missing");
        const QJsonArray stranded = told["stranded"].toArray();
        QCOMPARE(stranded.size(), 3);
        QCOMPARE(stranded.first()["has"].toArray().size(), 1);
    }
};

HALDEN_TEST_MAIN(tst_ManyPlayers)
#include "tst_manyplayers.moc"
