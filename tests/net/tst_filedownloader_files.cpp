#include "tests/net/downloadprobe.h"
#include "tests/net/folderlog.h"
#include "tests/support/applicationfolder.h"
#include "tests/support/diskfaults.h"
#include "tests/support/httpsserver.h"
#include "tests/support/logcapture.h"
#include "tests/support/smalldisk.h"
#include "tests/support/stderrcapture.h"
#include "tests/support/testmain.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>

#include <cerrno>

using namespace TestSupport;

namespace {

#ifdef Q_OS_WIN
const QByteArray accessDenied = qt_error_string(5).toLocal8Bit();
const QByteArray noSuchFolder = qt_error_string(3).toLocal8Bit();
const QByteArray folderInTheWay = accessDenied;
#else
const QByteArray accessDenied = qt_error_string(EACCES).toLocal8Bit();
const QByteArray noSuchFolder = qt_error_string(ENOENT).toLocal8Bit();
const QByteArray folderInTheWay = qt_error_string(EISDIR).toLocal8Bit();
#endif

QString writtenWith(const QString& target, const QString& temporary)
{
    return "fileWriteFinished, flag 1, hidden 1, target " + target + ", temporary " + temporary;
}

QByteArray cannotOpen(const QByteArray& name, const QByteArray& reason)
{
    return "Could not open " + name + " for writing: " + reason + '\n';
}

/// The toolkit's word for the write that follows.
QString writeIntoNothing(const QString& temporary)
{
    return "warning: QIODevice::write (QFile, \"" + QDir::toNativeSeparators(temporary)
        + "\"): device not open";
}

} // namespace

/// What a download does in its target folder.
class tst_FileDownloaderFiles : public QObject {
    Q_OBJECT

private slots:
    void init();
    void cleanup();

    void writesBesideTheTargetFirst_data();
    void writesBesideTheTargetFirst();
    void keepsEveryByte();
    void noOtherFileIsTouched();
    void staleTemporaryIsRemoved_data();
    void staleTemporaryIsRemoved();
    void temporaryCannotBeOpened_data();
    void temporaryCannotBeOpened();
    void folderInPlaceOfTheTemporary_data();
    void folderInPlaceOfTheTemporary();
    void targetCannotBeRemoved();
    void targetIsAFolder();
    void fullDiskKeepsTheTarget_data();
    void fullDiskKeepsTheTarget();
    void nothingIsWrittenOnFailure();

private:
    QString folder;
    QScopedPointer<HttpsServer> server;
};

void tst_FileDownloaderFiles::init()
{
    QTest::failOnWarning(QRegularExpression(".*"));
    ApplicationFolder::clear();
    folder = ApplicationFolder::path("target");
    writeFile(folder + "/file.bin", "old");
    server.reset(new HttpsServer);
    server->listen();
    server->answerAnythingElse([](const HttpRequest&) { return HttpAnswer::ok("new"); });
}

void tst_FileDownloaderFiles::cleanup()
{
    QDir("/small").removeRecursively();
}

void tst_FileDownloaderFiles::writesBesideTheTargetFirst_data()
{
    QTest::addColumn<bool>("targetExists");
    QTest::addColumn<bool>("staleExists");
    QTest::addColumn<QStringList>("events");
    const QStringList written{ "created file.bin-new", "written file.bin-new" };
    const QStringList moved{ "moved from file.bin-new", "moved to file.bin" };
    const QStringList removedTarget{ "removed file.bin" };
    const QStringList removedStale{ "removed file.bin-new" };
    QTest::newRow("no target") << false << false << written + moved;
    QTest::newRow("target") << true << false << written + removedTarget + moved;
    QTest::newRow("stale file") << false << true << removedStale + written + moved;
    QTest::newRow("target and stale file")
        << true << true << removedStale + written + removedTarget + moved;
}

