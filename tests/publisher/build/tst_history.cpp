#include "publisher/build/history.h"
#include "publisher/common/names.h"
#include "tests/publisher/buildfixture.h"
#include "tests/publisher/commandrun.h"
#include "tests/support/applicationfolder.h"
#include "tests/support/testmain.h"

#include <QDir>
#include <QFileInfo>
#include <QJsonArray>
#include <QRegularExpression>

using namespace TestSupport;
using namespace BuildFixture;
using namespace Publisher;

namespace {

QByteArray live()
{
    return readFile(server("patch.ini"));
}

/// Publishes a content of the one file that all publications have.
void publish(const QByteArray& content, const QString& message = {}, Kind kind = Kind::Live)
{
    put("Data/a.mpq", content);
    BuildRequest wanted = request();
    wanted.message = message;
    wanted.kind = kind;
    published(wanted);
}

CommandRun start(const QStringList& arguments)
{
    return CommandRun(arguments + QStringList{ "--json" });
}

/// The fixture's publications are dated ahead; those of the commands take the time
/// of this machine.
void dateBack(const QString& manifest = "patch.ini")
{
    setDate(server(manifest), QDateTime::currentDateTimeUtc().addSecs(-3600));
}

CommandRun rollback(int number, const QStringList& options = {})
{
    dateBack();
    return start(
        QStringList{ "rollback", server(), QString::number(number), "--no-flush" } + options);
}

CommandRun promote(const QStringList& options = {})
{
    if (QFileInfo::exists(server("patch.ini")))
        dateBack();
    dateBack("patchTest.ini");
    return start(QStringList{ "promote", server(), "--no-flush" } + options);
}

QJsonArray history(const QString& kind = "live")
{
    return start({ "history", server(), "--kind", kind }).json.value("publications").toArray();
}

QStringList messages(const QString& kind = "live")
{
    QStringList texts;
    const QJsonArray publications = history(kind);
    for (const QJsonValue publication : publications)
        texts.append(
            publication["message"].toString() + (publication["isLive"].toBool() ? "*" : ""));
    return texts;
}

QStringList refusals(const CommandRun& run)
{
    QStringList ids;
    const QJsonArray all = run.json.value("refusals").toArray();
    for (const QJsonValue refusal : all)
        ids.append(refusal["id"].toString());
    return ids;
}

} // namespace

class tst_History : public QObject {
    Q_OBJECT

private slots:
    void init()
    {
        QTest::failOnWarning(QRegularExpression(".*"));
        ApplicationFolder::clear();
    }

    void keepsEveryPublication()
    {
        publish("one", "first");
        const QByteArray first = live();
        publish("two", "second");
        QCOMPARE(messages(), QStringList({ "first", "second*" }));
        const QJsonValue entry = history().at(0);
        QCOMPARE(entry["number"].toInt(), 1);
        QCOMPARE(entry["command"].toString(), QString("build"));
        QVERIFY(entry["who"].toString().contains('@'));
        QVERIFY(QDateTime::fromString(entry["time"].toString(), Qt::ISODate).isValid());
        QCOMPARE(readFile(server(".halden-history/live/1.ini")), first);
    }

    void peopleSeeWhichOneIsLive()
    {
        publish("one", "first");
        publish("two", "second");
        const QStringList lines = CommandRun({ "history", server() }).text.split('\n');
        static const QRegularExpression former("^    1   \\d{4}-.* UTC  .*@.*  build  first$");
        static const QRegularExpression present("^    2\\*  \\d{4}-.* UTC  .*@.*  build  second$");
        QCOMPARE(lines.size(), 3);
        QVERIFY2(former.match(lines.at(0)).hasMatch(), qPrintable(lines.at(0)));
        QVERIFY2(present.match(lines.at(1)).hasMatch(), qPrintable(lines.at(1)));
    }

    void unchangedBuildIsNoPublication()
    {
        publish("one", "first");
        publish("one", "again");
        QCOMPARE(messages(), QStringList("first*"));
    }

    void kindsHaveHistoriesOfTheirOwn()
    {
        publish("one", "for all");
        publish("two", "for testers", Kind::Test);
        QCOMPARE(messages(), QStringList("for all*"));
        QCOMPARE(messages("test"), QStringList("for testers*"));
    }

