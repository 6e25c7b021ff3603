#include "tests/support/applicationfolder.h"
#include "tests/support/diskfaults.h"
#include "tests/support/testmain.h"
#include "tests/update/updatefixture.h"
#include "update/patchmanifest.h"

#include <QDir>
#include <QRegularExpression>

using namespace TestSupport;
using namespace UpdateFixture;

namespace {

QString manifestPath()
{
    return settingsPath("patch.ini");
}

void writeRows(const QStringList& rows)
{
    writeManifest("patch.ini", rows);
}

/// Entries that a walk from 1 to the count visits.
qint64 entriesWalked(const PatchManifest& manifest)
{
    return qMax<qint64>(0, manifest.entryCount());
}

} // namespace

Q_DECLARE_METATYPE(PatchAction)

class tst_PatchManifest : public QObject {
    Q_OBJECT

private slots:
    void init()
    {
        QTest::failOnWarning(QRegularExpression(".*"));
        ApplicationFolder::clear();
    }

    void defaultsOfAnEntryWithANameOnly()
    {
        writeRows({ "numberOfFiles=1", "file1=common.mpq" });
        const PatchManifest manifest(manifestPath());
        const PatchManifestEntry entry = manifest.entry(1);
        QCOMPARE(manifest.entryCount(), 1);
        QCOMPARE(entry.name, "common.mpq");
        QCOMPARE(entry.save, true);
        QCOMPARE(entry.dirOnly, false);
        QCOMPARE(entry.pathOffset, "Data" + QString(QDir::separator()));
        QCOMPARE(entry.urlOffset, QString());
        QCOMPARE(manifest.entry(1).hash, QString());
    }

    void entriesTheFileDoesNotNameHaveDefaultsAndNoName()
    {
        const PatchManifest manifest(manifestPath());
        QCOMPARE(manifest.name(1), QString());
        QCOMPARE(manifest.entry(1).name, QString());
        QCOMPARE(manifest.entry(1).action(), PatchAction::FileDownload);
        QCOMPARE(manifest.entry(1).pathOffset, "Data" + QString(QDir::separator()));
    }

    void everyKeyOfAnEntry_data()
    {
        QTest::addColumn<bool>("writtenByToolkit");
        QTest::newRow("typed by hand") << false;
        QTest::newRow("written by the toolkit") << true;
    }

    void everyKeyOfAnEntry()
    {
        QFETCH(bool, writtenByToolkit);
        writtenByToolkit ? writeFullEntryWithToolkit() : writeFullEntryByHand();
        const PatchManifest manifest(manifestPath());
        const PatchManifestEntry entry = manifest.entry(3);
        QCOMPARE(manifest.entryCount(), 3);
        QCOMPARE(entry.name, "patch-4.mpq");
        QCOMPARE(manifest.name(3), "patch-4.mpq");
        QCOMPARE(entry.save, false);
        QCOMPARE(entry.dirOnly, true);
        QCOMPARE(entry.pathOffset, "Data/deDE/");
        QCOMPARE(entry.urlOffset, "v2/deDE");
        QCOMPARE(manifest.entry(3).hash, "0cc175b9c0f1b6a831c399e269772661");
    }

    void entryNumbersAreWrittenWithoutPadding()
    {
        writeRows({ "file01=padded", "file1=one", "file10=ten", "file2=two" });
        const PatchManifest manifest(manifestPath());
        QCOMPARE(manifest.name(1), "one");
        QCOMPARE(manifest.name(2), "two");
        QCOMPARE(manifest.name(10), "ten");
    }

    void keysOfASectionAreNotRead()
    {
        writeRows({ "[patch]", "numberOfFiles=2", "file1=hidden" });
        const PatchManifest manifest(manifestPath());
        QCOMPARE(manifest.entryCount(), 0);
        QCOMPARE(manifest.name(1), QString());
    }

    void actions_data()
    {
        QTest::addColumn<QString>("save");
        QTest::addColumn<QString>("dirOnly");
        QTest::addColumn<PatchAction>("action");
        QTest::newRow("a file to keep") << "true"
                                        << "false" << PatchAction::FileDownload;
        QTest::newRow("a folder to keep") << "true"
                                          << "true" << PatchAction::FolderCreate;
        QTest::newRow("a file to remove") << "false"
                                          << "false" << PatchAction::FileRemove;
        QTest::newRow("a folder to remove") << "false"
                                            << "true" << PatchAction::FolderRemove;
    }

