#include "publisher/build/history.h"
#include "publisher/build/launcherrelease.h"
#include "publisher/common/publication.h"
#include "tests/publisher/buildfixture.h"
#include "tests/support/applicationfolder.h"
#include "tests/support/systemcalls.h"
#include "tests/support/testmain.h"
#include "tests/update/updatefixture.h"

#include <QDir>
#include <QFileInfo>
#include <QProcess>
#include <QProcessEnvironment>
#include <QRegularExpression>

using namespace TestSupport;
using namespace BuildFixture;
using namespace Publisher;

namespace {

const QString callsThatChange
    = "openat,write,?mkdir,mkdirat,?rename,renameat,renameat2,?unlink,unlinkat,?rmdir,utimensat,"
      "fsync,syncfs,?link,linkat,ftruncate,ioctl,flock,?chmod,fchmod";

/// Runs the program under a tracer until it ends or is killed.
void runTraced(QProcess& process, const QStringList& tracer, const QStringList& arguments)
{
    const QStringList command = tracer + QStringList{ HALDEN_PUBLISH } + arguments;
    // Looking for leaks is a tracer's work too, and a program can have one only.
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert("ASAN_OPTIONS", environment.value("ASAN_OPTIONS") + ":detect_leaks=0");
    process.setProcessEnvironment(environment);
    process.start(command.first(), command.mid(1));
    if (!process.waitForFinished(30'000))
        qFatal("%s does not end", qPrintable(command.join(' ')));
}

QProcess::ExitStatus runTraced(const QStringList& tracer, const QStringList& arguments)
{
    QProcess process;
    runTraced(process, tracer, arguments);
    return process.exitStatus();
}

void makeProgram(const QString& name, const QByteArray& version)
{
    writeFile(ApplicationFolder::path(name), readFile("/usr/bin/true") + version);
}

LauncherRequest release()
{
    return { .launcher = ApplicationFolder::path("launcher"),
             .updater = ApplicationFolder::path("updater"),
             .server = server(),
             .flush = false };
}

void releaseInProcess()
{
    StandingClock clock(QDateTime::currentDateTimeUtc().addSecs(5));
    LauncherReport report;
    if (releaseLauncher(release(), clock, report) != ExitCode::Fine)
        qFatal("%s", qPrintable(report.error));
}

/// The call by which the new manifest takes the place of the old one.
qsizetype switchAmong(const QList<SystemCall>& calls)
{
    static const QRegularExpression exchange(
        "^rename.*/\\.patch\\.ini\\.halden-publish\".*/patch\\.ini\"");
    for (qsizetype i = 0; i < calls.size(); ++i) {
        if (calls.at(i).text.contains(exchange))
            return i;
    }
    qFatal("the manifest is not exchanged");
}

/// The first of the steps that are not among the calls, in their order; empty when
/// all are.
QString missingAmong(const QList<SystemCall>& calls, const QStringList& steps)
{
    qsizetype done = 0;
    for (const SystemCall& call : calls) {
        if (done < steps.size() && call.text.contains(QRegularExpression(steps.at(done))))
            ++done;
    }
    return steps.value(done);
}

/// What a build does up to the switch that others can see.
const QStringList stepsToTheSwitch{
    "^flock",
    "^mkdir.*/\\.halden-publish/0\"",
    "^openat.*/\\.halden-publish/0/\\d+\"",
    "^write",
    "^mkdir.*/live/Data/Neu/[0-9a-f]{32}\"",
    "^openat.*/live/Data/Neu/[0-9a-f]{32}/added\\.mpq\"",
    "^write",
    "^mkdir.*/live/Data/[0-9a-f]{32}\"",
    "^rename.*/\\.halden-publish/0/\\d+\".*/changed\\.mpq\"",
    "^syncfs",
    "^openat.*/\\.halden-history/live/\\.2\\.json",
    "^write",
    "^fsync",
    "^rename.*/2\\.json\"",
    "^openat.*/\\.halden-history/live/\\.2\\.ini",
    "^write",
    "^fsync",
    "^rename.*/2\\.ini\"",
    "^openat.*/\\.patch\\.ini\\.halden-publish\"",
    "^write",
    "^fsync",
    "^utimensat",
    "^rename.*/patch\\.ini\"",
};

/// The files of the live manifest that are missing or wrong.
QStringList brokenFiles()
{
    QStringList broken;
    const auto files = readPublication(server("patch.ini"), Kind::Live).files;
    for (const PublishedFile& file : files) {
        if (md5(readFile(server(file.serverPath))) != file.hash)
            broken.append(file.path);
    }
    return broken;
}

/// A run that nobody kills.
struct WholeRun {
    QStringList arguments;
    QByteArray oldManifest;
    QByteArray newManifest;
    QList<SystemCall> calls;
    /// Which of them exchanges the manifest.
    qsizetype exchange = 0;
};

WholeRun recordRun(const QStringList& arguments)
{
    const QString record = ApplicationFolder::path("calls");
    WholeRun run;
    run.arguments = arguments;
    run.oldManifest = readFile(server("patch.ini"));
    if (runTraced(Trace::record(callsThatChange, record), arguments) != QProcess::NormalExit)
        qFatal("a run that nobody kills does not end well");
    run.newManifest = readFile(server("patch.ini"));
    run.calls = Trace::recordedChanges(record);
    run.exchange = switchAmong(run.calls);
    if (run.newManifest == run.oldManifest || run.exchange + 1 == run.calls.size())
        qFatal("the run exchanges nothing, or does nothing behind it");
    return run;
}

/// Kills the same run before one of its calls; what is wrong with what is live then.
QString damageByKilling(const WholeRun& run, qsizetype number)
{
    const SystemCall& call = run.calls.at(number);
    if (runTraced(Trace::killBefore(call), run.arguments) != QProcess::CrashExit)
        return "is not killed: " + call.text;
    if (readFile(server("patch.ini"))
        != (number <= run.exchange ? run.oldManifest : run.newManifest))
        return "has another manifest: " + call.text;
    const QStringList broken = brokenFiles();
    return broken.isEmpty() ? QString() : "has broken files: " + call.text + broken.join(' ');
}

} // namespace

/// The program is killed at every call that changes something, one after the
/// other, in a run that replaces, adds and drops files.
class tst_PublisherCrash : public QObject {
    Q_OBJECT

private slots:
    void init()
    {
        QTest::failOnWarning(QRegularExpression(".*"));
        ApplicationFolder::clear();
    }

    void publicationIsWholeWheneverThePublisherDies_data()
    {
        QTest::addColumn<QStringList>("options");
        QTest::newRow("publish") << QStringList();
        QTest::newRow("publish and prune") << QStringList("--prune");
    }

    void publicationIsWholeWheneverThePublisherDies()
    {
        QFETCH(QStringList, options);
        const QStringList arguments
            = QStringList{ "build", source(), server(), "--jobs", "1", "--yes-remove", "1" }
            + options;
        layOut();
        const WholeRun whole = recordRun(arguments);
        QCOMPARE(missingAmong(whole.calls.first(whole.exchange + 1), stepsToTheSwitch), QString());

        for (qsizetype i = 0; i < whole.calls.size(); ++i) {
            const QString& call = whole.calls.at(i).text;
            layOut();
            QCOMPARE(damageByKilling(whole, i), QString());
            finish();
            QVERIFY2(readFile(server("patch.ini")) == whole.newManifest, qPrintable(call));
            QVERIFY2(brokenFiles().isEmpty(), qPrintable(call));
            QVERIFY2(servedFiles().size() == 4, qPrintable(call));
        }
    }

    void publicationIsWholeWhenTheDiskFails_data()
    {
        QTest::addColumn<QString>("call");
        QTest::addColumn<QString>("error");
        QTest::addColumn<QString>("file");
        const QString any;
        // On one file, since a sanitizer writes too.
        QTest::newRow("full disk, at a large file") << "write"
                                                    << "ENOSPC"
                                                    << "wow-client-patch/.halden-publish/0/1";
        QTest::newRow("full disk, at a small file")
            << "write"
            << "ENOSPC"
            << "wow-client-patch/live/Data/Neu/" + md5("added") + "/added.mpq";
        QTest::newRow("full disk, at the manifest") << "write"
                                                    << "ENOSPC"
                                                    << ".patch.ini.halden-publish";
        QTest::newRow("no folders") << "?mkdir,mkdirat"
                                    << "EDQUOT" << any;
        QTest::newRow("no renames") << "?rename,renameat,renameat2"
                                    << "EIO" << any;
        QTest::newRow("no dates") << "utimensat"
                                  << "EPERM" << any;
        QTest::newRow("files do not reach the disk") << "syncfs"
                                                     << "EIO" << any;
        QTest::newRow("the manifest does not reach the disk") << "fsync"
                                                              << "EIO" << any;
    }

    void publicationIsWholeWhenTheDiskFails()
    {
        QFETCH(QString, call);
        QFETCH(QString, error);
        QFETCH(QString, file);
        layOut();
        const QByteArray oldManifest = readFile(server("patch.ini"));
        QStringList tracer = Trace::fail(call, error);
        if (!file.isEmpty())
            tracer += { "-P", server(file) };
        QProcess process;
        runTraced(
            process, tracer,
            { "build", source(), server(), "--jobs", "1", "--prune", "--yes-remove", "1" });
        QCOMPARE(process.exitStatus(), QProcess::NormalExit);
        QCOMPARE(process.exitCode(), 3);
        QVERIFY(readFile(server("patch.ini")) == oldManifest);
        QCOMPARE(brokenFiles(), QStringList());
        finish();
        QVERIFY(readFile(server("patch.ini")) != oldManifest);
        QCOMPARE(brokenFiles(), QStringList());
    }

    void formerPublicationIsWholeWheneverThePublisherDies_data()
    {
        QTest::addColumn<QStringList>("arguments");
        QTest::newRow("roll back")
            << QStringList{ "rollback", server(), "1", "--yes-remove", "1", "--jobs", "1" };
        QTest::newRow("promote") << QStringList{ "promote", server(), "--jobs", "1" };
    }

    void formerPublicationIsWholeWheneverThePublisherDies()
    {
        QFETCH(QStringList, arguments);
        layOutBoth();
        const WholeRun whole = recordRun(arguments);
        for (qsizetype i = 0; i < whole.calls.size(); ++i) {
            layOutBoth();
            QCOMPARE(damageByKilling(whole, i), QString());
            const QList<HistoryEntry> entries = History(server(), Kind::Live).entries();
            QVERIFY2(
                !entries.isEmpty() && entries.constLast().isLive,
                qPrintable(whole.calls.at(i).text));
            QCOMPARE(readFile(entries.constLast().manifestPath), readFile(server("patch.ini")));
        }
    }

    void programsAreWholeWheneverThePublisherDies()
    {
        const QStringList arguments{ "build-launcher",   server(),    "--launcher",
                                     release().launcher, "--updater", release().updater };
        const QString record = ApplicationFolder::path("calls");
        layOutPrograms();
        QCOMPARE(
            runTraced(Trace::record(callsThatChange, record), arguments), QProcess::NormalExit);
        const QList<SystemCall> calls = Trace::recordedChanges(record);
        QVERIFY2(calls.size() > 8, qPrintable(QString::number(calls.size())));
        for (const SystemCall& call : calls) {
            layOutPrograms();
            QCOMPARE(runTraced(Trace::killBefore(call), arguments), QProcess::CrashExit);
            for (const char* name : { "Halden-Launcher.exe", "Halden-Launcher-Updater.exe" }) {
                const QByteArray version = readFile(server(name)).right(3);
                QVERIFY2(version == "old" || version == "new", qPrintable(call.text));
            }
            releaseInProcess();
            QCOMPARE(readFile(server("Halden-Launcher.exe")), readFile(release().launcher));
            QCOMPARE(readFile(server("Halden-Launcher-Updater.exe")), readFile(release().updater));
            QCOMPARE(servedFiles().size(), 2);
        }
    }

private:
    /// An old publication, and a source that has moved on.
    static void layOut()
    {
        QDir(server()).removeRecursively();
        QDir(source()).removeRecursively();
        put("Data/same.mpq", "same");
        put("Data/changed.mpq", "old");
        put("Data/dropped.mpq", "dropped");
        published();
        // The program goes by the machine's clock.
        setDate(server("patch.ini"), QDateTime::currentDateTimeUtc().addDays(-1));
        // One by way of the staging folder, and one right to its place.
        put("Data/changed.mpq", QByteArray(300 << 10, 'n'));
        put("Data/Neu/added.mpq", "added");
        QFile::remove(source("Data/dropped.mpq"));
    }

    static void finish()
    {
        BuildRequest pruning = request();
        pruning.prune = true;
        pruning.confirmedDrops = 1;
        published(pruning);
    }

    /// Two live publications and one for testers, dated before this machine's clock.
    static void layOutBoth()
    {
        layOut();
        BuildRequest dropping = request();
        dropping.confirmedDrops = 1;
        published(dropping);
        put("Data/changed.mpq", "for testers");
        BuildRequest forTest = request();
        forTest.kind = Kind::Test;
        published(forTest);
        for (const char* name : { "patch.ini", "patchTest.ini" })
            setDate(server(name), QDateTime::currentDateTimeUtc().addSecs(-3600));
    }

    static void layOutPrograms()
    {
        QDir(server()).removeRecursively();
        for (const char* name : { "launcher", "updater" })
            makeProgram(name, "old");
        releaseInProcess();
        for (const char* name : { "launcher", "updater" })
            makeProgram(name, "new");
    }
};

HALDEN_TEST_MAIN(tst_PublisherCrash)
#include "tst_publishercrash.moc"
