#include "tests/net/downloadprobe.h"
#include "tests/support/applicationfolder.h"
#include "tests/support/httpsserver.h"
#include "tests/support/logcapture.h"
#include "tests/support/mainwindowundertest.h"
#include "tests/support/testmain.h"
#include "tests/support/widgets.h"
#include "tests/update/updatefixture.h"
#include "ui/addclientdialog.h"
#include "update/updatingprocedures.h"

#include <QClipboard>
#include <QDir>
#include <QFile>
#include <QProcess>

#include <windows.h>

using namespace TestSupport;
using namespace UpdateFixture;

namespace {

QString client(const QString& relativePath = QString())
{
    return ApplicationFolder::path("client" + relativePath);
}

/// What a program lets others do with a file that it has open.
enum class Sharing { Nothing, ReadingAndWriting, Everything };

DWORD flagsOf(Sharing sharing)
{
    constexpr DWORD readingAndWriting = FILE_SHARE_READ | FILE_SHARE_WRITE;
    switch (sharing) {
    case Sharing::Nothing:
        return 0;
    case Sharing::ReadingAndWriting:
        return readingAndWriting;
    case Sharing::Everything:
        return readingAndWriting | FILE_SHARE_DELETE;
    }
    return 0;
}

/// As other programs get it, and not from the toolkit, whose platform for tests has a
/// clipboard of its own.
QString textOnTheClipboard()
{
    if (!OpenClipboard(nullptr))
        return "the clipboard cannot be opened";
    QString text;
    if (const HANDLE data = GetClipboardData(CF_UNICODETEXT)) {
        text = QString::fromWCharArray(static_cast<const wchar_t*>(GlobalLock(data)));
        GlobalUnlock(data);
    }
    CloseClipboard();
    return text;
}

/// What the other program does: it has the file open until its input ends.
int holdFile(const QString& path, Sharing sharing)
{
    HANDLE file = CreateFileW(
        reinterpret_cast<const wchar_t*>(QDir::toNativeSeparators(path).utf16()), GENERIC_READ,
        flagsOf(sharing), nullptr, OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr);
    if (file == INVALID_HANDLE_VALUE)
        return 1;
    std::puts("open");
    std::fflush(stdout);
    while (std::getchar() != EOF) { }
    CloseHandle(file);
    return 0;
}

/// Another program that has a file open.
class OtherProgram {
public:
    OtherProgram(const QString& path, Sharing sharing)
    {
        process.start(
            QCoreApplication::applicationFilePath(),
            { "--hold", path, QString::number(static_cast<int>(sharing)) });
        if (!QTest::qWaitFor([this] { return process.canReadLine(); }, patience))
            qFatal("the other program cannot open %s", qPrintable(path));
    }
    ~OtherProgram()
    {
        end();
    }
    OtherProgram(const OtherProgram&) = delete;
    OtherProgram& operator=(const OtherProgram&) = delete;

    void end()
    {
        process.closeWriteChannel();
        process.waitForFinished();
    }

private:
    QProcess process;
};

/// One installation of "a.mpq" into the client, without a window.
QStringList install(const QString& content = "new", const QString& name = "a.mpq")
{
    writeFile(cachePath("live/Data/" + name), content.toUtf8());
    writeManifest("patch.ini", QStringList{ "numberOfFiles=1", "file1=" + name });
    LogCapture log;
    UpdatingProcedures run(nullptr);
    run.copyPatchedFilesIntoClient();
    return log.lines();
}

bool wasDeleted(const QStringList& log)
{
    return log.contains("result of deletion:  true");
}

/// The two texts are swapped on purpose.
bool wasCopied(const QStringList& log)
{
    return !log.filter("could not write file ").isEmpty();
}

void setReadOnly(const QString& path)
{
    const std::wstring native = QDir::toNativeSeparators(path).toStdWString();
    QVERIFY(SetFileAttributesW(native.c_str(), FILE_ATTRIBUTE_READONLY) != 0);
}

/// A folder below the client that makes every path in it longer than what
/// programs once could use.
QString deepFolder()
{
    return QStringList(6, QString(50, 'x')).join('\\');
}

} // namespace

/// What files on Windows do that others do not.
class tst_NativeFiles : public MainWindowTest {
    Q_OBJECT

private slots:
    void init()
    {
        MainWindowTest::init();
        QVERIFY(QDir().mkpath(client("/Data")));
        addRealm(QDir::toNativeSeparators(client()));
    }

