#include "tests/faults/celltable.h"
#include "tests/faults/launchercopy.h"
#include "tests/support/applicationfolder.h"
#include "tests/support/systemcalls.h"
#include "tests/support/testmain.h"

#include <QFile>
#include <QRegularExpression>
#include <QSet>
#include <QTimer>

#include <algorithm>

using namespace TestSupport;

Q_DECLARE_METATYPE(SystemCall)

namespace {

const QString callsThatChange
    = "?open,openat,?creat,?openat2,write,writev,pwrite64,pwritev,?pwritev2,sendfile,splice,"
      "copy_file_range,truncate,ftruncate,fallocate,?mkdir,mkdirat,?mknod,mknodat,?symlink,"
      "symlinkat,?rename,?renameat,renameat2,?unlink,unlinkat,?rmdir,?link,linkat,?chmod,fchmod,"
      "fchmodat,?chown,?lchown,fchown,fchownat,?utime,?utimes,?futimesat,utimensat";

const QByteArray addedFile = "added with today's patch";
const QByteArray addedPath = "/wow-client-patch/live//neu.MPQ";

/// A start of the launcher that is killed again and again.
struct Course {
    QString name;
    bool launcherIsNewer;
    /// With a newer launcher it ends with the hand-over.
    bool hasUpdater;
    bool clientIsBehind;

    bool isHandedOver() const
    {
        return launcherIsNewer && hasUpdater;
    }
    int copiesPerRun() const
    {
        return clientIsBehind ? 2 : 1;
    }
};

const QList<Course>& courses()
{
    static const QList<Course> all{
        { "everything is new but the launcher", false, true, true },
        { "the launcher is new and there is no updater", true, false, false },
        { "the launcher is new and handed over", true, true, true },
    };
    return all;
}

/// A removal, two folders, a changed file and a new one in a new folder.
QByteArray manifest()
{
    const auto hash = [](const QByteArray& content) {
        return md5(content).toLatin1();
    };
    return "[General]\nnumberOfFiles=5\n"
           "file1=alt.MPQ\nfile1-save=false\nfile1-pathOffset=Data\n"
           "file2=Data\nfile2-dirOnly=true\nfile2-pathOffset=.\n"
           "file3=Neu\nfile3-dirOnly=true\nfile3-pathOffset=Data\n"
           "file4=patch-h.MPQ\nfile4-pathOffset=Data\nfile4-hash="
        + hash(Targets::today(Target::PatchFile))
        + "\nfile5=neu.MPQ\nfile5-pathOffset=Data/Neu\nfile5-hash=" + hash(addedFile) + '\n';
}

/// What the launcher writes, creates, removes or renames, and the folders in
/// which it makes files without a name.
QStringList touchedPaths(const LauncherCopy& player)
{
    QStringList paths;
    const QString launcher = player.launcherFolder() + '/';
    const QString cache = launcher + "ClientDataStorage/live/";
    const QString client = player.clientFolder() + "/Data";
    for (const Target target : Targets::all())
        paths += { launcher + Targets::relativePath(target),
                   launcher + Targets::relativePath(target) + "-new" };
    paths += { cache + "Data/Neu", cache + "./Data/Neu", cache + "Data/Neu/neu.MPQ",
               cache + "Data/Neu/neu.MPQ-new" };
    paths += { client, client + "/Neu", client + "/Neu/neu.MPQ", client + "/patch-h.MPQ",
               client + "/alt.MPQ" };
    return paths;
}

/// Lets the tracer see the calls for these paths only.
QStringList onlyFor(const QStringList& paths)
{
    QStringList options;
    for (const QString& path : paths)
        options += { "--trace-path=" + path };
    return options;
}

/// A call that has changed something below a folder that has a name there.
bool hasChangedSomethingIn(const QString& folder, const SystemCall& call)
{
    static const QRegularExpression currentFolder("AT_FDCWD<[^>]*>");
    const QString text = QString(call.text).remove(currentFolder);
    const bool isLog = text.startsWith("write(2<");
    const bool hasFailed = text.contains(") = -1 ");
    return !isLog && !hasFailed && text.contains(folder + '/') && !text.contains("/#");
}

bool concernsOneOf(const QStringList& paths, const SystemCall& call)
{
    return std::any_of(paths.begin(), paths.end(), [&call](const QString& path) {
        return call.text.contains('"' + path + '"') || call.text.contains('<' + path + '>');
    });
}

/// What the kill may leave for good: the first run has put one of these files in
/// its place, and the kill has met the second run at the same file. They are
/// fetched again when there is a newer one, all others with the next start.
const QStringList& mayBeLeftOver()
{
    static const QStringList files{ "launcher/ClientDataStorage/live/Data/Neu/neu.MPQ-new",
                                    "launcher/ClientDataStorage/live/Data/patch-h.MPQ-new",
                                    "launcher/Halden-Launcher-Updater.exe-new",
                                    "launcher/Settings/patch.ini-new" };
    return files;
}

/// What else is there than should be, and what is not.
QStringList
differences(const QMap<QString, QByteArray>& tree, const QMap<QString, QByteArray>& expected)
{
    QStringList found;
    for (auto file = expected.begin(); file != expected.end(); ++file) {
        if (tree.value(file.key()) != file.value())
            found.append(file.key());
    }
    for (auto file = tree.begin(); file != tree.end(); ++file) {
        if (!expected.contains(file.key()))
            found.append(file.key());
    }
    return found;
}

/// What the community's server answers, by path.
QMap<QByteArray, HttpsServer::Handler> publication(const Course& course)
{
    QMap<QByteArray, HttpsServer::Handler> answers;
    const Target newest = course.launcherIsNewer ? Target::Launcher : Target::Manifest;
    for (const Target target : Targets::all())
        answers.insert(
            Targets::requestPath(target),
            Targets::publishedFor(newest, target, Targets::thisMorning()));
    answers.insert(
        Targets::requestPath(Target::Manifest),
        HttpsServer::servingFile(
            manifest(),
            course.clientIsBehind ? Targets::thisMorning() : Targets::yesterdayEvening()));
    answers.insert(addedPath, [](const HttpRequest&) { return HttpAnswer::ok(addedFile); });
    if (!course.hasUpdater)
        answers.insert(Targets::requestPath(Target::Updater), [](const HttpRequest&) {
            return HttpAnswer::status(404);
        });
    return answers;
}

void layOut(const LauncherCopy& player, const Course& course)
{
    placeOldFile(player.clientFolder() + "/Data/alt.MPQ", "out of date");
    if (!course.hasUpdater)
        QFile::remove(player.launcherFolder() + '/' + Targets::relativePath(Target::Updater));
}

/// Index of the call that puts this file in its place.
qsizetype indexOfRename(const QList<SystemCall>& calls, const QString& file)
{
    const auto found = std::find_if(calls.begin(), calls.end(), [&file](const SystemCall& call) {
        return call.name.startsWith("rename") && call.text.contains(file);
    });
    if (found == calls.end())
        qFatal("nothing was renamed to %s", qPrintable(file));
    return found - calls.begin();
}

/// The hand-over ends the launcher; otherwise it stays, with nothing to do.
bool waitForEnd(LauncherCopy& player, const Course& course)
{
    return course.isHandedOver() ? player.waitForExit()
                                 : player.waitForBothRuns(course.copiesPerRun());
}

} // namespace