    /// What has come from elsewhere is kept when it is replaced.
    void manifestFromElsewhereIsKept()
    {
        publish("one");
        QDir(server(".halden-history")).removeRecursively();
        const QByteArray foreign = live();
        publish("two", "ours");
        QCOMPARE(messages(), QStringList({ "", "ours*" }));
        QCOMPARE(readFile(server(".halden-history/live/1.ini")), foreign);
    }

    /// A publisher that dies after its note and before the manifest goes live.
    void whatHasNotGoneLiveIsNoPublication()
    {
        publish("one", "first");
        const QByteArray first = live();
        publish("two", "died");
        writeFile(server("patch.ini"), first);
        QCOMPARE(messages(), QStringList("first*"));
        publish("three", "next");
        QCOMPARE(messages(), QStringList({ "first", "next*" }));
    }

    void showListsTheFiles()
    {
        publish("one");
        const QString md5 = placeOf("Data/a.mpq").section('/', -2, -2);
        publish("two");
        const CommandRun run = start({ "show", server(), "1" });
        QCOMPARE(run.code, ExitCode::Fine);
        const QJsonArray files = run.json.value("files").toArray();
        QCOMPARE(files.size(), 1);
        QCOMPARE(files.at(0)["path"].toString(), QString("Data/a.mpq"));
        QCOMPARE(files.at(0)["md5"].toString(), md5);
    }

    void unknownNumberIsTold_data()
    {
        QTest::addColumn<QString>("number");
        for (const char* number : { "0", "2", "-1", "x", "../1", "01" })
            QTest::newRow(number) << number;
    }

    void unknownNumberIsTold()
    {
        QFETCH(QString, number);
        publish("one");
        for (const char* command : { "show", "rollback" }) {
            const CommandRun run({ command, server(), "--", number });
            QCOMPARE(run.code, ExitCode::Usage);
            QVERIFY2(
                run.messages.contains("there is no publication " + number + "; halden-publish "),
                qPrintable(run.messages));
        }
    }

    void rollBackNeedsNoSourceAndCopiesNothing()
    {
        publish("one", "first");
        const QByteArray first = live();
        publish("two", "second");
        QDir(source()).removeRecursively();
        const QMap<QString, QByteArray> before = filesBelow(server("wow-client-patch"));
        const QDateTime dated = QDateTime::currentDateTimeUtc().addSecs(-3600);
        const CommandRun run = rollback(1, { "--message", "it crashed" });
        QVERIFY2(run.code == ExitCode::Fine, qPrintable(run.text + run.messages));
        QCOMPARE(live(), first);
        QVERIFY(dateOf(server("patch.ini")) > dated.addSecs(1));
        QCOMPARE(filesBelow(server("wow-client-patch")), before);
        QCOMPARE(run.json.value("changed").toArray().at(0).toString(), QString("Data/a.mpq"));
        QCOMPARE(messages(), QStringList({ "first", "second", "it crashed*" }));
        QCOMPARE(history().at(2)["command"].toString(), QString("rollback to 1"));
        // And forth again.
        QCOMPARE(rollback(2).code, ExitCode::Fine);
        QVERIFY(live() != first);
    }

    /// Both update runs of a start fetch what has changed.
    void republicationTellsTheTraffic()
    {
        put("Data/same.mpq", "same");
        publish("one");
        publish("second", {}, Kind::Test);
        publish("third");
        const QJsonObject back = rollback(1, { "--dry-run" }).json;
        QCOMPARE(back["bytesToUpdate"].toInt(), 2 * 3);
        QCOMPARE(back["bytesInAll"].toInt(), 2 * (3 + 4));
        const QJsonObject promoted = promote({ "--dry-run" }).json;
        QCOMPARE(promoted["bytesToUpdate"].toInt(), 2 * 6);
        QCOMPARE(promoted["bytesInAll"].toInt(), 2 * (6 + 4));
        const CommandRun text({ "rollback", server(), "1", "--dry-run" });
        QVERIFY2(
            text.text.contains("A player who is up to date fetches 6 B, a new one 14 B"),
            qPrintable(text.text));
    }