    void aFileOfAnotherCaseIsReplaced()
    {
        writeFile(client("/Data/A.MPQ"), "old");
        const QStringList log = install();
        QVERIFY(wasDeleted(log));
        QVERIFY(wasCopied(log));
        QCOMPARE(QDir(client("/Data")).entryList(QDir::Files), QStringList("a.mpq"));
        QCOMPARE(readFile(client("/Data/a.mpq")), "new");
    }

    void aFileOfAnotherCaseIsRemoved()
    {
        writeFile(client("/Data/OLD.mpq"), "old");
        writeManifest(
            "patch.ini", QStringList{ "numberOfFiles=1", "file1=old.MPQ", "file1-save=false" });
        const LogCapture log;
        UpdatingProcedures run(nullptr);
        run.copyPatchedFilesIntoClient();
        QVERIFY(!QFile::exists(client("/Data/OLD.mpq")));
    }

    void aCachedFileOfAnotherCaseIsCurrent()
    {
        writeFile(cachePath("live/Data/A.MPQ"), "content");
        writeManifest(
            "patch.ini",
            QStringList{ "numberOfFiles=1", "file1=a.mpq", "file1-hash=" + md5("content") });
        const LogCapture log;
        QList<PatchDownloadItem> queue;
        UpdatingProcedures run(nullptr);
        run.reconcilePatchIni("https://download.tarnwick.example/", "patch.ini", queue, "live");
        QCOMPARE(queue.size(), 0);
    }

    void aClientOfAnotherCaseIsAClient()
    {
        writeFile(client("/WoW.EXE"), "MZ");
        const AddClientDialog dialog("A", "a.test", client(), false, nullptr);
        QVERIFY(dialog.checkClientPath(client()));
    }

    void anOpenFileOfTheClient_data()
    {
        QTest::addColumn<int>("sharing");
        QTest::addColumn<bool>("replaced");
        QTest::newRow("shared for nothing") << int(Sharing::Nothing) << false;
        QTest::newRow("shared for reading and writing") << int(Sharing::ReadingAndWriting) << false;
        QTest::newRow("shared for removal too") << int(Sharing::Everything) << true;
    }

    /// A game that runs keeps its files; the next run makes up for it.
    void anOpenFileOfTheClient()
    {
        QFETCH(int, sharing);
        QFETCH(bool, replaced);
        writeFile(client("/Data/a.mpq"), "old");
        OtherProgram game(client("/Data/a.mpq"), Sharing(sharing));
        const QStringList log = install();
        QCOMPARE(wasDeleted(log), replaced);
        game.end();
        if (!replaced)
            QCOMPARE(readFile(client("/Data/a.mpq")), "old");
        const QStringList again = install();
        QVERIFY(wasCopied(again));
        QCOMPARE(readFile(client("/Data/a.mpq")), "new");
    }

    void anOpenFileOfTheCache_data()
    {
        QTest::addColumn<int>("sharing");
        QTest::addColumn<bool>("copied");
        QTest::newRow("shared for nothing") << int(Sharing::Nothing) << false;
        QTest::newRow("shared for reading and writing") << int(Sharing::ReadingAndWriting) << true;
    }

    void anOpenFileOfTheCache()
    {
        QFETCH(int, sharing);
        QFETCH(bool, copied);
        writeFile(cachePath("live/Data/a.mpq"), "new");
        writeManifest("patch.ini", QStringList{ "numberOfFiles=1", "file1=a.mpq" });
        const OtherProgram scanner(cachePath("live/Data/a.mpq"), Sharing(sharing));
        const LogCapture log;
        UpdatingProcedures run(nullptr);
        run.copyPatchedFilesIntoClient();
        QCOMPARE(wasCopied(log.lines()), copied);
        QCOMPARE(QFile::exists(client("/Data/a.mpq")), copied);
    }

    void anOpenTargetOfADownload_data()
    {
        QTest::addColumn<int>("sharing");
        QTest::newRow("shared for nothing") << int(Sharing::Nothing);
        QTest::newRow("shared for reading and writing") << int(Sharing::ReadingAndWriting);
        // Shared for removal too, the name is free at once on Windows, and under Wine
        // only when the other program has closed the file.
    }