/// The launcher is killed at every system call that changes something, one after
/// the other, and started again.
class tst_KilledRuns : public QObject {
    Q_OBJECT

private slots:
    void initTestCase();
    void tracerSeesAllCalls();
    void killed_data();
    void killed();
    void everyFileWasMet();

private:
    void publish(const Course& course);
    void publishInStep(const Course& course);
    QList<SystemCall> runToItsEnd(const Course& course);

    const QString place = "/home/player/evening";
    const QString record = "/home/player/calls";
    HttpsServer server;
    QList<QMap<QString, QByteArray>> undisturbed;
    int recorded = 0;
    QList<SystemCall> survived;
    QSet<QString> leftOver;
    CellTable cells;
};

void tst_KilledRuns::initTestCase()
{
    server.listen();
}

void tst_KilledRuns::publish(const Course& course)
{
    const auto answers = publication(course);
    for (auto answer = answers.begin(); answer != answers.end(); ++answer)
        server.answer(answer.key(), answer.value());
}

/// Neither run gets ahead of the other, so every start makes the same calls.
void tst_KilledRuns::publishInStep(const Course& course)
{
    auto answers = publication(course);
    const QByteArray askedForOnce = Targets::requestPath(Target::InfoText);
    server.answer(askedForOnce, answers.take(askedForOnce));
    for (auto one = answers.begin(); one != answers.end(); ++one) {
        auto asked = std::make_shared<int>(0);
        server.answer(one.key(), [this, asked, answer = one.value()](const HttpRequest& request) {
            if (++*asked % 2 == 0)
                QTimer::singleShot(0, &server, &HttpsServer::release);
            return HttpAnswer::held(answer(request));
        });
    }
}

