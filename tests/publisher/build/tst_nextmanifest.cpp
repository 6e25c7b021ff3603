#include "publisher/build/build.h"
#include "tests/publisher/buildfixture.h"
#include "tests/publisher/commandrun.h"
#include "tests/support/applicationfolder.h"
#include "tests/support/testmain.h"

#include <QFile>
#include <QJsonArray>
#include <QJsonObject>

using namespace TestSupport;
using namespace BuildFixture;
using namespace Publisher;

namespace {

const QString live = "patch.ini";
const QString next = "patch-next.ini";

BuildReport publishedNext()
{
    BuildRequest wanted = request();
    wanted.next = true;
    return published(wanted);
}

qsizetype publications()
{
    return CommandRun({ "history", server(), "--json" }).json["publications"].toArray().size();
}

} // namespace

/// A manifest beside the one that is live.
class tst_NextManifest : public QObject {
    Q_OBJECT

private slots:
    void init()
    {
        ApplicationFolder::clear();
        put("Data/a.mpq", "first");
        put("Data/b.mpq", "other");
        published();
        old = placeOf("Data/a.mpq");
        put("Data/a.mpq", "second");
    }

    /// All its files are there, and those who are not meant notice nothing.
    void standsBesideTheLiveOne()
    {
        const QByteArray before = readFile(server(live));
        const QDateTime date = dateOf(server(live));
        const BuildReport report = publishedNext();
        QCOMPARE(pathsOf(report.changed), QStringList("Data/a.mpq"));
        QVERIFY(report.manifestChanged);
        QCOMPARE(readFile(server(live)), before);
        QCOMPARE(dateOf(server(live)), date);
        QCOMPARE(readFile(server(old)), "first");
        QCOMPARE(readFile(server(placeOf("Data/a.mpq"))), "second");
        QVERIFY(readFile(server(next)).contains(md5("second").toLatin1()));
    }

    /// It is what the live one becomes, byte by byte.
    void becomesTheLiveOne()
    {
        publishedNext();
        const QByteArray text = readFile(server(next));
        const BuildReport report = published();
        QCOMPARE(readFile(server(live)), text);
        QVERIFY(!QFile::exists(server(next)));
        QVERIFY2(report.notes.join(' ').contains(next), qPrintable(report.notes.join(' ')));
    }

    void isNoPublicationYet()
    {
        const QMap<QString, QByteArray> before = filesBelow(server(".halden-history"));
        publishedNext();
        QCOMPARE(filesBelow(server(".halden-history")), before);
        QCOMPARE(publications(), 1);
        published();
        QCOMPARE(publications(), 2);
    }

    /// The difference is what players with the live one will fetch, again and again.
    void isComparedWithTheLiveOne()
    {
        publishedNext();
        put("Data/c.mpq", "third");
        const BuildReport report = publishedNext();
        QCOMPARE(pathsOf(report.changed), QStringList("Data/a.mpq"));
        QCOMPARE(pathsOf(report.added), QStringList("Data/c.mpq"));
        QVERIFY(report.manifestChanged);
        QVERIFY(!publishedNext().manifestChanged);
    }

    /// A mend of what is live does not end the trial, and pruning leaves its files.
    void outlivesAnotherPublication()
    {
        publishedNext();
        const QByteArray text = readFile(server(next));
        const QString itsFile = placeOf("Data/a.mpq");
        put("Data/a.mpq", "mended");
        BuildRequest pruning = request();
        pruning.prune = true;
        pruning.keep = 1;
        const BuildReport report = published(pruning);
        QCOMPARE(readFile(server(next)), text);
        QCOMPARE(readFile(server(itsFile)), "second");
        QCOMPARE(pathsOf(report.pruned), QStringList(old));
        QVERIFY2(report.notes.join(' ').contains(next), qPrintable(report.notes.join(' ')));
    }

    void isForgottenWhenItIsWithdrawn()
    {
        publishedNext();
        const QString itsFile = placeOf("Data/a.mpq");
        QVERIFY(QFile::remove(server(next)));
        put("Data/a.mpq", "mended");
        BuildRequest pruning = request();
        pruning.prune = true;
        pruning.keep = 1;
        const BuildReport report = published(pruning);
        QVERIFY(pathsOf(report.pruned).contains(itsFile));
        QCOMPARE(report.notes, QStringList());
    }

    void dryRunLeavesIt()
    {
        publishedNext();
        const QMap<QString, QByteArray> before = servedFiles();
        BuildRequest dry = request();
        dry.dryRun = true;
        published(dry);
        QCOMPARE(servedFiles(), before);
    }

    /// `check` looks at it as at the live one, and tells what a start costs.
    void isChecked()
    {
        publishedNext();
        QVERIFY(QFile::remove(server(placeOf("Data/a.mpq"))));
        const CommandRun checked({ "check", server(), "--json", "--accept", "info-missing",
                                   "--accept", "launcher-file-missing" });
        const QJsonArray manifests = checked.json["manifests"].toArray();
        QCOMPARE(manifests.size(), 2);
        QCOMPARE(manifests.at(1)["manifest"].toString(), next);
        QCOMPARE(manifests.at(1)["bytesPerStart"].toInteger(), 2 * readFile(server(next)).size());
        const QJsonArray findings = checked.json["findings"].toArray();
        QStringList found;
        for (const auto& value : findings) {
            const QJsonObject finding = value.toObject();
            found.append(finding["id"].toString() + ' ' + finding["subject"].toString());
        }
        QVERIFY2(found.contains("file-not-published " + next), qPrintable(found.join(", ")));
        const CommandRun told({ "check", server() });
        QVERIFY2(
            told.text.contains("A start of a player who has everything fetches"),
            qPrintable(told.text));
    }

    void usage_data()
    {
        QTest::addColumn<QStringList>("options");
        QTest::newRow("for testers") << QStringList{ "--kind", "test" };
        QTest::newRow("with pruning") << QStringList{ "--prune" };
    }

    void usage()
    {
        QFETCH(QStringList, options);
        const CommandRun refused(
            QStringList{ "build", source(), server(), "--no-flush", "--next" } + options);
        QCOMPARE(refused.code, ExitCode::Usage);
        QVERIFY(!QFile::exists(server(next)));
        const CommandRun taken({ "build", source(), server(), "--no-flush", "--next" });
        QCOMPARE(taken.code, ExitCode::Fine);
        QVERIFY2(taken.text.contains(next), qPrintable(taken.text));
    }

private:
    QString old;
};

HALDEN_TEST_MAIN(tst_NextManifest)
#include "tst_nextmanifest.moc"