void tst_FileDownloaderFiles::writesBesideTheTargetFirst()
{
    QFETCH(bool, targetExists);
    QFETCH(bool, staleExists);
    QFETCH(QStringList, events);
    if (!targetExists)
        QVERIFY(QFile::remove(folder + "/file.bin"));
    if (staleExists)
        writeFile(folder + "/file.bin-new", "stale");
    FolderLog log(folder);
    DownloadProbe probe;
    QVERIFY(probe.run(onDownloadHost("/f")));
    QTRY_COMPARE(probe.outcome(), endedWritten("new"));
    QCOMPARE(log.take(), events);
}

void tst_FileDownloaderFiles::keepsEveryByte()
{
    QByteArray body(3000000, Qt::Uninitialized);
    for (qsizetype i = 0; i < body.size(); ++i)
        body[i] = static_cast<char>(i % 251);
    server->answer("/f", HttpAnswer::ok(body));
    DownloadProbe probe;
    QVERIFY(probe.run(onDownloadHost("/f")));
    QVERIFY2(readFile(probe.target()) == body, "the file differs from what the server sent");
}

void tst_FileDownloaderFiles::noOtherFileIsTouched()
{
    writeFile(folder + "/file.bin.bak", "other");
    writeFile(folder + "/file.bi", "other");
    DownloadProbe probe;
    QVERIFY(probe.run(onDownloadHost("/f")));
    QCOMPARE(
        QDir(folder).entryList(QDir::Files, QDir::Name),
        QStringList({ "file.bi", "file.bin", "file.bin.bak" }));
    QCOMPARE(readFile(folder + "/file.bin.bak"), "other");
}

void tst_FileDownloaderFiles::staleTemporaryIsRemoved_data()
{
    QTest::addColumn<QByteArray>("stale");
    QTest::newRow("longer than the new file") << QByteArray(100000, 's');
    QTest::newRow("empty") << QByteArray();
}

void tst_FileDownloaderFiles::staleTemporaryIsRemoved()
{
    QFETCH(QByteArray, stale);
    writeFile(folder + "/file.bin-new", stale);
#ifndef Q_OS_WIN // there it could not be removed either
    // Writing into the old file would keep its permissions.
    QFile::setPermissions(folder + "/file.bin-new", QFile::ReadOwner);
#endif
    DownloadProbe probe;
    QVERIFY(probe.run(onDownloadHost("/f")));
    QTRY_COMPARE(probe.outcome(), endedWritten("new"));
}

void tst_FileDownloaderFiles::temporaryCannotBeOpened_data()
{
    QTest::addColumn<QString>("place");
    QTest::addColumn<QString>("name");
    QTest::addColumn<QByteArray>("text");
    QTest::addColumn<QString>("outcome");
    QTest::newRow("read-only folder")
        << "target"
        << "file.bin" << cannotOpen("file.bin-new", accessDenied) << writtenWith("'old'", "none");
    QTest::newRow("no folder") << "missing"
                               << "file.bin" << cannotOpen("file.bin-new", noSuchFolder)
                               << writtenWith("none", "none");
    QTest::newRow("name in local encoding")
        << "missing"
        << "Übersicht.txt" << cannotOpen(QString("Übersicht.txt-new").toLocal8Bit(), noSuchFolder)
        << writtenWith("none", "none");
    QTest::newRow("percent signs are no format")
        << "missing"
        << "%s%n" << cannotOpen("%s%n-new", noSuchFolder) << writtenWith("none", "none");
}

void tst_FileDownloaderFiles::temporaryCannotBeOpened()
{
    QFETCH(QString, place);
    QFETCH(QString, name);
    QFETCH(QByteArray, text);
    QFETCH(QString, outcome);
    const ReadOnlyFolder readOnly(folder);
    DownloadProbe probe(name);
    probe.folder = ApplicationFolder::path(place);
    const LogCapture log;
    const StderrCapture errors;
    QVERIFY(probe.run(onDownloadHost("/f")));
    QTRY_COMPARE(probe.outcome(), outcome);
    QCOMPARE(errors.text(), text);
    const QStringList lines{ "got an answer", writeIntoNothing(probe.target() + "-new") };
    QCOMPARE(log.lines().mid(1), lines);
}

