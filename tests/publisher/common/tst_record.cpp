#include "publisher/common/record.h"
#include "publisher/common/treelock.h"
#include "tests/publisher/buildfixture.h"
#include "tests/publisher/commandrun.h"
#include "tests/support/applicationfolder.h"
#include "tests/support/testmain.h"

#include <QCryptographicHash>
#include <QDir>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QRegularExpression>

using namespace TestSupport;
using namespace BuildFixture;
using namespace Publisher;

namespace {

QString recordFile()
{
    return ApplicationFolder::path("halden.record");
}

CommandRun publish(const QStringList& options = {})
{
    return CommandRun(
        QStringList{ "build", source(), server(), "--no-flush", "--record", recordFile() }
        + options);
}

CommandRun publishLauncher(const QString& program)
{
    return CommandRun({ "build-launcher", server(), "--launcher", program, "--updater", program,
                        "--no-flush", "--record", recordFile() });
}

/// Two programs that players' machines would take.
QString programFile(char letter)
{
    QByteArray bytes = readFile("/usr/bin/true");
    QString path = ApplicationFolder::path(QString("program-") + letter);
    writeFile(path, bytes + letter);
    return path;
}

QList<QJsonObject> lines()
{
    QList<QJsonObject> objects;
    const QList<QByteArray> rows = readFile(recordFile()).trimmed().split('\n');
    for (const QByteArray& row : rows)
        objects.append(QJsonDocument::fromJson(row).object());
    return objects;
}

/// "path" of what has come, "-path" of what has gone.
QStringList steps()
{
    QStringList all;
    for (const QJsonObject& line : lines())
        all.append((line["gone"].toBool() ? "-" : "") + line["path"].toString());
    return all;
}

/// What went before lies further back than a second, so that nothing waits.
void age()
{
    for (const char* name : { "patch.ini", "patchTest.ini", "patch-next.ini" }) {
        if (QFile::exists(server(name)))
            setDate(server(name), QDateTime::currentDateTimeUtc().addDays(-1));
    }
}

Record recordNow()
{
    Record record;
    if (const Problem problem = record.read(readFile(recordFile())))
        qFatal("%s", qPrintable(*problem));
    return record;
}

/// As another admin's command, in a process of its own.
void beginToPublish(QProcess& process, const QString& kind, const QString& tree)
{
    process.start(
        HALDEN_PUBLISH,
        { "build", source(), tree, "--no-flush", "--kind", kind, "--record", recordFile() });
}

void mustEndWell(QProcess& process)
{
    QVERIFY(process.waitForFinished(60'000));
    QVERIFY2(process.exitCode() == 0, process.readAllStandardError().constData());
}

/// A line without one of its parts.
QByteArray lineWithout(const QString& key)
{
    QJsonObject line{ { "path", "a" },
                      { "with", "a" },
                      { "size", 1 },
                      { "md5", QString(32, '0') },
                      { "sha256", QString(64, '0') },
                      { "date", "2026-01-01T00:00:00.000Z" },
                      { "published", "2026-01-01T00:00:00.000Z" } };
    line.remove(key);
    return QJsonDocument(line).toJson(QJsonDocument::Compact);
}

QByteArray sha256(const QByteArray& content)
{
    return QCryptographicHash::hash(content, QCryptographicHash::Sha256).toHex();
}

} // namespace

/// What commands put on record.
class tst_Record : public QObject {
    Q_OBJECT

private slots:
    void init()
    {
        QTest::failOnWarning(QRegularExpression(".*"));
        ApplicationFolder::clear();
        put("Data/a.mpq", "first a");
        put("b.txt", "b");
    }

    void aLineForEachFile()
    {
        const QDateTime before = QDateTime::currentDateTimeUtc().addSecs(-1);
        const CommandRun run = publish();
        QCOMPARE(run.code, ExitCode::Fine);
        QVERIFY2(run.text.contains("minisign -Sm " + recordFile()), qPrintable(run.text));
        QCOMPARE(steps(), (QStringList{ placeOf("b.txt"), placeOf("Data/a.mpq"), "patch.ini" }));
        const QJsonObject line = lines().at(1);
        QCOMPARE(line["with"].toString(), QString("patch.ini"));
        QCOMPARE(line["size"].toInt(), 7);
        QCOMPARE(line["md5"].toString(), md5("first a"));
        QCOMPARE(line["sha256"].toString(), QString::fromLatin1(sha256("first a")));
        const auto time = [&](const char* key) {
            return QDateTime::fromString(line[QLatin1String(key)].toString(), Qt::ISODateWithMs);
        };
        QCOMPARE(
            time("date").toMSecsSinceEpoch(),
            dateOf(server(placeOf("Data/a.mpq"))).toMSecsSinceEpoch());
        QVERIFY(time("published") >= before);
        QVERIFY(time("published") <= QDateTime::currentDateTimeUtc());
    }

    void theSameAgainAddsNothing()
    {
        publish();
        const QByteArray first = readFile(recordFile());
        const CommandRun again = publish({ "--json" });
        QCOMPARE(again.json["recorded"].toInt(-1), 0);
        QCOMPARE(readFile(recordFile()), first);
    }

    void aDryRunAddsNothing()
    {
        QCOMPARE(publish({ "--dry-run" }).code, ExitCode::Fine);
        QVERIFY(!QFile::exists(recordFile()));
    }

    /// What stood there stays, to the byte.
    void whatComesChangesAndGoes()
    {
        publish();
        const QByteArray first = readFile(recordFile());
        const QString formerA = placeOf("Data/a.mpq");
        age();
        put("Data/a.mpq", "second a");
        QVERIFY(QFile::remove(source("b.txt")));
        put("c.txt", "c");
        publish({ "--yes-remove", "1" });
        QVERIFY(readFile(recordFile()).startsWith(first));
        QStringList came = steps().sliced(3);
        came.sort();
        QStringList due{ "-" + formerA, placeOf("Data/a.mpq"), "patch.ini", placeOf("c.txt"),
                         "-" + steps().constFirst() };
        due.sort();
        QCOMPARE(came, due);
        QCOMPARE(steps().constLast(), QString("patch.ini"));
        QCOMPARE(recordNow().files("patch.ini").size(), 3);
    }

    void eachManifestForItself()
    {
        publish();
        publish({ "--kind", "test" });
        put("Data/a.mpq", "next a");
        publish({ "--next" });
        const Record record = recordNow();
        QCOMPARE(
            record.files("patchTest.ini").keys(),
            (QStringList{ "patchTest.ini", QString(placeOf("b.txt")).replace("/live/", "/test/"),
                          "wow-client-patch/test/Data/" + md5("first a") + "/a.mpq" }));
        QVERIFY(record.files("patch-next.ini").contains(placeOf("Data/a.mpq")));
        QVERIFY(!record.files("patch.ini").contains(placeOf("Data/a.mpq")));
    }

    void theNextOneGoesWhenItIsLive()
    {
        publish();
        put("Data/a.mpq", "next a");
        publish({ "--next" });
        QVERIFY(recordNow().knows("patch-next.ini"));
        age();
        publish();
        const Record record = recordNow();
        QVERIFY(!record.knows("patch-next.ini"));
        QCOMPARE(record.files("patch-next.ini").size(), 0);
        QVERIFY(record.files("patch.ini").contains(placeOf("Data/a.mpq")));
    }

    void rollbackAndPromotion()
    {
        publish();
        age();
        put("Data/a.mpq", "second a");
        publish();
        age();
        CommandRun back({ "rollback", server(), "1", "--no-flush", "--record", recordFile() });
        QCOMPARE(back.code, ExitCode::Fine);
        QCOMPARE(
            recordNow().files("patch.ini").value("patch.ini").sha256,
            sha256(readFile(server("patch.ini"))));
        put("Data/a.mpq", "third a");
        publish({ "--kind", "test" });
        age();
        const CommandRun given({ "promote", server(), "--no-flush", "--record", recordFile() });
        QCOMPARE(given.code, ExitCode::Fine);
        QVERIFY(recordNow().files("patch.ini").contains(placeOf("Data/a.mpq")));
    }

    void launcherAndUpdater()
    {
        QCOMPARE(publishLauncher(programFile('a')).code, ExitCode::Fine);
        const QByteArray first = sha256(readFile(programFile('a')));
        QCOMPARE(steps(), (QStringList{ "Halden-Launcher-Updater.exe", "Halden-Launcher.exe" }));
        setDate(server("Halden-Launcher.exe"), QDateTime::currentDateTimeUtc().addDays(-1));
        setDate(server("Halden-Launcher-Updater.exe"), QDateTime::currentDateTimeUtc().addDays(-1));
        QCOMPARE(publishLauncher(programFile('b')).code, ExitCode::Fine);
        const Record record = recordNow();
        const QString name = "Halden-Launcher.exe";
        QCOMPARE(record.files(name).value(name).sha256, sha256(readFile(programFile('b'))));
        const auto former = record.former(name, first);
        QVERIFY(former.has_value());
        QVERIFY(!record.former(name, QByteArray(64, '0')).has_value());
    }

    void lineWithEverything()
    {
        Record record;
        QVERIFY(!record.read(lineWithout({})));
        QVERIFY(record.knows("a"));
    }

    /// Nothing else tells that one is another one.
    void launcherOfTheSameDateAndSize()
    {
        QCOMPARE(publishLauncher(programFile('a')).code, ExitCode::Fine);
        const QString launcher = server("Halden-Launcher.exe");
        const QDateTime date = dateOf(launcher);
        writeFile(launcher, readFile(programFile('b')));
        setDate(launcher, date);
        Record record = recordNow();
        QVERIFY(!record.followProgram(
            server(), "Halden-Launcher.exe", QDateTime::currentDateTimeUtc()));
        QCOMPARE(record.newLines(), 1);
        QCOMPARE(
            record.files("Halden-Launcher.exe").value("Halden-Launcher.exe").sha256,
            sha256(readFile(programFile('b'))));
    }

    void aNewDateAlone()
    {
        publish();
        const QString file = server(placeOf("Data/a.mpq"));
        for (const QString& path : { server("patch.ini"), file })
            setDate(path, QDateTime::currentDateTimeUtc().addDays(-1));
        Record record = recordNow();
        QVERIFY(!record.followManifest(
            server(), "patch.ini", Kind::Live, QDateTime::currentDateTimeUtc()));
        QCOMPARE(record.newLines(), 2);
        QCOMPARE(
            record.files("patch.ini").value(placeOf("Data/a.mpq")).date.toSecsSinceEpoch(),
            dateOf(file).toSecsSinceEpoch());
    }

    /// Whatever its date says.
    void aPatchFileOfAnotherSize()
    {
        publish();
        const QString file = server(placeOf("Data/a.mpq"));
        const QDateTime date = dateOf(file);
        writeFile(file, "longer than it was");
        setDate(file, date);
        Record record = recordNow();
        const Problem problem = record.followManifest(
            server(), "patch.ini", Kind::Live, QDateTime::currentDateTimeUtc());
        QVERIFY(problem && problem->contains(file));
    }

    void whatPlayersDeleteIsNoFile()
    {
        publish();
        age();
        QVERIFY(QFile::remove(source("b.txt")));
        QCOMPARE(publish({ "--remove", "b.txt", "--yes-remove", "1" }).code, ExitCode::Fine);
        QCOMPARE(
            recordNow().files("patch.ini").keys(),
            (QStringList{ "patch.ini", placeOf("Data/a.mpq") }));
    }

    /// As an editor may leave it.
    void lastLineWithoutItsEnd()
    {
        publish();
        const QByteArray first = readFile(recordFile());
        writeFile(recordFile(), first.chopped(1));
        age();
        put("Data/a.mpq", "second a");
        publish();
        QVERIFY(readFile(recordFile()).startsWith(first));
        QVERIFY(recordNow().files("patch.ini").contains(placeOf("Data/a.mpq")));
    }

    /// The tree's disk may have changed a file behind the manifest's back.
    void whatIsNotAsPublishedIsNotPutDown()
    {
        QCOMPARE(
            CommandRun({ "build", source(), server(), "--no-flush" }).code,
            Publisher::ExitCode::Fine);
        writeFile(server(placeOf("Data/a.mpq")), "other a");
        Record record;
        const Problem problem = record.followManifest(
            server(), "patch.ini", Kind::Live, QDateTime::currentDateTimeUtc());
        QVERIFY(problem.has_value());
        QVERIFY2(problem->contains("--rehash"), qPrintable(*problem));
        QVERIFY(!record.knows("patch.ini"));
    }

    /// While one command writes the others wait, and none has read it before.
    void othersAddMeanwhile()
    {
        QProcess process;
        {
            const TreeLock lock(QFileInfo(recordFile()).path());
            QVERIFY(!lock.problem());
            beginToPublish(process, "live", server());
            QTRY_VERIFY_WITH_TIMEOUT(QFile::exists(server("patch.ini")), 60'000);
            Record other;
            writeFile(ApplicationFolder::path("Halden-Launcher.exe"), "program");
            QVERIFY(!other.followProgram(
                ApplicationFolder::path({}), "Halden-Launcher.exe",
                QDateTime::currentDateTimeUtc()));
            writeFile(recordFile(), other.text());
        }
        mustEndWell(process);
        QCOMPARE(
            steps(),
            (QStringList{ "Halden-Launcher.exe", placeOf("b.txt"), placeOf("Data/a.mpq"),
                          "patch.ini" }));
    }

    void twoAtTheSameMoment()
    {
        for (int round = 0; round < 5; ++round) {
            init();
            QProcess one;
            QProcess other;
            beginToPublish(one, "live", server());
            beginToPublish(other, "test", ApplicationFolder::path("other"));
            mustEndWell(one);
            mustEndWell(other);
            QStringList all = steps();
            all.sort();
            QCOMPARE(all.size(), 6);
            QCOMPARE(all.mid(0, 2), (QStringList{ "patch.ini", "patchTest.ini" }));
        }
    }

    void whatIsNoRecordStopsEverything_data()
    {
        QTest::addColumn<QByteArray>("text");
        QTest::newRow("words") << QByteArray("hello\n");
        for (const char* key : { "path", "with", "size", "md5", "sha256", "date", "published" })
            QTest::newRow(key) << lineWithout(key);
        QTest::newRow("no hashes")
            << QByteArray(R"({"path":"a","with":"a","published":"2026-01-01T00:00:00.000Z"})");
        QTest::newRow("no path") << QByteArray(
            R"({"with":"a","gone":true,"published":"2026-01-01T00:00:00.000Z"})");
        QTest::newRow("cut off") << QByteArray(R"({"path":"a","with":"a")");
    }

    void whatIsNoRecordStopsEverything()
    {
        QFETCH(QByteArray, text);
        writeFile(recordFile(), "\n" + text);
        const CommandRun run = publish();
        QCOMPARE(run.code, ExitCode::InputOutput);
        QVERIFY2(run.messages.contains("line 2 "), qPrintable(run.messages));
        QVERIFY(!QFile::exists(server("patch.ini")));
        QCOMPARE(readFile(recordFile()), "\n" + text);
    }

    void noRightToTheRecord()
    {
        const CommandRun run = CommandRun({ "build", source(), server(), "--no-flush", "--record",
                                            ApplicationFolder::path("none/halden.record") });
        QCOMPARE(run.code, ExitCode::InputOutput);
        QVERIFY2(run.messages.contains("see that its folder"), qPrintable(run.messages));
        QVERIFY(!QFile::exists(server("patch.ini")));
    }
};

HALDEN_TEST_MAIN(tst_Record)
#include "tst_record.moc"