    /// The download counts as written; what came waits beside the target.
    void anOpenTargetOfADownload()
    {
        QFETCH(int, sharing);
        HttpsServer server;
        server.listen();
        server.answer("/f", HttpAnswer::ok("new"));
        DownloadProbe probe;
        writeFile(probe.target(), "old");
        OtherProgram other(probe.target(), Sharing(sharing));
        const LogCapture log;
        QVERIFY(probe.run(onDownloadHost("/f")));
        QTRY_VERIFY(probe.outcome().startsWith("fileWriteFinished, flag 1, hidden 1"));
        other.end();
        QCOMPARE(readFile(probe.target()), "old");
        QCOMPARE(readFile(probe.temporary()), "new");
    }

    void aReadOnlyFileOfTheClientStays()
    {
        writeFile(client("/Data/a.mpq"), "old");
        setReadOnly(client("/Data/a.mpq"));
        const QStringList log = install();
        QVERIFY(!wasDeleted(log));
        QVERIFY(!wasCopied(log));
        QCOMPARE(readFile(client("/Data/a.mpq")), "old");
    }

    void aReadOnlyTargetOfADownloadStays()
    {
        HttpsServer server;
        server.listen();
        server.answer("/f", HttpAnswer::ok("new"));
        DownloadProbe probe;
        writeFile(probe.target(), "old");
        setReadOnly(probe.target());
        const LogCapture log;
        QVERIFY(probe.run(onDownloadHost("/f")));
        QTRY_COMPARE(
            probe.outcome(), "fileWriteFinished, flag 1, hidden 1, target 'old', temporary 'new'");
    }

    void aLongPathIsInstalled()
    {
        const QString offset = "Data\\" + deepFolder();
        writeFile(cachePath("live/" + offset + "/a.mpq"), "new");
        writeManifest(
            "patch.ini",
            QStringList{ "numberOfFiles=2", "file1=inner", "file1-dirOnly=true",
                         "file1-pathOffset=" + QString(offset).replace('\\', "\\\\"), "file2=a.mpq",
                         "file2-pathOffset=" + QString(offset).replace('\\', "\\\\") });
        const LogCapture log;
        UpdatingProcedures run(nullptr);
        run.copyPatchedFilesIntoClient();
        QVERIFY(client('\\' + offset + "\\a.mpq").size() > 260);
        QVERIFY(QDir(client('\\' + offset + "\\inner")).exists());
        QCOMPARE(readFile(client('/' + offset + "/a.mpq")), "new");
    }

    void aLongPathIsDownloaded()
    {
        HttpsServer server;
        server.listen();
        server.answer("/f", HttpAnswer::ok("new"));
        DownloadProbe probe;
        probe.folder = cachePath("live/" + deepFolder());
        QVERIFY(QDir().mkpath(probe.folder));
        QVERIFY(probe.target().size() > 260);
        QVERIFY(probe.run(onDownloadHost("/f")));
        QTRY_COMPARE(probe.outcome(), endedWritten("new"));
    }

    void aLongFolderIsRemoved()
    {
        const QString offset = deepFolder();
        writeFile(client('/' + offset + "/gone/inside"), "old");
        writeManifest(
            "patch.ini",
            QStringList{ "numberOfFiles=1", "file1=gone", "file1-save=false", "file1-dirOnly=true",
                         "file1-pathOffset=" + QString(offset).replace('\\', "\\\\") });
        const LogCapture log;
        UpdatingProcedures run(nullptr);
        run.copyPatchedFilesIntoClient();
        QVERIFY(!QDir(client('/' + offset + "/gone")).exists());
        QVERIFY(QDir(client('/' + offset)).exists());
    }

    void whatWasCopiedOutlivesTheProcess()
    {
        QProcess copying;
        copying.start(
            QCoreApplication::applicationFilePath(),
            { "--copy", "Neuigkeiten für alle", "-platform", "windows" });
        QVERIFY(copying.waitForFinished(patience));
        QCOMPARE(copying.exitCode(), 0);
        QCOMPARE(textOnTheClipboard(), "Neuigkeiten für alle");
    }
};

int main(int argc, char* argv[])
{
    TestSupport::settleEnvironment();
    const QApplication application(argc, argv);
    const QStringList arguments = QCoreApplication::arguments();
    if (arguments.value(1) == "--hold")
        return holdFile(arguments.at(2), Sharing(arguments.at(3).toInt()));
    if (arguments.value(1) == "--copy") {
        QGuiApplication::clipboard()->setText(arguments.at(2));
        endProcess(0);
    }
    endProcess(TestSupport::runTest<tst_NativeFiles>(argc, argv));
}

#include "tst_nativefiles.moc"
