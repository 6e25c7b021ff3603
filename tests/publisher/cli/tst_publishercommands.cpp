#include "publisher/cli/commands.h"
#include "publisher/cli/output.h"
#include "publisher/common/finding.h"
#include "publisher/common/parallel.h"
#include "publisher/common/progress.h"
#include "tests/publisher/buildfixture.h"
#include "tests/publisher/commandrun.h"
#include "tests/support/applicationfolder.h"
#include "tests/support/stderrcapture.h"
#include "tests/support/testmain.h"

#include <QDir>
#include <QFileInfo>
#include <QJsonArray>
#include <QProcess>
#include <QRegularExpression>

#include <cerrno>

using namespace TestSupport;
using namespace BuildFixture;
using namespace Publisher;

namespace {

QStringList pathsIn(const QJsonValue& items)
{
    QStringList paths;
    const QJsonArray array = items.toArray();
    for (const QJsonValue item : array)
        paths.append(item["path"].toString());
    return paths;
}

/// The commands go by the machine's clock.
void publishedBefore()
{
    published();
    setDate(server("patch.ini"), QDateTime::currentDateTimeUtc().addDays(-1));
}

} // namespace

class tst_PublisherCommands : public QObject {
    Q_OBJECT

private slots:
    void init()
    {
        QTest::failOnWarning(QRegularExpression(".*"));
        ApplicationFolder::clear();
        put("Data/a.mpq", "first a");
    }

    void overviewNamesEveryCommand()
    {
        const CommandRun run({ "--help" });
        QCOMPARE(run.code, ExitCode::Fine);
        for (const Command* command : allCommands)
            QVERIFY2(run.text.contains("\n  " + command->name + ' '), qPrintable(run.text));
        QCOMPARE(run.messages, QString());
    }

    void version()
    {
        const CommandRun run({ "--version" });
        QCOMPARE(run.code, ExitCode::Fine);
        static const QRegularExpression expected("^halden-publish \\d+\\.\\d+\\.\\d+\n$");
        QVERIFY2(expected.match(run.text).hasMatch(), qPrintable(run.text));
    }

    void everyCommandHasHelp_data()
    {
        QTest::addColumn<QString>("name");
        for (const Command* command : allCommands)
            QTest::newRow(command->name.data()) << QString(command->name);
    }

    void everyCommandHasHelp()
    {
        QFETCH(QString, name);
        const CommandRun run({ name, "--help" });
        QCOMPARE(run.code, ExitCode::Fine);
        QVERIFY2(run.text.startsWith("Usage: halden-publish " + name), qPrintable(run.text));
        for (const char* option : { "--help", "--json" })
            QVERIFY2(run.text.contains(option), option);
        QCOMPARE(run.messages, QString());
    }

    void refusesAWrongCommandLine_data()
    {
        QTest::addColumn<QStringList>("arguments");
        QTest::addColumn<QString>("said");
        const QString from = source();
        const QString to = server();
        const auto row = [&](const char* name, const QStringList& arguments, const char* said) {
            QTest::newRow(name) << arguments << said;
        };
        row("nothing", {}, "give a command, one of build, build-launcher, check, probe");
        row("unknown command", { "publish" }, "no command \"publish\"; give one of build,");
        row("unknown option", { "build", from, to, "--fast" }, "fast");
        row("option without its value", { "build", from, to, "--kind" }, "kind");
        row("no server folder", { "build", from }, "source folder and the server folder");
        row("three folders", { "build", from, to, to }, "source folder and the server folder");
        row("no source", { "build", from + "/missing", to }, "name the source");
        row("source is a file", { "build", from + "/Data/a.mpq", to }, "name the source");
        row("server in the source", { "build", from, from + "/server" },
            "name two that stand apart");
        row("source in the server", { "build", from + "/Data", from }, "in each other");
        row("the same folder", { "build", from, from + "/." }, "in each other");
        row("unknown kind", { "build", from, to, "--kind", "both" }, "--kind");
        row("unknown separator", { "build", from, to, "--separator", ":" }, "--separator");
        row("no realms", { "build", from, to, "--realms", "0" }, "--realms");
        row("too many realms", { "build", from, to, "--realms", "101" }, "--realms");
        row("no number of realms", { "build", from, to, "--realms", "many" }, "--realms");
        row("dropped files in words", { "build", from, to, "--yes-remove", "all" }, "--yes-remove");
        row("no jobs", { "build", from, to, "--jobs", "0" }, "--jobs");
        row("launcher without server", { "build-launcher" }, "server folder");
        row("no launcher", { "build-launcher", to, "--updater", "/bin/true" }, "--launcher");
        row("no updater", { "build-launcher", to, "--launcher", "/bin/true" }, "--updater");
        row("launcher missing",
            { "build-launcher", to, "--launcher", "/missing", "--updater", "/bin/true" },
            "no file \"/missing\"; name the program with --launcher");
        row("nothing to check", { "check" }, "Name one, or several");
        row("no server to ask", { "probe" }, "Name one address");
        row("a bare name to ask", { "probe", "a.example" }, "give one such as https://");
        row("days in words", { "probe", "--days", "many", "https://a/" },
            "--days is a number from 0");
        for (const char* command : { "history", "promote" })
            row(qPrintable(QString("%1 of nothing").arg(command)), { command },
                "the one that build publishes into");
        for (const char* command : { "show", "rollback" })
            row(qPrintable(QString("%1 of no number").arg(command)), { command, from },
                "the number of a publication, which history lists");
        for (const char* command : { "history", "promote" })
            row(qPrintable(QString("%1 where nothing is").arg(command)), { command, to },
                "name the one that build publishes into");
        row("history of an unknown kind", { "history", from, "--kind", "both" },
            "--kind is live or test");
        row("show what is not there", { "show", from, "1" }, "halden-publish history lists them");
        row("promote what is not there", { "promote", from }, "build --kind test makes one");
    }