/// All calls of the launcher that change something are for one of the paths by
/// which the tracer picks them.
void tst_KilledRuns::tracerSeesAllCalls()
{
    const Course& course = courses().constFirst();
    LauncherCopy player(place);
    layOut(player, course);
    publish(course);
    player.start(Trace::record(callsThatChange, record) + QStringList{ "--decode-fds=path" });
    QVERIFY2(waitForEnd(player, course), qPrintable(player.lastLines()));
    player.stop();
    int seen = 0;
    const QStringList paths = touchedPaths(player);
    const QList<SystemCall> calls = Trace::recordedChanges(record);
    for (const SystemCall& call : calls) {
        if (!hasChangedSomethingIn(place, call))
            continue;
        QVERIFY2(concernsOneOf(paths, call), qPrintable("nobody is killed at " + call.text));
        ++seen;
    }
    QVERIFY2(seen > 0, "the tracer has recorded nothing");
}

/// Says which calls an undisturbed start makes.
QList<SystemCall> tst_KilledRuns::runToItsEnd(const Course& course)
{
    LauncherCopy player(place);
    layOut(player, course);
    publishInStep(course);
    player.start(Trace::record(callsThatChange, record) + onlyFor(touchedPaths(player)));
    if (!waitForEnd(player, course))
        qFatal("%s", qPrintable(player.lastLines()));
    player.stop();
    undisturbed.append(player.tree());
    QList<SystemCall> calls = Trace::recordedChanges(record);
    // The first run's hand-over may end the launcher before the second one has
    // made the same calls; the launcher that is not handed over makes them all.
    if (course.isHandedOver())
        calls.resize(1 + indexOfRename(calls, Targets::relativePath(Target::Launcher)));
    return calls;
}

void tst_KilledRuns::killed_data()
{
    QTest::addColumn<int>("course");
    QTest::addColumn<SystemCall>("call");
    for (int number = 0; number < courses().size(); ++number) {
        const Course& course = courses().at(number);
        const QList<SystemCall> calls = runToItsEnd(course);
        for (const SystemCall& call : calls)
            QTest::addRow(
                "%s, %s number %d", qPrintable(course.name), qPrintable(call.name), call.ordinal)
                << number << call;
        recorded += static_cast<int>(calls.size());
    }
}

void tst_KilledRuns::killed()
{
    QFETCH(int, course);
    QFETCH(SystemCall, call);
    LauncherCopy player(place);
    layOut(player, courses().at(course));
    publishInStep(courses().at(course));
    const QStringList tracer
        = Trace::both(Trace::record(callsThatChange, record), Trace::killBefore(call));
    player.start(tracer + onlyFor(touchedPaths(player)));
    QVERIFY2(player.waitForExit() && player.wasKilled(), qPrintable(player.lastLines()));
    const SystemCall last = Trace::recordedChanges(record).constLast();
    QCOMPARE(qMakePair(last.name, last.ordinal), qMakePair(call.name, call.ordinal));
    publish(courses().at(course));
    player.start();
    QVERIFY2(waitForEnd(player, courses().at(course)), qPrintable(player.lastLines()));
    player.stop();
    QStringList wrong = differences(player.tree(), undisturbed.at(course));
    for (const QString& file : mayBeLeftOver()) {
        if (wrong.removeOne(file))
            leftOver.insert(file);
    }
    QVERIFY2(wrong.isEmpty(), qPrintable(wrong.join('\n') + "\nafter the kill at " + call.text));
    survived.append(call);
}

void tst_KilledRuns::everyFileWasMet()
{
    QCOMPARE(survived.size(), recorded);
    QStringList left = leftOver.values();
    left.sort();
    QCOMPARE(left, mayBeLeftOver());
    for (const Target target : Targets::all()) {
        const QString file = Targets::relativePath(target);
        QVERIFY2(
            std::any_of(
                survived.begin(), survived.end(),
                [&file](const SystemCall& call) { return call.text.contains(file); }),
            qPrintable("no call concerns " + file));
        const bool mayLeave = mayBeLeftOver().contains("launcher/" + file + "-new");
        cells.add(
            "killed at any call that changes something", target,
            mayLeave ? "then whole, \"-new\" may stay" : "then whole");
    }
}

HALDEN_TEST_MAIN(tst_KilledRuns)
#include "tst_killedruns.moc"