    void rollBackWithoutItsFilesIsRefused_data()
    {
        QTest::addColumn<bool>("remove");
        QTest::addColumn<QString>("id");
        QTest::newRow("pruned") << true << "file-missing";
        QTest::newRow("damaged") << false << "file-wrong";
    }

    void rollBackWithoutItsFilesIsRefused()
    {
        QFETCH(bool, remove);
        QFETCH(QString, id);
        publish("one");
        const QString place = server(placeOf("Data/a.mpq"));
        publish("two");
        if (remove)
            QFile::remove(place);
        else
            writeFile(place, "ONE");
        const QMap<QString, QByteArray> before = filesBelow(server());
        const CommandRun run = rollback(1);
        QCOMPARE(run.code, ExitCode::Findings);
        QCOMPARE(refusals(run), QStringList(id));
        QCOMPARE(filesBelow(server()), before);
    }

    void dryRunWritesNothing()
    {
        publish("one");
        publish("two");
        publish("three", {}, Kind::Test);
        const QMap<QString, QByteArray> before = filesBelow(server());
        const CommandRun run = rollback(1, { "--dry-run" });
        QCOMPARE(run.code, ExitCode::Fine);
        QVERIFY(run.json.value("manifestChanged").toBool());
        QCOMPARE(promote({ "--dry-run" }).code, ExitCode::Fine);
        QCOMPARE(filesBelow(server()), before);
    }

    void promotesByteByByteWithoutCopies()
    {
        publish("one");
        put("Data/Neu/b.mpq", "new");
        publish("two", {}, Kind::Test);
        const CommandRun run = promote();
        QVERIFY2(run.code == ExitCode::Fine, qPrintable(run.text + run.messages));
        QCOMPARE(live(), readFile(server("patchTest.ini")));
        for (const char* path : { "Data/a.mpq", "Data/Neu/b.mpq" }) {
            QCOMPARE(readFile(server(placeOf(path))), readFile(source(path)));
            QVERIFY(isSameFile(server(placeOf(path)), server(placeOf(path, "test"))));
        }
        QCOMPARE(history().at(1)["command"].toString(), QString("promote"));
        // The same build for all has nothing left to do.
        QVERIFY(!published().manifestChanged);
    }

    void promotesWhereNothingIsLiveYet()
    {
        publish("one", {}, Kind::Test);
        QCOMPARE(promote().code, ExitCode::Fine);
        QCOMPARE(live(), readFile(server("patchTest.ini")));
    }

    void promoteWithoutATestPublicationIsTold()
    {
        publish("one");
        const CommandRun run = start({ "promote", server() });
        QCOMPARE(run.code, ExitCode::Usage);
        QVERIFY2(run.messages.contains("--kind test"), qPrintable(run.messages));
    }

    void damagedTestFileIsNotPromoted()
    {
        publish("one");
        publish("two", {}, Kind::Test);
        writeFile(server(placeOf("Data/a.mpq", "test")), "TWO");
        const QByteArray before = live();
        QCOMPARE(refusals(promote()), QStringList("file-wrong"));
        QCOMPARE(live(), before);
    }

    void equalFilesOfBothKindsLieOnTheDiskOnce_data()
    {
        QTest::addColumn<QString>("first");
        QTest::addColumn<QString>("second");
        QTest::newRow("live first") << "live"
                                    << "test";
        QTest::newRow("test first") << "test"
                                    << "live";
    }

    void equalFilesOfBothKindsLieOnTheDiskOnce()
    {
        QFETCH(QString, first);
        QFETCH(QString, second);
        publish("one", {}, *ServerLayout::kindOf(first));
        publish("one", {}, *ServerLayout::kindOf(second));
        const QString place = server(placeOf("Data/a.mpq", first));
        QVERIFY(isSameFile(server(placeOf("Data/a.mpq", second)), place));
        QVERIFY(!isSameFile(place, source("Data/a.mpq")));
        publish("two", {}, *ServerLayout::kindOf(second));
        QCOMPARE(readFile(place), QByteArray("one"));
    }

