#include "tests/faults/celltable.h"
#include "tests/faults/faultrows.h"
#include "tests/faults/faultyevening.h"
#include "tests/support/applicationfolder.h"
#include "tests/support/diskfaults.h"
#include "tests/support/stderrcapture.h"
#include "tests/support/testmain.h"
#include "tests/update/updatefixture.h"

#include <QDir>
#include <QFileInfo>

#include <fcntl.h>
#include <sys/stat.h>

using namespace TestSupport;
using Targets::installedPatchFile;
using Targets::localPath;

/// Prepares the player's disk for the faulty start. What it returns lives until
/// that start is over.
using Preparation = std::function<std::shared_ptr<void>(FaultyEvening&, Target)>;
Q_DECLARE_METATYPE(Preparation)

namespace {

const QString smallDisk = "/small";
const QString noMessage;

QString temporary(Target target)
{
    return localPath(target) + "-new";
}

void row(
    const QString& fault, Target target, const Preparation& preparation, const QString& result,
    const QString& message = noMessage)
{
    QTest::newRow(rowName(fault, target).constData())
        << fault << target << preparation << result << message;
}

/// The same for all five targets. `message` is the reason that the launcher
/// gives on its standard error stream whenever it cannot open the "-new" file.
void rows(
    const QString& fault, const Preparation& preparation, const QString& result,
    const QString& message = noMessage)
{
    for (const Target target : Targets::all())
        row(fault, target, preparation, result, message);
}

/// Moves a folder to another disk; a link stands in its place.
void moveToSmallDisk(const QString& folder, const QString& file, const QByteArray& content)
{
    QDir(folder).removeRecursively();
    const QString moved = smallDisk + "/moved";
    QDir(moved).removeRecursively();
    placeOldFile(moved + '/' + file, content);
    if (!QFile::link(moved, folder))
        qFatal("cannot link %s", qPrintable(folder));
}

/// Fills a disk, or all of it but this many bytes, while the target is fetched.
Preparation fullDisk(const QString& folder, int room = 0)
{
    return [folder, room](FaultyEvening& evening, Target) {
        auto disk = std::make_shared<std::unique_ptr<FullDisk>>();
        evening.whenTargetIsAskedFor([disk, folder, room] {
            const QString reserve = folder + "/reserve";
            writeFile(reserve, QByteArray(room, 'x'));
            *disk = std::make_unique<FullDisk>(folder);
            QFile::remove(reserve);
        });
        return disk;
    };
}

Preparation readOnly(const std::function<QString(Target)>& folder)
{
    return [folder](FaultyEvening&, Target target) {
        return std::make_shared<ReadOnlyFolder>(folder(target));
    };
}

void disks()
{
    const QString own = "/home/player/Halden Launcher";
    rows("disk full at the \"-new\" file", fullDisk(own), keptThenWhole);
    rows("disk full in the middle of the \"-new\" file", fullDisk(own, 8'192), keptThenWhole);
    row(
        "disk full at the cache", Target::PatchFile,
        [](FaultyEvening& evening, Target target) {
            moveToSmallDisk(
                Targets::localFolder(target), "patch-h.MPQ", Targets::yesterday(target));
            return fullDisk(smallDisk)(evening, target);
        },
        keptThenWhole);
    row(
        "disk full at the client", Target::PatchFile,
        [](FaultyEvening& evening, Target target) {
            evening.judgeByClient();
            moveToSmallDisk(ownClientFolder(), "Data/patch-h.MPQ", Targets::yesterday(target));
            return fullDisk(smallDisk)(evening, target);
        },
        "gone, then whole");
}

void rights()
{
    rows("read-only folder", readOnly(Targets::localFolder), keptThenWhole, "Permission denied");
    rows(
        "read-only file",
        [](FaultyEvening&, Target target) {
            placeOldFile(localPath(target), "yesterday's");
            QFile::setPermissions(localPath(target), QFileDevice::ReadOwner);
            return std::shared_ptr<void>();
        },
        whole);
    row(
        "read-only folder of the client", Target::PatchFile,
        [](FaultyEvening& evening, Target) {
            evening.judgeByClient();
            return std::make_shared<ReadOnlyFolder>(ownClientFolder() + "/Data");
        },
        keptThenWhole);
    rows(
        "target open elsewhere",
        [](FaultyEvening&, Target target) {
            placeOldFile(localPath(target), "yesterday's");
            auto reader = std::make_shared<QFile>(localPath(target));
            if (!reader->open(QIODevice::ReadWrite))
                qFatal("cannot open %s", qPrintable(reader->fileName()));
            return reader;
        },
        whole);
}

void replaceByFolder(const QString& path)
{
    QFile::remove(path);
    writeFile(path + "/inside", "somebody's");
}

/// With a date of yesterday: the folder's date counts as the file's.
void replaceByPipe(const QString& path)
{
    QFile::remove(path);
    const auto name = QFile::encodeName(path);
    const timespec date{ Targets::yesterdayEvening().toSecsSinceEpoch(), 0 };
    const timespec dates[2] = { date, date };
    if (mkfifo(name.constData(), 0600) != 0 || utimensat(AT_FDCWD, name.constData(), dates, 0) != 0)
        qFatal("cannot make the pipe %s", qPrintable(path));
}

/// To a file beside the target, or in a folder there that is gone.
Preparation danglingLink(const QString& destination)
{
    return [destination](FaultyEvening& evening, Target target) {
        QFile::remove(localPath(target));
        const QString led = Targets::localFolder(target) + '/' + destination;
        if (!QFile::link(led, localPath(target)))
            qFatal("cannot link %s", qPrintable(localPath(target)));
        evening.keptMeans([led] { return !QFile::exists(led); });
        return std::shared_ptr<void>();
    };
}

void otherThingsInPlace()
{
    rows(
        "target is a folder",
        [](FaultyEvening& evening, Target target) {
            replaceByFolder(localPath(target));
            evening.keptMeans([target] { return QFile::exists(localPath(target) + "/inside"); });
            if (target == Target::PatchFile)
                evening.clientMayDiffer();
            return std::shared_ptr<void>();
        },
        keptForGood);
    rows(
        "\"-new\" file is a folder",
        [](FaultyEvening&, Target target) {
            replaceByFolder(temporary(target));
            return std::shared_ptr<void>();
        },
        keptForGood, "Is a directory");
    rows(
        "stale \"-new\" file",
        [](FaultyEvening&, Target target) {
            writeFile(temporary(target), "torso");
            QFile::setPermissions(temporary(target), QFileDevice::ReadOwner);
            return std::shared_ptr<void>();
        },
        whole);
    rows(
        "target is a pipe",
        [](FaultyEvening&, Target target) {
            replaceByPipe(localPath(target));
            return std::shared_ptr<void>();
        },
        whole);
    rows("target is a dangling link", danglingLink("gone.bin"), whole);
    rows("target is a link into a folder that is gone", danglingLink("gone/file"), keptForGood);
    row(
        "cache entry is a pipe and the server has no file", Target::PatchFile,
        [](FaultyEvening& evening, Target target) {
            replaceByPipe(localPath(target));
            evening.answerTarget(HttpAnswer::status(404, "gone"));
            evening.expectError("ContentNotFoundError");
            evening.keptMeans([target] { return QFileInfo::exists(localPath(target)); });
            return std::shared_ptr<void>();
        },
        keptThenWhole);
}

void clients()
{
    row(
        "client folder gone", Target::PatchFile,
        [](FaultyEvening& evening, Target) {
            evening.judgeByClient();
            QDir(ownClientFolder()).removeRecursively();
            return std::shared_ptr<void>();
        },
        "gone for good");
    row(
        "client's file is a folder", Target::PatchFile,
        [](FaultyEvening& evening, Target) {
            evening.judgeByClient();
            const QString path = installedPatchFile(ownClientFolder());
            replaceByFolder(path);
            evening.keptMeans([path] { return QFile::exists(path + "/inside"); });
            return std::shared_ptr<void>();
        },
        keptForGood);
}

} // namespace

/// The player's disk is full, read-only or holds something else than it should.
class tst_DiskFaults : public QObject {
    Q_OBJECT

private slots:
    void cell_data();
    void cell();
    void cleanup();
    void cleanupTestCase();

private:
    CellTable cells;
};

void tst_DiskFaults::cell_data()
{
    QTest::addColumn<QString>("fault");
    QTest::addColumn<Target>("target");
    QTest::addColumn<Preparation>("preparation");
    QTest::addColumn<QString>("result");
    QTest::addColumn<QString>("message");
    disks();
    rights();
    otherThingsInPlace();
    clients();
}

void tst_DiskFaults::cell()
{
    QFETCH(QString, fault);
    QFETCH(Target, target);
    QFETCH(Preparation, preparation);
    QFETCH(QString, result);
    QFETCH(QString, message);
    FaultyEvening evening(target);
    std::shared_ptr<void> prepared = preparation(evening, target);
    const StderrCapture said;
    QByteArray complaints;
    evening.afterwards([&] {
        prepared.reset();
        complaints = said.text();
    });
    QCOMPARE(evening.play(), result);
    const QByteArray complaint = QFileInfo(temporary(target)).fileName().toUtf8();
    const qsizetype expected = message.isEmpty() ? 0 : Targets::requestsPerStart(target);
    QCOMPARE(
        complaints.count("Could not open " + complaint + " for writing: " + message.toUtf8()),
        expected);
    QCOMPARE(evening.writesIntoNothing(temporary(target)), expected);
    cells.add(fault, target, result);
}

void tst_DiskFaults::cleanup()
{
    // Links to the small disk; what they lead to goes with the next one.
    QFile::remove(ownClientFolder());
}

/// Last, so that the rows of the page keep the order in which they were proved.
void tst_DiskFaults::cleanupTestCase()
{
    const QString notInClient = "the installation writes patch files only";
    for (const Target target :
         { Target::InfoText, Target::Manifest, Target::Launcher, Target::Updater }) {
        cells.leaveOut("disk full at the cache", target, "only patch files go into the cache");
        cells.leaveOut(
            "cache entry is a pipe and the server has no file", target,
            "only patch files go into the cache");
        for (const QString fault : { "disk full at the client", "read-only folder of the client",
                                     "client folder gone", "client's file is a folder" })
            cells.leaveOut(fault, target, notInClient);
    }
}

HALDEN_TEST_MAIN(tst_DiskFaults)
#include "tst_diskfaults.moc"
