#include "tests/publisher/buildfixture.h"
#include "tests/publisher/fleet/pushfixture.h"
#include "tests/support/applicationfolder.h"
#include "tests/support/certificateauthority.h"
#include "tests/support/testmain.h"

#include <QJsonArray>

#include <algorithm>

using namespace TestSupport;
using namespace PushFixture;
using BuildFixture::server;
using Publisher::ExitCode;

namespace {

QStringList verdicts(const CommandRun& run)
{
    QStringList words;
    const QJsonArray servers = run.json.value("servers").toArray();
    for (const auto& one : servers)
        words.append(one.toObject().value("verdict").toString());
    return words;
}

const QString patchFolder = "wow-client-patch";

QByteArray launcherMd5(const QByteArray& version)
{
    return md5(readFile("/usr/bin/true") + version + "launcher").toLatin1();
}

} // namespace

/// A push to three real servers, one folder and two reached by SFTP.
class tst_Push : public QObject {
    Q_OBJECT

private slots:
    void initTestCase()
    {
        trustedCertificate();
    }

    void init()
    {
        layOut();
        fleet.start();
    }

    /// The manifest that a share of the players gets comes and goes with the tree's.
    void bringsWhatIsToCome()
    {
        pushWell(fleet);
        BuildFixture::put("Data/changed.mpq", "what is to come");
        publish({ "--next" });
        pushWell(fleet);
        for (const QString& name : fleet.names()) {
            QCOMPARE(differenceFromTree(name), QString());
            QCOMPARE(filesOf(name).value("patch-next.ini"), readFile(server("patch-next.ini")));
            QVERIFY(filesOf(name).contains(BuildFixture::placeOf("Data/changed.mpq")));
        }
        publish();
        pushWell(fleet);
        for (const QString& name : fleet.names()) {
            QCOMPARE(differenceFromTree(name), QString());
            QVERIFY(!filesOf(name).contains("patch-next.ini"));
        }
    }

    void bringsEverythingToAllServers()
    {
        const CommandRun first = push(fleet);
        QVERIFY2(first.code == ExitCode::Fine, qPrintable(all(first)));
        for (const QString& name : fleet.names())
            QCOMPARE(differenceFromTree(name), QString());
        QVERIFY2(first.text.contains("no findings"), qPrintable(first.text));
        for (const QString& name : fleet.names())
            QVERIFY2(
                first.text.contains(QRegularExpression("\n" + name + " +7 .*switched\n")),
                qPrintable(first.text));
        moveOn();
        const CommandRun second = push(fleet, { "--json" });
        QVERIFY2(second.code == ExitCode::Fine, qPrintable(all(second)));
        for (const QString& name : fleet.names())
            QCOMPARE(differenceFromTree(name), QString());
        const QJsonObject row = second.json.value("servers").toArray().first().toObject();
        // Two patch files and the manifest.
        QCOMPARE(row.value("files").toInt(), 3);
        QCOMPARE(row.value("exchanged").toArray(), QJsonArray{ "patch.ini" });
        publish({ "--kind", "test" });
        const CommandRun third = push(fleet);
        QVERIFY2(third.code == ExitCode::Fine, qPrintable(all(third)));
        for (const QString& name : fleet.names()) {
            QCOMPARE(differenceFromTree(name), QString());
            QVERIFY(!filesOf(name).value("patchTest.ini").isEmpty());
        }
    }

    void leavesAnUnchangedFleetAlone()
    {
        pushWell(fleet);
        const QStringList files{ "patch.ini", "Halden-Launcher.exe", "launcher.info",
                                 "Halden-Launcher-Updater.exe" };
        QList<QDateTime> before;
        for (const QString& name : fleet.names()) {
            for (const QString& file : files)
                before.append(dateOf(name, file));
            // Nothing is left there for a while either.
            before.append(dateOf(name, patchFolder));
        }
        const CommandRun again = push(fleet, { "--json" });
        QVERIFY2(again.code == ExitCode::Fine, qPrintable(all(again)));
        QCOMPARE(verdicts(again), QStringList({ "unchanged", "unchanged", "unchanged" }));
        QList<QDateTime> after;
        for (const QString& name : fleet.names()) {
            for (const QString& file : files)
                after.append(dateOf(name, file));
            after.append(dateOf(name, patchFolder));
        }
        QCOMPARE(after, before);
    }