    void pruningKeepsTheLatestPublications()
    {
        QStringList places;
        for (const char* content : { "one", "two", "three", "four" }) {
            publish(content);
            places.append(server(placeOf("Data/a.mpq")));
        }
        BuildRequest pruning = request();
        pruning.prune = true;
        pruning.keep = 3;
        pruning.dryRun = true;
        QCOMPARE(published(pruning).unreachable, QList<qint64>{ 1 });
        pruning.dryRun = false;
        const BuildReport report = published(pruning);
        QCOMPARE(report.unreachable, QList<qint64>{ 1 });
        QVERIFY(!QFileInfo::exists(places.at(0)));
        for (const QString& place : places.mid(1))
            QVERIFY2(QFileInfo::exists(place), qPrintable(place));
        QCOMPARE(rollback(1).code, ExitCode::Findings);
        QCOMPARE(rollback(2).code, ExitCode::Fine);
    }

    /// The new publication counts, in a dry run as well.
    void dryRunPrunesWhatTheRunWould()
    {
        for (const char* content : { "one", "two", "three" })
            publish(content);
        put("Data/a.mpq", "four");
        BuildRequest pruning = request();
        pruning.prune = true;
        pruning.keep = 3;
        pruning.dryRun = true;
        const QStringList foretold = pathsOf(published(pruning).pruned);
        QCOMPARE(foretold.size(), 1);
        pruning.dryRun = false;
        QCOMPARE(pathsOf(published(pruning).pruned), foretold);
    }

    void whatWasOfAnotherKindIsNotPublishedAgain_data()
    {
        QTest::addColumn<QString>("first");
        QTest::addColumn<QString>("second");
        QTest::addColumn<QString>("refused");
        QTest::newRow("file to folder") << "Data/x/y"
                                        << "Data/x"
                                        << "folder-was-file Data/x";
        QTest::newRow("folder to file") << "Data/x"
                                        << "Data/x/y"
                                        << "file-was-folder Data/x";
        QTest::newRow("neither") << "Data/x"
                                 << "Data/y"
                                 << "";
    }

    /// A manifest that comes from testers, or from the times before there was a
    /// history to hold it against.
    void whatWasOfAnotherKindIsNotPublishedAgain()
    {
        QFETCH(QString, first);
        QFETCH(QString, second);
        QFETCH(QString, refused);
        const auto publishAlone = [](const QString& path, const QString& kind) {
            QDir(source()).removeRecursively();
            put(path, "x");
            publish("one", {}, *ServerLayout::kindOf(kind));
        };
        publishAlone(first, "live");
        const QByteArray old = live();
        QDir(server(".halden-history")).removeRecursively();
        QFile::remove(server("patch.ini"));
        publishAlone(first, "test");
        publishAlone(second, "live");
        const QByteArray present = live();
        writeFile(server(".halden-history/live/7.ini"), old);
        writeFile(server(".halden-history/live/8.ini"), present);
        for (const CommandRun& run :
             { rollback(7, { "--yes-remove", "1" }), promote({ "--yes-remove", "1" }) }) {
            QStringList told;
            const QJsonArray all = run.json.value("refusals").toArray();
            for (const QJsonValue refusal : all)
                told.append(refusal["id"].toString() + ' ' + refusal["path"].toString());
            QCOMPARE(told.join(", "), refused);
            QCOMPARE(run.code, refused.isEmpty() ? ExitCode::Fine : ExitCode::Findings);
            QCOMPARE(live() == present, !refused.isEmpty());
        }
    }

    /// Players' caches hold what any of the former publications has brought.
    void pathOfAnotherKindInAFormerPublicationIsRefused()
    {
        put("Data/x", "file");
        publish("one");
        QFile::remove(source("Data/x"));
        BuildRequest dropping = request();
        dropping.confirmedDrops = 1;
        published(dropping);
        put("Data/x/y", "below");
        StandingClock clock(QDateTime::currentDateTimeUtc().addDays(300));
        BuildReport report;
        QCOMPARE(build(request(), clock, report), ExitCode::Findings);
        QCOMPARE(report.refusals.size(), 1);
    }
};

HALDEN_TEST_MAIN(tst_History)
#include "tst_history.moc"