void tst_FileDownloaderFiles::folderInPlaceOfTheTemporary_data()
{
    QTest::addColumn<bool>("targetExists");
    QTest::addColumn<QString>("target");
    QTest::newRow("with a target") << true << "'old'";
    QTest::newRow("without a target") << false << "none";
}

void tst_FileDownloaderFiles::folderInPlaceOfTheTemporary()
{
    QFETCH(bool, targetExists);
    QFETCH(QString, target);
    if (!targetExists)
        QVERIFY(QFile::remove(folder + "/file.bin"));
    writeFile(folder + "/file.bin-new/inside", "content");
    DownloadProbe probe;
    const LogCapture log;
    const StderrCapture errors;
    QVERIFY(probe.run(onDownloadHost("/f")));
    QTRY_COMPARE(probe.outcome(), writtenWith(target, "folder"));
    QCOMPARE(errors.text(), cannotOpen("file.bin-new", folderInTheWay));
    QCOMPARE(log.lines().constLast(), writeIntoNothing(folder + "/file.bin-new"));
    QCOMPARE(readFile(folder + "/file.bin-new/inside"), "content");
}

void tst_FileDownloaderFiles::targetCannotBeRemoved()
{
    writeFile(folder + "/file.bin-new", "stale");
    const UnremovableFile unremovable(folder + "/file.bin");
    DownloadProbe probe;
    const LogCapture log;
    const StderrCapture errors;
    QVERIFY(probe.run(onDownloadHost("/f")));
    QTRY_COMPARE(probe.outcome(), writtenWith("'old'", "'new'"));
    QCOMPARE(errors.text(), QByteArray());
    QCOMPARE(log.lines().mid(1), QStringList("got an answer"));
}

void tst_FileDownloaderFiles::targetIsAFolder()
{
    QVERIFY(QFile::remove(folder + "/file.bin"));
    writeFile(folder + "/file.bin/inside", "content");
    DownloadProbe probe;
    QVERIFY(probe.run(onDownloadHost("/f")));
    QTRY_COMPARE(probe.outcome(), writtenWith("folder", "'new'"));
    QCOMPARE(readFile(folder + "/file.bin/inside"), "content");
}

void tst_FileDownloaderFiles::fullDiskKeepsTheTarget_data()
{
    QTest::addColumn<int>("free");
    QTest::newRow("no room for the whole file") << 8192;
    QTest::newRow("no room at all") << 0;
}

void tst_FileDownloaderFiles::fullDiskKeepsTheTarget()
{
    HALDEN_NEEDS_SMALL_DISK();
    QFETCH(int, free);
    server->answer("/f", HttpAnswer::ok(QByteArray(100000, 'n')));
    writeFile("/small/file.bin", "old");
    QFile filler("/small/filler");
    QVERIFY(filler.open(QIODevice::WriteOnly | QIODevice::Unbuffered));
    while (filler.write(QByteArray(4096, 'x')) == 4096) { }
    if (free > 0)
        QVERIFY(filler.resize(filler.size() - free));
    DownloadProbe probe;
    probe.folder = "/small";
    const LogCapture log;
    QVERIFY(probe.run(onDownloadHost("/f")));
    QTRY_COMPARE(probe.outcome(), writtenWith("'old'", "none"));
}

void tst_FileDownloaderFiles::nothingIsWrittenOnFailure()
{
    server->answer("/f", HttpAnswer::status(404, "<html>gone</html>"));
    FolderLog files(folder);
    DownloadProbe probe;
    const LogCapture log;
    QVERIFY(probe.run(onDownloadHost("/f")));
    QTRY_COMPARE(probe.outcome(), endedNotModified("old"));
    QCOMPARE(files.take(), QStringList());
}

HALDEN_TEST_MAIN(tst_FileDownloaderFiles)
#include "tst_filedownloader_files.moc"