    void healsWhatServersHaveLostSince()
    {
        pushWell(fleet);
        QVERIFY(QFile::remove(Fleet::path("alder", BuildFixture::placeOf("Data/same.mpq"))));
        writeFile(Fleet::path("birch", BuildFixture::placeOf("Data/changed.mpq")), "foreign");
        QVERIFY(QFile::remove(Fleet::path("cedar", "launcher.info")));
        pushWell(fleet);
        for (const QString& name : fleet.names())
            QCOMPARE(differenceFromTree(name), QString());
    }

    void datesManifestsBehindTheLastOfTheOld()
    {
        pushWell(fleet);
        const QByteArray old = md5(readFile(server("patch.ini"))).toLatin1();
        moveOn();
        Watcher watcher(fleet, "patch.ini");
        const CommandRun run = push(fleet);
        watcher.stop();
        QVERIFY2(run.code == ExitCode::Fine, qPrintable(all(run)));
        QCOMPARE(watcher.broken(), QStringList());
        const QDateTime date = dateOf("alder", "patch.ini");
        int seenOld = 0;
        for (const Sighting& sighting : watcher.sightings()) {
            if (sighting.md5 != old)
                continue;
            ++seenOld;
            // The copy bears the whole second in which it has arrived.
            QVERIFY(sighting.asked.toSecsSinceEpoch() < date.toSecsSinceEpoch());
        }
        QVERIFY(seenOld > 0);
        for (const QString& name : fleet.names())
            QCOMPARE(dateOf(name, "patch.ini"), date);
    }

    void letsNobodyMissALauncherOrFetchItTwice()
    {
        pushWell(fleet);
        release("2");
        Watcher watcher(fleet, "Halden-Launcher.exe");
        const CommandRun run = push(fleet, { "--pause", "4" });
        watcher.stop();
        QVERIFY2(run.code == ExitCode::Fine, qPrintable(all(run)));
        const QDateTime date = dateOf("alder", "Halden-Launcher.exe");
        int withoutAny = 0;
        for (const Sighting& sighting : watcher.sightings()) {
            withoutAny += sighting.status == 404 ? 1 : 0;
            if (sighting.md5 == launcherMd5("1"))
                QVERIFY(sighting.asked.toSecsSinceEpoch() < date.toSecsSinceEpoch());
            if (sighting.md5 == launcherMd5("2")) {
                QVERIFY(sighting.answered.toSecsSinceEpoch() >= date.toSecsSinceEpoch());
                QCOMPARE(sighting.lastModified, date.toUTC());
            }
        }
        QVERIFY(withoutAny > 0);
        QCOMPARE(watcher.sightings().constLast().md5, launcherMd5("2"));
        for (const QString& name : fleet.names())
            QCOMPARE(dateOf(name, "Halden-Launcher.exe"), date);
    }

    void renewsWhatTheTreeHasRenewed()
    {
        pushWell(fleet);
        const QDateTime manifest = dateOf("cedar", "patch.ini");
        const QDateTime launcher = dateOf("cedar", "Halden-Launcher.exe");
        publish({ "--renew" });
        const CommandRun run = push(fleet, { "--pause", "0" });
        QVERIFY2(run.code == ExitCode::Fine, qPrintable(all(run)));
        QVERIFY(dateOf("cedar", "patch.ini") > manifest);
        QCOMPARE(dateOf("cedar", "Halden-Launcher.exe"), launcher);
        const CommandRun renewed({ "build-launcher", server(), "--renew", "--no-flush",
                                   "--launcher", ApplicationFolder::path("launcher"), "--updater",
                                   ApplicationFolder::path("updater") });
        QVERIFY2(renewed.code == ExitCode::Fine, qPrintable(all(renewed)));
        pushWell(fleet, { "--pause", "0" });
        QVERIFY(dateOf("cedar", "Halden-Launcher.exe") > launcher);
    }

