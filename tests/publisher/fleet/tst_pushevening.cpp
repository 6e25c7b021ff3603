#include "publisher/fleet/pushedtree.h"
#include "tests/publisher/buildfixture.h"
#include "tests/publisher/fleet/crowd.h"
#include "tests/publisher/fleet/pushfixture.h"
#include "tests/support/applicationfolder.h"
#include "tests/support/certificateauthority.h"
#include "tests/support/testmain.h"

#include <QRandomGenerator>

using namespace TestSupport;
using namespace PushFixture;

/// An evening on which new publications are pushed while hundreds of players start.
class tst_PushEvening : public QObject {
    Q_OBJECT

private slots:
    void initTestCase()
    {
        trustedCertificate();
    }

    void init()
    {
        layOut();
        publish({ "--kind", "test" });
        fleet.start();
        pushWell(fleet);
    }

    void everybodyEndsWithWhatIsPublished_data()
    {
        QTest::addColumn<bool>("withLauncher");
        QTest::addColumn<int>("clocksAhead"); // percent
        QTest::newRow("patches") << false << 10;
        // Who has a launcher of the future gets no other until then.
        QTest::newRow("patches and a launcher") << true << 0;
    }

    void everybodyEndsWithWhatIsPublished()
    {
        QFETCH(bool, withLauncher);
        QFETCH(int, clocksAhead);
        Crowd crowd(
            addresses(),
            { "--players", players(), "--spread", "10", "--pause", "10", "--testers", "10",
              "--clocks-ahead", QString::number(clocksAhead) });
        crowd.awaitRequests(aFew);
        moveOn();
        if (withLauncher)
            release("2");
        const qint64 before = crowd.requests();
        pushWell(fleet, { "--pause", "10" });
        QVERIFY(crowd.requests() > before);
        BuildFixture::put("Data/changed.mpq", QByteArray(100 << 10, 'o'));
        BuildFixture::put("Data/last.mpq", "last");
        publish();
        publish({ "--kind", "test", "--yes-remove", "1" });
        pushWell(fleet, { "--pause", "0" });
        crowd.awaitRequests(aFew);
        const QJsonObject report = crowd.end();
        QCOMPARE(Crowd::harm(report), QString());
        QCOMPARE(report["failures"].toObject(), QJsonObject());
        QVERIFY(report["starts"].toInteger() > 2 * players().toLongLong());
    }

    /// Publications and roll-backs at random; what nobody names goes from the servers, so
    /// who still has a former manifest may miss a file until the next start.
    void everybodyFollowsTenPublications()
    {
        QRandomGenerator chance(2026);
        Crowd crowd(addresses(), { "--players", "40", "--pause", "10", "--testers", "10" });
        crowd.awaitRequests(100);
        for (int round = 1; round <= 10; ++round) {
            publishByChance(round, chance);
            pushWell(
                fleet, { "--pause", "4", "--prune-after", QString::number(chance.bounded(2)) });
            for (const QString& name : fleet.names())
                QCOMPARE(differenceFromTree(name), QString());
        }
        QJsonObject report = crowd.end();
        report.remove("missing");
        QCOMPARE(Crowd::harm(report), QString());
        // No manifest has named more than this one's since the last push.
        pushWell(fleet, { "--prune-after", "0" });
        for (const QString& name : fleet.names())
            QCOMPARE(leftOver(name), QStringList());
    }

private:
    static void publishByChance(int round, QRandomGenerator& chance)
    {
        if (round > 2 && chance.bounded(3) == 0) {
            rollBack(1 + chance.bounded(round - 2));
            return;
        }
        const QByteArray content = QByteArray::number(round).repeated(1 + chance.bounded(50'000));
        BuildFixture::put("Data/" + QString::number(chance.bounded(4)) + ".mpq", content);
        if (chance.bounded(4) == 0)
            release(QByteArray::number(round));
        publish();
    }

    /// Patch files that a server has and the tree's manifests do not name.
    static QStringList leftOver(const QString& name)
    {
        const auto named = Publisher::PushedTree::read(BuildFixture::server()).content;
        QStringList left = filesOf(name).keys();
        left.removeIf([&](const QString& path) {
            return !path.startsWith("wow-client-patch/") || named.contains(path);
        });
        return left;
    }

    static constexpr qint64 aFew = 1000;

    static QString players()
    {
        return qEnvironmentVariable("HALDEN_PLAYERS_OF_AN_EVENING", "300");
    }

    QStringList addresses() const
    {
        QStringList all;
        for (const QString& name : fleet.names())
            all.append(Fleet::address(name));
        return all;
    }

    Fleet fleet;
};

HALDEN_TEST_MAIN(tst_PushEvening)
#include "tst_pushevening.moc"