    void refusesAWrongCommandLine()
    {
        QFETCH(QStringList, arguments);
        QFETCH(QString, said);
        const CommandRun run(arguments);
        QCOMPARE(run.code, ExitCode::Usage);
        QVERIFY2(run.messages.contains(said), qPrintable(run.messages));
        QCOMPARE(run.text, QString());
        QVERIFY(!QFileInfo::exists(server()));
    }

    void refusesWrongSwitchesOfARepublication_data()
    {
        QTest::addColumn<QStringList>("switches");
        QTest::newRow("dropped files in words") << QStringList{ "--yes-remove", "all" };
        QTest::newRow("less than no dropped files") << QStringList{ "--yes-remove=-1" };
        QTest::newRow("no jobs") << QStringList{ "--jobs", "0" };
    }

    void refusesWrongSwitchesOfARepublication()
    {
        QFETCH(QStringList, switches);
        publishedBefore();
        const QString option = switches.first().section('=', 0, 0);
        const CommandRun run(QStringList{ "rollback", server(), "1" } + switches);
        QCOMPARE(run.code, ExitCode::Usage);
        QVERIFY2(run.messages.contains(option + " is "), qPrintable(run.messages));
    }

#ifndef Q_OS_WIN // a folder cannot be closed for its own owner there
    /// What nobody can foresee is told with its remedy.
    void fileThatCannotBePrunedIsTold()
    {
        publishedBefore();
        const QString folder = QFileInfo(server(placeOf("Data/a.mpq"))).path();
        put("Data/a.mpq", "second a");
        QFile::setPermissions(folder, QFile::ReadOwner | QFile::ExeOwner);
        const CommandRun run(
            { "build", source(), server(), "--no-flush", "--prune", "--keep", "1" });
        QFile::setPermissions(folder, QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
        QCOMPARE(run.code, ExitCode::InputOutput);
        QVERIFY2(
            run.messages.contains("a.mpq cannot be removed: Permission denied. Give yourself"),
            qPrintable(run.messages));
    }
#endif

    void buildTellsPeople()
    {
        const CommandRun run({ "build", source(), server(), "--no-flush" });
        QCOMPARE(run.code, ExitCode::Fine);
        QCOMPARE(
            run.text,
            QString("added     Data/a.mpq  7 B\n"
                    "1 added, 0 changed, 0 removed, 0 unchanged.\n"
                    "A player who is up to date fetches 14 B, a new one 14 B: every file twice, "
                    "since a start makes two update runs.\n"
                    "Published: patch.ini is live.\n"));
        QCOMPARE(run.messages, QString());
    }

    void buildTellsWhatRemovalMeans()
    {
        put("Data/b.mpq", "b");
        publishedBefore();
        QFile::remove(source("Data/a.mpq"));
        const CommandRun run(
            { "build", source(), server(), "--dry-run", "--prune", "--keep", "1" });
        QVERIFY2(run.text.contains("removed   Data/a.mpq"), qPrintable(run.text));
        QVERIFY2(run.text.contains("pruned    wow-client-patch/live/Data"), qPrintable(run.text));
        QVERIFY2(run.text.contains("Players keep what is removed"), qPrintable(run.text));
        // As the publication itself would.
        QCOMPARE(run.code, ExitCode::Findings);
        QVERIFY2(run.text.contains("--yes-remove 1. [many-removed]"), qPrintable(run.text));
        QVERIFY2(run.text.endsWith("Nothing has been published.\n"), qPrintable(run.text));
    }

    void buildTellsTheRemovals_data()
    {
        QTest::addColumn<QStringList>("options");
        QTest::addColumn<bool>("keeps");
        QTest::newRow("folder") << QStringList{ "--remove-folder", "Interface" } << true;
        QTest::newRow("folder, as shells complete it")
            << QStringList{ "--remove-folder", "Interface/" } << true;
        QTest::newRow("the file that is dropped")
            << QStringList{ "--remove", "Data/a.mpq" } << false;
        QTest::newRow("the folder of the file")
            << QStringList{ "--remove-folder", "Data" } << false;
    }

    void buildTellsTheRemovals()
    {
        QFETCH(QStringList, options);
        QFETCH(bool, keeps);
        put("b.mpq", "b");
        publishedBefore();
        QDir(source("Data")).removeRecursively();
        const QStringList arguments
            = QStringList{ "build", source(), server(), "--no-flush", "--yes-remove", "1" }
            + options;
        const QString removed
            = options.at(1).endsWith('/') ? options.at(1).chopped(1) : options.at(1);
        const CommandRun dry(arguments + QStringList{ "--dry-run" });
        QCOMPARE(dry.code, ExitCode::Fine);
        QVERIFY2(dry.text.contains("deletes   " + removed + ' '), qPrintable(dry.text));
        QCOMPARE(dry.text.contains("--remove takes it away"), keeps);
        const CommandRun run(arguments + QStringList{ "--json" });
        QCOMPARE(run.json["removals"][0]["path"].toString(), removed);
        QCOMPARE(run.json["removals"][0]["folder"].toBool(), options.at(0) != "--remove");

        const CommandRun next({ "build", source(), server(), "--no-flush" });
        QVERIFY2(next.text.contains("keeps     " + removed + ' '), qPrintable(next.text));
    }

    void removalsAreTakenFromAList_data()
    {
        QTest::addColumn<QString>("list");
        QTest::addColumn<QStringList>("options");
        QTest::newRow("beside the source") << source() + ".removals" << QStringList();
        QTest::newRow("elsewhere")
            << source() + "-list" << QStringList{ "--removals", source() + "-list" };
    }

    void removalsAreTakenFromAList()
    {
        QFETCH(QString, list);
        QFETCH(QStringList, options);
        writeFile(list, "# of last year\r\n\nInterface/AddOns/Old/\n  Data/Old  \n");
        const QStringList arguments{ "build", source(), server(), "--no-flush", "--json" };
        const CommandRun run(arguments + options);
        QCOMPARE(run.code, ExitCode::Fine);
        const QJsonArray removals = run.json["removals"].toArray();
        QCOMPARE(pathsIn(removals), QStringList({ "Data/Old", "Interface/AddOns/Old" }));
        QVERIFY(!removals.at(0)["folder"].toBool());
        QVERIFY(removals.at(1)["folder"].toBool());
    }

    void listOfRemovalsThatCannotBeReadIsTold()
    {
        const CommandRun run({ "build", source(), server(), "--removals", source("missing") });
        QCOMPARE(run.code, ExitCode::InputOutput);
        QVERIFY2(run.messages.contains(qt_error_string(ENOENT)), qPrintable(run.messages));
        QVERIFY2(run.messages.contains("--removals"), qPrintable(run.messages));
    }

    void buildTellsWhatItPassesOver()
    {
        put("Data/brand-new", "x");
        const QStringList arguments{ "build", source(), server(), "--no-flush", "--dry-run" };
        const CommandRun text(arguments);
        QVERIFY2(text.text.contains("passed over Data/brand-new "), qPrintable(text.text));
        const QJsonObject json = CommandRun(arguments + QStringList{ "--json" }).json;
        QCOMPARE(json["passedOver"][0].toString(), QString("Data/brand-new"));
    }

    void renewalIsTold()
    {
        const QStringList arguments{ "build", source(), server(), "--no-flush", "--renew" };
        QCOMPARE(CommandRun(arguments).code, ExitCode::Fine);
        const CommandRun again(arguments);
        QVERIFY2(again.text.contains("unchanged and has a new date"), qPrintable(again.text));
    }

    void buildTellsMachines()
    {
        put("Data/b.mpq", "b");
        publishedBefore();
        put("Data/a.mpq", "second a");
        put("c.mpq", "c");
        QFile::remove(source("Data/b.mpq"));
        const CommandRun run({ "build", source(), server(), "--json", "--no-flush", "--prune",
                               "--keep", "1", "--yes-remove", "1" });
        const QJsonObject json = run.json;
        QCOMPARE(pathsIn(json["added"]), QStringList("c.mpq"));
        QCOMPARE(pathsIn(json["changed"]), QStringList("Data/a.mpq"));
        QCOMPARE(pathsIn(json["removed"]), QStringList("Data/b.mpq"));
        QCOMPARE(pathsIn(json["pruned"]).size(), 2);
        QCOMPARE(json["bytesToUpdate"].toInt(), 2 * 9);
        QCOMPARE(json["bytesInAll"].toInt(), 2 * 9);
        QCOMPARE(json["unchanged"].toInt(), 0);
        QCOMPARE(json["kind"].toString(), QString("live"));
        QVERIFY(json["manifestChanged"].toBool());
        QVERIFY(!json["dryRun"].toBool());
        QCOMPARE(json["exitCode"].toInt(-1), 0);
    }

    void optionsReachTheBuild()
    {
        const CommandRun run({ "build", source(), server(), "--no-flush", "--kind", "test",
                               "--separator", "/", "--remove", "Data/old.mpq", "--remove-folder",
                               "Interface/old.mpq", "--realms", "3", "--jobs", "1", "--rehash" });
        QCOMPARE(run.code, ExitCode::Fine);
        const QByteArray manifest = readFile(server("patchTest.ini"));
        QVERIFY(manifest.contains("numberOfFiles=7"));
        QVERIFY(manifest.contains("file3=\"old.mpq\""));
        QVERIFY(manifest.contains("file4-save=false"));
        QVERIFY(manifest.contains("file5-dirOnly=true"));
    }

#ifndef Q_OS_WIN // there is no file of such a name there
    void refusalsAreFindings()
    {
        put("con.mpq", "x");
        const CommandRun text({ "build", source(), server() });
        QCOMPARE(text.code, ExitCode::Findings);
        QVERIFY2(text.text.contains("con.mpq: Its name is reserved"), qPrintable(text.text));
        QVERIFY2(text.text.contains("[name-not-for-windows]"), qPrintable(text.text));
        QVERIFY2(text.text.endsWith("Nothing has been published.\n"), qPrintable(text.text));
        const QJsonObject json = CommandRun({ "build", source(), server(), "--json" }).json;
        QCOMPARE(json["exitCode"].toInt(), 1);
        const QJsonObject refusal = json["refusals"].toArray().at(0).toObject();
        QCOMPARE(refusal["id"].toString(), QString("name-not-for-windows"));
        QCOMPARE(refusal["path"].toString(), QString("con.mpq"));
        QVERIFY(refusal["reason"].toString().contains("device"));
    }
#endif

    void failuresAreInputOutput()
    {
        writeFile(server(), "a file where a folder should be");
        const CommandRun run({ "build", source(), server(), "--json" });
        QCOMPARE(run.code, ExitCode::InputOutput);
        QVERIFY2(run.messages.contains("cannot be created"), qPrintable(run.messages));
        QVERIFY2(run.messages.contains("File exists. Move away"), qPrintable(run.messages));
        QVERIFY2(run.messages.contains("run the same command again"), qPrintable(run.messages));
        QCOMPARE(run.json["exitCode"].toInt(), 3);
        QVERIFY(run.json["errors"].toArray().at(0).toString().contains("cannot be created"));
    }

    void usageErrorsReachMachines_data()
    {
        QTest::addColumn<QStringList>("arguments");
        QTest::newRow("no folders") << QStringList{ "build", "--json" };
        QTest::newRow("unknown option") << QStringList{ "build", "--json", "--fast" };
        QTest::newRow("unknown command") << QStringList{ "publish", "--json" };
        QTest::newRow("no command") << QStringList{ "--json" };
        QTest::newRow("unknown finding")
            << QStringList{ "check", "--json", "--accept", "all", "x" };
    }

    void usageErrorsReachMachines()
    {
        QFETCH(QStringList, arguments);
        const CommandRun run(arguments);
        QCOMPARE(run.code, ExitCode::Usage);
        QCOMPARE(run.json["exitCode"].toInt(), 2);
        QCOMPARE(run.json["errors"].toArray().size(), 1);
    }

    void unknownFindingBringsTheList()
    {
        const CommandRun run({ "check", "--accept", "all", server() });
        for (const QString& identifier : Findings::ofInspection())
            QVERIFY2(run.messages.contains(identifier), qPrintable(identifier));
    }

#ifndef Q_OS_WIN // there is no file of such a name there
    /// Nor may a name move the cursor of a terminal.
    void lineEndInANameStaysOnItsLine()
    {
        put("Data/a\n\033[2J.mpq", "x");
        const CommandRun run({ "build", source(), server() });
        QVERIFY2(run.text.startsWith("Data/a\\n\\x1b[2J.mpq: "), qPrintable(run.text));
        QCOMPARE(run.text.count('\n'), 2);
    }
#endif

    void onlyOwnWordsOnStandardError_data()
    {
        QTest::addColumn<QStringList>("arguments");
        QTest::newRow("manifest") << QStringList{ "check", "--tree", server(), "" };
        QTest::newRow("list of removals")
            << QStringList{ "build", source(), server(), "--removals", "" };
    }

    /// The toolkit has its own words for a name that is none.
    void onlyOwnWordsOnStandardError()
    {
        QFETCH(QStringList, arguments);
        QProcess program;
        program.start(HALDEN_PUBLISH, arguments);
        QVERIFY(program.waitForFinished());
        const QString said = QString::fromUtf8(program.readAllStandardError());
        const QStringList lines = said.split('\n', Qt::SkipEmptyParts);
        QVERIFY(!lines.isEmpty());
        for (const QString& line : lines)
            QVERIFY2(line.startsWith("halden-publish: "), qPrintable(line));
    }

    void launcherIsPublished()
    {
        const QStringList arguments{ "build-launcher", server(),    "--launcher",
                                     "/usr/bin/true",  "--updater", "/usr/bin/false",
                                     "--no-flush" };
        const CommandRun dry(arguments + QStringList{ "--dry-run" });
        QCOMPARE(dry.code, ExitCode::Fine);
        QVERIFY2(dry.text.endsWith("Dry run: nothing has been written.\n"), qPrintable(dry.text));
        const CommandRun run(arguments);
        QCOMPARE(run.code, ExitCode::Fine);
        QVERIFY2(run.text.contains("added     Halden-Launcher.exe"), qPrintable(run.text));
        QCOMPARE(readFile(server("Halden-Launcher.exe")), readFile("/usr/bin/true"));
        QCOMPARE(readFile(server("Halden-Launcher-Updater.exe")), readFile("/usr/bin/false"));
        const QJsonArray files
            = CommandRun(arguments + QStringList{ "--json" }).json["files"].toArray();
        QCOMPARE(files.size(), 2);
        QCOMPARE(files.at(1)["name"].toString(), QString("Halden-Launcher.exe"));
        QCOMPARE(files.at(1)["change"].toString(), QString("unchanged"));
    }

    void launcherRefusalsAreFindings()
    {
        const QString page = source("Data/a.mpq");
        const QStringList arguments{ "build-launcher", server(),        "--launcher", page,
                                     "--updater",      "/usr/bin/false" };
        const CommandRun run(arguments);
        QCOMPARE(run.code, ExitCode::Findings);
        QVERIFY2(run.text.contains("[not-a-program]"), qPrintable(run.text));
        const QJsonObject json = CommandRun(arguments + QStringList{ "--json" }).json;
        QCOMPARE(json["refusals"].toArray().at(0)["id"].toString(), QString("not-a-program"));
    }

    void progressLine_data()
    {
        QTest::addColumn<qint64>("files");
        QTest::addColumn<qint64>("bytes");
        QTest::addColumn<qint64>("milliseconds");
        QTest::addColumn<QString>("line");
        const qint64 mebibyte = 1 << 20;
        const qint64 none = 0;
        const qint64 second = 1000;
        QTest::newRow("at the start")
            << none << none << none << "copying: 0 of 12 files, 0 B of 300.0 MiB";
        QTest::newRow("nothing read yet")
            << none << none << second << "copying: 0 of 12 files, 0 B of 300.0 MiB";
        QTest::newRow("on the way")
            << qint64(4) << 100 * mebibyte << 2 * second
            << "copying: 4 of 12 files, 100.0 MiB of 300.0 MiB, 50.0 MiB/s, 0:04 left";
        QTest::newRow("minutes")
            << qint64(1) << mebibyte << second
            << "copying: 1 of 12 files, 1.0 MiB of 300.0 MiB, 1.0 MiB/s, 4:59 left";
        QTest::newRow("at the end")
            << qint64(12) << 300 * mebibyte << 6 * second
            << "copying: 12 of 12 files, 300.0 MiB of 300.0 MiB, 50.0 MiB/s";
    }

    void progressLine()
    {
        QFETCH(qint64, files);
        QFETCH(qint64, bytes);
        QFETCH(qint64, milliseconds);
        QTEST(Progress::line("copying", { files, bytes }, { 12, 300 << 20 }, milliseconds), "line");
    }

    /// A probe learns what there is while it asks, and how long it is never.
    void progressLineWithoutAWhole_data()
    {
        QTest::addColumn<qint64>("bytes");
        QTest::addColumn<qint64>("milliseconds");
        QTest::addColumn<QString>("line");
        const qint64 tenth = (qint64(31) << 20) / 10;
        QTest::newRow("nothing is counted")
            << qint64(0) << qint64(2000) << "Asking: 12 of 48 files";
        QTest::newRow("some bytes") << tenth << qint64(0) << "Asking: 12 of 48 files, 3.1 MiB";
        QTest::newRow("a rate") << tenth << qint64(1000)
                                << "Asking: 12 of 48 files, 3.1 MiB, 3.1 MiB/s";
    }

    void progressLineWithoutAWhole()
    {
        QFETCH(qint64, bytes);
        QFETCH(qint64, milliseconds);
        QTEST(Progress::line("Asking", { 12, bytes }, { 48, 0 }, milliseconds), "line");
    }

    void progressTotalIsRaisedByAnyThread()
    {
        constexpr qsizetype times = 100'000;
        Progress progress("asking", { 3, 7 });
        Parallel::run(4, times, [&](qsizetype, int) { progress.raiseTotal({ 2, 5 }); });
        QCOMPARE(progress.total().files, 3 + 2 * times);
        QCOMPARE(progress.total().bytes, 7 + 5 * times);
    }

    void progressIsQuietWithoutATerminal()
    {
        // The tests' standard error stream is a pipe or a file.
        QVERIFY(!Progress::isTerminal());
        Progress progress("copying", { 1, 1 });
        progress.addBytes(1);
        progress.addFile();
        QCOMPARE(progress.done().files, 1);
        QCOMPARE(progress.done().bytes, 1);
    }

    void progressIsDrawnAndWiped()
    {
        StderrCapture capture;
        {
            Progress progress("copying", { 2, 9 }, true);
            progress.addFile();
            // The line is drawn a few times a second, when something counts.
            QTRY_VERIFY((progress.addBytes(0), capture.text().contains("copying: 1 of 2 files")));
        }
        QVERIFY2(capture.text().endsWith("\r\033[K"), capture.text().constData());
    }

    void humanSizes_data()
    {
        QTest::addColumn<qint64>("bytes");
        QTest::addColumn<QString>("text");
        QTest::newRow("bytes") << qint64(1023) << "1023 B";
        QTest::newRow("kibibyte") << qint64(1024) << "1.0 KiB";
        QTest::newRow("mebibytes") << qint64(1536) * 1024 << "1.5 MiB";
        QTest::newRow("gibibytes") << (qint64(4) << 30) << "4.0 GiB";
        QTest::newRow("beyond the units") << (qint64(5000) << 40) << "5000.0 TiB";
    }

    void humanSizes()
    {
        QFETCH(qint64, bytes);
        QTEST(humanSize(bytes), "text");
    }
};

HALDEN_TEST_MAIN(tst_PublisherCommands)
#include "tst_publishercommands.moc"