    void givesALateServerTheDateOfTheOthers()
    {
        pushWell(fleet);
        moveOn();
        release("2");
        const CommandRun partly = push(fleet, { "--pause", "0", "--without", "birch" });
        QVERIFY2(partly.code == ExitCode::Fine, qPrintable(all(partly)));
        QVERIFY2(
            partly.text.contains("birch is left out: players must not be sent there"),
            qPrintable(partly.text));
        QVERIFY(differenceFromTree("birch").contains("is not as in the tree"));
        const QDateTime launcher = dateOf("alder", "Halden-Launcher.exe");
        const CommandRun healed = push(fleet, { "--json" });
        QVERIFY2(healed.code == ExitCode::Fine, qPrintable(all(healed)));
        QCOMPARE(verdicts(healed), QStringList({ "unchanged", "switched", "unchanged" }));
        for (const QString& name : fleet.names()) {
            QCOMPARE(differenceFromTree(name), QString());
            QCOMPARE(dateOf(name, "Halden-Launcher.exe"), launcher);
            QCOMPARE(dateOf(name, "patch.ini"), dateOf("alder", "patch.ini"));
        }
    }

    void clearsAwayWhatACutOffPushHasLeft()
    {
        const QString rest = ".halden-push/of a publication that never was";
        for (const QString& name : fleet.names())
            writeFile(Fleet::path(name, rest), "rest");
        pushWell(fleet);
        for (const QString& name : fleet.names())
            QCOMPARE(differenceFromTree(name), QString());
    }

    void tellsWithoutWriting()
    {
        const CommandRun run = push(fleet, { "--dry-run", "--json" });
        QVERIFY2(run.code == ExitCode::Fine, qPrintable(all(run)));
        for (const QString& name : fleet.names())
            QCOMPARE(filesOf(name).size(), 0);
        QCOMPARE(verdicts(run), QStringList({ "would change", "would change", "would change" }));
        const QJsonObject row = run.json.value("servers").toArray().first().toObject();
        QCOMPARE(row.value("files").toInt(), 7);
        QVERIFY(row.value("bytes").toInt() > 0);
    }

    void removesWhatNobodyHasNamedForLong()
    {
        const QString dropped = BuildFixture::placeOf("Data/dropped.mpq");
        pushWell(fleet);
        moveOn();
        pushWell(fleet, { "--prune-after", "1" });
        for (const QString& name : fleet.names())
            QVERIFY(filesOf(name).contains(dropped));
        // As if the day were over.
        const QString record = server(".halden-history/last-named");
        const QString before = QDateTime::currentDateTimeUtc().addDays(-2).toString(Qt::ISODate);
        QByteArray lines = readFile(record);
        const qsizetype place = lines.indexOf(dropped.toUtf8());
        QVERIFY(place > 0);
        lines.replace(place - 1 - before.size(), before.size(), before.toUtf8());
        writeFile(record, lines);
        pushWell(fleet);
        for (const QString& name : fleet.names())
            QVERIFY(filesOf(name).contains(dropped));
        const CommandRun pruned = push(fleet, { "--prune-after", "1" });
        QVERIFY2(pruned.code == ExitCode::Fine, qPrintable(all(pruned)));
        for (const QString& name : fleet.names()) {
            QVERIFY(!filesOf(name).contains(dropped));
            QCOMPARE(differenceFromTree(name), QString());
        }
        QVERIFY2(pruned.text.contains("alder: 1 files pruned"), qPrintable(pruned.text));
    }

private:
    Fleet fleet;
};

HALDEN_TEST_MAIN(tst_Push)
#include "tst_push.moc"