    void actions()
    {
        QFETCH(QString, save);
        QFETCH(QString, dirOnly);
        QFETCH(PatchAction, action);
        writeRows({ "file1-save=" + save, "file1-dirOnly=" + dirOnly });
        QCOMPARE(PatchManifest(manifestPath()).entry(1).action(), action);
    }

    void spellingsOfBooleans_data()
    {
        QTest::addColumn<QString>("text");
        QTest::addColumn<bool>("meaning");
        for (const char* text :
             { "true", "True", "TRUE", "1", "2", "-1", "yes", "no", "off", "00" })
            QTest::addRow("%s is true", text) << text << true;
        for (const char* text : { "false", "False", "FALSE", "0", "\"\"", "@Invalid()" })
            QTest::addRow("%s is false", text) << text << false;
        QTest::newRow("nothing at all is false") << "" << false;
        QTest::newRow("a list is false") << "true,true" << false;
        QTest::newRow("quotes do not matter") << "\"false\"" << false;
    }

    void spellingsOfBooleans()
    {
        QFETCH(QString, text);
        QFETCH(bool, meaning);
        writeRows({ "file1-save=" + text, "file1-dirOnly=" + text });
        const PatchManifestEntry entry = PatchManifest(manifestPath()).entry(1);
        QCOMPARE(entry.save, meaning);
        QCOMPARE(entry.dirOnly, meaning);
    }

