#include "tests/publisher/buildfixture.h"
#include "tests/publisher/fleet/pushfixture.h"
#include "tests/support/applicationfolder.h"
#include "tests/support/certificateauthority.h"
#include "tests/support/testmain.h"

#include <QDir>
#include <QFile>
#include <QProcess>
#include <QProcessEnvironment>

using namespace TestSupport;
using namespace PushFixture;
using BuildFixture::server;
using Publisher::ExitCode;

namespace {

const QString shelf = "/run/cuts/";

void copyFolder(const QString& from, const QString& to)
{
    QDir(to).removeRecursively();
    QDir().mkpath(QFileInfo(to).path());
    if (QProcess::execute("cp", { "--archive", from, to }) != 0)
        qFatal("%s cannot be copied", qPrintable(from));
}

QString folderOf(const QString& name)
{
    return QFile::symLinkTarget(Fleet::path(name));
}

/// Stands for rclone, counts how often it is started, and kills who starts it: before
/// it does anything, or while it does.
void layOutKiller()
{
    const QString path = shelf + "bin/rclone";
    writeFile(path, R"sh(#!/bin/bash
cd /run/cuts || exit 1
exec 9>>lock
flock 9
count=$(($(<count) + 1))
echo "$count" >count
exec 9>&-
if [ "$count" = "$(<before)" ]; then
    kill -KILL "$PPID"
    exit 1
fi
[ "$count" != "$(<during)" ] || (kill -KILL "$PPID") &
exec /usr/bin/rclone "$@"
)sh");
    QFile::setPermissions(path, QFile::ReadOwner | QFile::ExeOwner);
}

struct Cut {
    QByteArray before = "0";
    QByteArray during = "0";
};

/// Whether the push has been cut off.
bool pushUpTo(const Cut& cut, const Fleet& fleet)
{
    writeFile(shelf + "count", "0\n");
    writeFile(shelf + "before", cut.before + '\n');
    writeFile(shelf + "during", cut.during + '\n');
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert("PATH", shelf + "bin:" + environment.value("PATH"));
    QProcess process;
    process.setProcessEnvironment(environment);
    process.setProcessChannelMode(QProcess::MergedChannels);
    process.start(HALDEN_PUBLISH, pushLine(fleet, { "--pause", "0" }));
    if (!process.waitForFinished(patience))
        qFatal("a push does not end");
    if (process.exitStatus() == QProcess::NormalExit && process.exitCode() != 0)
        qFatal("%s", process.readAll().constData());
    return process.exitStatus() == QProcess::CrashExit;
}

} // namespace
Q_DECLARE_METATYPE(Cut)

/// The push is killed at everything that it does to its servers, one after the other.
class tst_PushCuts : public QObject {
    Q_OBJECT

private slots:
    void initTestCase()
    {
        trustedCertificate();
        layOutKiller();
        layOut();
        fleet.start();
        pushWell(fleet);
        moveOn();
        release("2");
        for (const QString& name : fleet.names())
            copyFolder(folderOf(name), shelf + name);
        QVERIFY(!pushUpTo({}, fleet));
        steps = readFile(shelf + "count").trimmed().toInt();
        // Listing, asking, copying, laying beside, moving, dating, at two servers.
        QVERIFY2(steps > 20, qPrintable(QString::number(steps)));
    }

    void serversAreWholeWheneverThePushDies_data()
    {
        // Two steps in a row are the same for two servers.
        QTest::addColumn<Cut>("cut");
        for (int step = 1; step <= steps; ++step) {
            const QByteArray number = QByteArray::number(step);
            if (step % 2 == 1)
                QTest::addRow("before step %d", step) << Cut{ .before = number };
            else
                QTest::addRow("during step %d", step) << Cut{ .during = number };
        }
    }

    void serversAreWholeWheneverThePushDies()
    {
        QFETCH(Cut, cut);
        putBack();
        Watcher watcher(fleet, "Halden-Launcher.exe");
        QVERIFY(pushUpTo(cut, fleet));
        watcher.stop();
        QVERIFY2(watcher.broken().isEmpty(), qPrintable(watcher.broken().join('\n')));
        for (const QString& name : fleet.names())
            QCOMPARE(brokenOn(fleet, name), QStringList());
        const CommandRun finished = push(fleet, { "--pause", "0" });
        QVERIFY2(finished.code == ExitCode::Fine, qPrintable(all(finished)));
        for (const QString& name : fleet.names()) {
            QCOMPARE(differenceFromTree(name), QString());
            for (const char* file : { "patch.ini", "Halden-Launcher.exe" })
                QCOMPARE(dateOf(name, file), dateOf("alder", file));
        }
    }

private:
    void putBack() const
    {
        for (const QString& name : fleet.names())
            copyFolder(shelf + name, folderOf(name));
    }

    Fleet fleet{ 2 };
    /// How often a push that nobody cuts off starts rclone.
    int steps = 0;
};

HALDEN_TEST_MAIN(tst_PushCuts)
#include "tst_pushcuts.moc"