    void numbersOfFiles_data()
    {
        QTest::addColumn<QStringList>("rows");
        QTest::addColumn<qint64>("walked");
        const auto row = [](const char* name, const QStringList& rows, qint64 walked) {
            QTest::newRow(name) << rows << walked;
        };
        row("missing", { "file1=a" }, 0);
        row("nothing", { "numberOfFiles=", "file1=a" }, 0);
        row("zero", { "numberOfFiles=0", "file1=a" }, 0);
        row("negative", { "numberOfFiles=-3", "file1=a" }, 0);
        row("text", { "numberOfFiles=many", "file1=a" }, 0);
        row("hexadecimal", { "numberOfFiles=0x10", "file1=a" }, 0);
        row("a list", { "numberOfFiles=2,3", "file1=a" }, 0);
        row("more than there are keys", { "numberOfFiles=7", "file1=a" }, 7);
        row("fewer than there are keys", { "numberOfFiles=1", "file1=a", "file2=b" }, 1);
        row("the last plausible number", { "numberOfFiles=100000" }, 100'000);
        row("one past the plausible number", { "numberOfFiles=100001" }, 100'000);
        row("huge with few keys", { "numberOfFiles=2000000000", "file7=a" }, 100'000);
        row("one high key", { "numberOfFiles=200000", "file150000=a" }, 150'000);
        row("one high key of another field", { "numberOfFiles=200000", "file150000-save=false" },
            150'000);
        row("a key beyond the number", { "numberOfFiles=120000", "file150000=a" }, 120'000);
        row("huge with one huge key", { "numberOfFiles=2000000000", "file2000000000=a" },
            2'000'000'000);
    }

    void numbersOfFiles()
    {
        QFETCH(QStringList, rows);
        QFETCH(qint64, walked);
        writeRows(rows);
        QCOMPARE(entriesWalked(PatchManifest(manifestPath())), walked);
    }

    void aNumberPastTheIntegerRangeIsBounded()
    {
        writeManifest("patch.ini", QStringList{ "numberOfFiles=5000000000", "file1=a" });
        QVERIFY(PatchManifest(manifestPath()).entryCount() <= 100'000);
    }

    void aHugeNumberCountsAsFarAsThereAreKeys()
    {
        writeNumberedNames(150'000, "2000000000");
        QCOMPARE(PatchManifest(manifestPath()).entryCount(), 150'000);
        writeNumberedNames(150'000, "120000");
        QCOMPARE(PatchManifest(manifestPath()).entryCount(), 120'000);
    }

    void aNumberThatIsReplacedWhileTheWalkGoesOnCounts_data()
    {
        QTest::addColumn<int>("names");
        QTest::addColumn<QString>("number");
        QTest::addColumn<qint64>("walked");
        QTest::newRow("by a plausible one") << 2 << QString("3") << qint64(3);
        QTest::newRow("by another huge one") << 120'000 << QString("1500000000") << qint64(120'000);
    }

    void aNumberThatIsReplacedWhileTheWalkGoesOnCounts()
    {
        QFETCH(int, names);
        QFETCH(QString, number);
        QFETCH(qint64, walked);
        writeNumberedNames(150'000, "2000000000");
        const PatchManifest manifest(manifestPath());
        QCOMPARE(manifest.entryCount(), 150'000);
        writeNumberedNames(names, number);
        const PatchManifest reader(manifestPath()); // another run opens the new file
        QCOMPARE(manifest.entryCount(), walked);
        QCOMPARE(reader.entryCount(), walked);
    }

    void aHugeNumberIsAskedForBeforeEveryEntryInReasonableTime()
    {
        writeNumberedNames(5'000, "2000000000");
        const PatchManifest manifest(manifestPath());
        qint64 walked = 0;
        for (qint64 n = 1; n <= manifest.entryCount(); ++n)
            ++walked;
        QCOMPARE(walked, 100'000);
    }

    void aHundredThousandEntries()
    {
        writeNumberedNames(100'000, "100000");
        const PatchManifest manifest(manifestPath());
        QCOMPARE(manifest.entryCount(), 100'000);
        for (qint64 n = 1; n <= manifest.entryCount(); ++n)
            QCOMPARE(manifest.name(n), "name" + QString::number(n));
    }

    void filesThatAreNoManifestHaveNoEntries_data()
    {
        QTest::addColumn<QByteArray>("content");
        QTest::newRow("empty") << QByteArray("");
        QTest::newRow("line breaks only") << QByteArray("\r\n\n\r");
        QTest::newRow("zero bytes") << QByteArray(4096, '\0');
        QTest::newRow("an executable's start")
            << QByteArray("MZ\x90\0\x03\0\0\0\x04\0\0\0\xff", 13);
        QTest::newRow("all byte values") << allByteValues();
        QTest::newRow("an error page") << QByteArray("<html><body>not here</body></html>\n");
        QTest::newRow("an open section") << QByteArray("[patch\nnumberOfFiles=1\n");
        QTest::newRow("an open quote") << QByteArray("numberOfFiles=\"1\nfile1=a");
    }

    void filesThatAreNoManifestHaveNoEntries()
    {
        QFETCH(QByteArray, content);
        writeManifest("patch.ini", content);
        QCOMPARE(entriesWalked(PatchManifest(manifestPath())), 0);
    }

    void aFolderInPlaceOfTheFileHasNoEntries()
    {
        QVERIFY(QDir().mkpath(manifestPath()));
        QCOMPARE(entriesWalked(PatchManifest(manifestPath())), 0);
    }

    void aFileThatMayNotBeReadHasNoEntries()
    {
        writeRows({ "numberOfFiles=1", "file1=a" });
        const TestSupport::UnreadableFile unreadable(manifestPath());
        QCOMPARE(entriesWalked(PatchManifest(manifestPath())), 0);
    }

    void shapesOfTheFile_data()
    {
        QTest::addColumn<QByteArray>("content");
        QTest::newRow("byte-order mark")
            << QByteArray("\xEF\xBB\xBFnumberOfFiles=1\nfile1=a.mpq\n");
        QTest::newRow("no line break at the end") << QByteArray("numberOfFiles=1\nfile1=a.mpq");
        QTest::newRow("lines end as on Windows")
            << QByteArray("numberOfFiles=1\r\nfile1=a.mpq\r\n");
        QTest::newRow("section General") << QByteArray("[General]\nnumberOfFiles=1\nfile1=a.mpq\n");
        QTest::newRow("byte-order mark before a section")
            << QByteArray("\xEF\xBB\xBF[General]\nnumberOfFiles=1\nfile1=a.mpq\n");
        QTest::newRow("blanks around the values")
            << QByteArray("numberOfFiles = 1\n  file1 =  a.mpq  \n");
        QTest::newRow("comments") << QByteArray("; all\nnumberOfFiles=1\n;file1=b\nfile1=a.mpq\n");
        QTest::newRow("the last row of a key counts")
            << QByteArray("numberOfFiles=9\nfile1=b\nnumberOfFiles=1\nfile1=a.mpq\n");
    }

    void shapesOfTheFile()
    {
        QFETCH(QByteArray, content);
        writeManifest("patch.ini", content);
        const PatchManifest manifest(manifestPath());
        QCOMPARE(manifest.entryCount(), 1);
        QCOMPARE(manifest.name(1), "a.mpq");
    }

    void namesWithMarksOfTheFormat_data()
    {
        QTest::addColumn<QString>("text");
        QTest::addColumn<QString>("name");
        QTest::newRow("a comma makes a list, which is no name") << "a,b.mpq"
                                                                << "";
        QTest::newRow("a quoted comma") << "\"a,b.mpq\""
                                        << "a,b.mpq";
        QTest::newRow("a quoted semicolon") << "\"a;b.mpq\""
                                            << "a;b.mpq";
        QTest::newRow("doubled backslashes") << "a\\\\b.mpq"
                                             << "a\\b.mpq";
        QTest::newRow("a single backslash is lost with its letter") << "a\\d.mpq"
                                                                    << "a.mpq";
        QTest::newRow("an equals sign") << "a=b.mpq"
                                        << "a=b.mpq";
        QTest::newRow("a percent sign") << "a%20b.mpq"
                                        << "a%20b.mpq";
        QTest::newRow("umlauts") << "Größe.mpq"
                                 << "Größe.mpq";
        QTest::newRow("escaped umlauts") << "Gr\\xf6\\xdf\\x65.mpq"
                                         << "Größe.mpq";
        QTest::newRow("a doubled at sign") << "@@a.mpq"
                                           << "@a.mpq";
        QTest::newRow("a blank inside") << "a b.mpq"
                                        << "a b.mpq";
    }

    void namesWithMarksOfTheFormat()
    {
        QFETCH(QString, text);
        QFETCH(QString, name);
        writeRows({ "numberOfFiles=1", "file1=" + text });
        QCOMPARE(PatchManifest(manifestPath()).name(1), name);
    }

    void whatTheToolkitWritesIsReadBackAsItWas_data()
    {
        QTest::addColumn<QString>("offset");
        QTest::newRow("backslashes") << "Data\\deDE\\";
        QTest::newRow("a comma") << "Data, all/";
        QTest::newRow("a semicolon") << "Data; all/";
        QTest::newRow("umlauts") << "Größe/";
        QTest::newRow("nothing") << "";
    }

    void whatTheToolkitWritesIsReadBackAsItWas()
    {
        QFETCH(QString, offset);
        {
            QSettings writer(manifestPath(), QSettings::IniFormat);
            writer.setValue("file1-pathOffset", offset);
        }
        QCOMPARE(PatchManifest(manifestPath()).entry(1).pathOffset, offset);
    }

    void aHashKeepsItsLetters()
    {
        writeRows({ "file1-hash=0CC175b9C0F1B6A831C399E269772661" });
        QCOMPARE(PatchManifest(manifestPath()).entry(1).hash, "0CC175b9C0F1B6A831C399E269772661");
    }

    void readingLeavesTheFileAlone()
    {
        const QByteArray content = "numberOfFiles = 1\n; kept\nfile1=a,b\n";
        writeManifest("patch.ini", content);
        {
            const PatchManifest manifest(manifestPath());
            QCOMPARE(manifest.entryCount(), 1);
            QCOMPARE(manifest.entry(1).name, QString());
        }
        QCOMPARE(readFile(manifestPath()), content);
    }

private:
    static void writeFullEntryByHand()
    {
        writeRows({ "numberOfFiles=3", "file3=patch-4.mpq", "file3-save=false",
                    "file3-dirOnly=true", "file3-pathOffset=Data/deDE/", "file3-urlOffset=v2/deDE",
                    "file3-hash=0cc175b9c0f1b6a831c399e269772661" });
    }

    static void writeFullEntryWithToolkit()
    {
        QSettings writer(manifestPath(), QSettings::IniFormat);
        writer.setValue("numberOfFiles", 3);
        writer.setValue("file3", "patch-4.mpq");
        writer.setValue("file3-save", false);
        writer.setValue("file3-dirOnly", true);
        writer.setValue("file3-pathOffset", "Data/deDE/");
        writer.setValue("file3-urlOffset", "v2/deDE");
        writer.setValue("file3-hash", "0cc175b9c0f1b6a831c399e269772661");
    }

    static void writeNumberedNames(int count, const QString& numberOfFiles)
    {
        QStringList rows{ "numberOfFiles=" + numberOfFiles };
        for (int n = 1; n <= count; ++n)
            rows.append(QString("file%1=name%1").arg(n));
        writeRows(rows);
    }

    static QByteArray allByteValues()
    {
        QByteArray bytes;
        for (int value = 0; value < 256; ++value)
            bytes.append(static_cast<char>(value));
        return bytes;
    }
};

HALDEN_TEST_MAIN(tst_PatchManifest)
#include "tst_patchmanifest.moc"
