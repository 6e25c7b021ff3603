#include "publisher/build/manifestdraft.h"
#include "publisher/common/manifesttext.h"
#include "tests/support/applicationfolder.h"
#include "tests/support/testmain.h"

#include <QRegularExpression>

#include <optional>

using namespace TestSupport;
using namespace Publisher;

namespace {

/// A path of its own each time: the settings layer goes by size and date.
QString written(const QByteArray& manifest)
{
    static int count = 0;
    QString path = ApplicationFolder::path(QString("patch-%1.ini").arg(++count));
    writeFile(path, manifest);
    return path;
}

/// What is read without the settings layer; nothing if it is needed.
std::optional<QList<PatchManifestEntry>> readBack(const QByteArray& text)
{
    QList<PatchManifestEntry> entries;
    const bool whole
        = ManifestText::read(text, [&](const PatchManifestEntry& entry) { entries.append(entry); });
    return whole ? std::optional(entries) : std::nullopt;
}

QByteArray textOf(const QList<PatchManifestEntry>& entries)
{
    ManifestText::Writer writer(entries.size());
    for (const PatchManifestEntry& entry : entries)
        writer.append(entry);
    return writer.text();
}

} // namespace

class tst_ManifestDraft : public QObject {
    Q_OBJECT

private slots:
    void init()
    {
        QTest::failOnWarning(QRegularExpression(".*"));
        ApplicationFolder::clear();
    }

    void everyNameIsReadBack_data()
    {
        QTest::addColumn<QString>("name");
        for (const char* name : { "plain.mpq",
                                  "two words.mpq",
                                  " leading blank",
                                  "Größe der Welt.MPQ",
                                  "a,b",
                                  "a;b",
                                  ";a",
                                  "#a",
                                  "a#b",
                                  "@a",
                                  "@@a",
                                  "@Invalid()",
                                  "@ByteArray(a)",
                                  "@Variant(x)",
                                  "a@b",
                                  "100%",
                                  "%20",
                                  "a=b",
                                  "[a]",
                                  "true",
                                  "a\"b",
                                  "a\\b",
                                  "\\x41",
                                  "\xf0\x9f\x90\x89.mpq",
                                  "x\xcc\x88",
                                  "file1",
                                  "a'b",
                                  "$a ${b} %PATH%" })
            QTest::newRow(name) << name;
    }

    void everyNameIsReadBack()
    {
        QFETCH(QString, name);
        const QList<PatchManifestEntry> entries{
            ManifestDraft::folder(name, '\\'),
            ManifestDraft::file("Data/" + name + "/x", name, "0cc1", '\\'),
            ManifestDraft::file("Data/" + name, "Data", "0cc2", '\\')
        };
        const QString path = written(textOf(entries));
        const PatchManifest manifest(path);
        QCOMPARE(manifest.entryCount(), 3);
        QCOMPARE(manifest.name(1), name);
        QCOMPARE(manifest.entry(2).pathOffset, "Data\\" + name);
        QCOMPARE(manifest.entry(2).urlOffset, name);
        QCOMPARE(manifest.name(3), name);
        QCOMPARE(manifest.entry(3).hash, QString("0cc2"));
        QVERIFY(!ManifestDraft::misreading(textOf(entries), path));
        // Without the settings layer the same.
        const std::optional<QList<PatchManifestEntry>> read = readBack(textOf(entries));
        QVERIFY(read);
        QCOMPARE(read->size(), 3);
        QVERIFY(!ManifestDraft::misreading(textOf(*read), path));
    }

    /// Whatever the settings layer might read differently is left to it.
    void onlyItsOwnTextIsReadWithoutTheSettingsLayer()
    {
        const QList<PatchManifestEntry> entries{
            ManifestDraft::folder("Data", '\\'),
            ManifestDraft::file("Data/@\"ä\\.mpq", "Data/0cc", "0cc", '\\'),
            { .save = false, .dirOnly = true, .pathOffset = "A\\B", .urlOffset = "", .name = "c" }
        };
        const QByteArray text = textOf(entries);
        QVERIFY(readBack(text));
        for (qsizetype size = 0; size < text.size(); ++size)
            QVERIFY2(!readBack(text.left(size)), qPrintable(QString::number(size)));
        for (qsizetype i = 0; i < text.size(); ++i) {
            for (const char byte : { '"', '\\', '\n', '@', '=', ';', '0', '9', '\xff' }) {
                QByteArray other = text;
                other[i] = byte;
                const std::optional<QList<PatchManifestEntry>> read = readBack(other);
                QVERIFY2(!read || textOf(*read) == other, other.constData());
                other = text.left(i) + byte + text.sliced(i);
                QVERIFY2(!readBack(other) || textOf(*readBack(other)) == other, other.constData());
            }
        }
        for (const char* line : { "\n", "x=1\n", "file1-save=true\n", "[Other]\n", " " })
            QVERIFY2(!readBack(text + line), line);
    }

    void separatorOfThePlayers_data()
    {
        QTest::addColumn<QString>("path");
        QTest::addColumn<char>("separator");
        QTest::addColumn<QString>("offset");
        QTest::newRow("Windows") << "Data/deDE/x.mpq" << '\\' << "Data\\deDE";
        QTest::newRow("others") << "Data/deDE/x.mpq" << '/' << "Data/deDE";
        QTest::newRow("client folder itself") << "patched_wow.exe" << '\\' << "";
    }

    void separatorOfThePlayers()
    {
        QFETCH(QString, path);
        QFETCH(char, separator);
        const QList<PatchManifestEntry> entries{ ManifestDraft::file(
                                                     path, "u", "h", QChar(separator)),
                                                 ManifestDraft::folder(path, QChar(separator)) };
        const PatchManifest manifest(written(textOf(entries)));
        QTEST(manifest.entry(1).pathOffset, "offset");
        QTEST(manifest.entry(2).pathOffset, "offset");
        QCOMPARE(manifest.entry(2).name, path.section('/', -1));
        QCOMPARE(manifest.entry(1).action(), PatchAction::FileDownload);
        QCOMPARE(manifest.entry(2).action(), PatchAction::FolderCreate);
    }

    void text()
    {
        const QList<PatchManifestEntry> entries{
            ManifestDraft::folder("Data", '\\'),
            ManifestDraft::file("Data/ä.mpq", "Data/0cc", "0cc", '\\'),
            { .save = false, .dirOnly = true, .pathOffset = "A\\B", .urlOffset = "", .name = "c" }
        };
        QCOMPARE(
            textOf(entries),
            QByteArray("[General]\nnumberOfFiles=3\n"
                       "file1=\"Data\"\nfile1-dirOnly=true\nfile1-pathOffset=\"\"\n"
                       "file2=\"ä.mpq\"\nfile2-pathOffset=\"Data\"\nfile2-urlOffset=\"Data/0cc\"\n"
                       "file2-hash=\"0cc\"\n"
                       "file3=\"c\"\nfile3-save=false\nfile3-dirOnly=true\n"
                       "file3-pathOffset=\"A\\\\B\"\n"));
    }

    void differenceIsTold_data()
    {
        QTest::addColumn<QByteArray>("from");
        QTest::addColumn<QByteArray>("to");
        QTest::addColumn<QString>("told");
        QTest::newRow("count") << QByteArray("numberOfFiles=1") << QByteArray("numberOfFiles=2")
                               << "2 entries instead of 1";
        QTest::newRow("name") << QByteArray("file1=\"x\"") << QByteArray("file1=\"y\"")
                              << "entry 1";
        QTest::newRow("hash") << QByteArray("-hash=\"h\"") << QByteArray("-hash=\"i\"")
                              << "entry 1";
        QTest::newRow("url offset") << QByteArray("=\"u\"") << QByteArray("=\"v\"") << "entry 1";
        QTest::newRow("path offset")
            << QByteArray("=\"Data\"") << QByteArray("=\"Da\"") << "entry 1";
        QTest::newRow("folder") << QByteArray("[General]\n")
                                << QByteArray("[General]\nfile1-dirOnly=true\n") << "entry 1";
        QTest::newRow("removal") << QByteArray("[General]\n")
                                 << QByteArray("[General]\nfile1-save=false\n") << "entry 1";
    }

    void differenceIsTold()
    {
        QFETCH(QByteArray, from);
        QFETCH(QByteArray, to);
        QFETCH(QString, told);
        const QList<PatchManifestEntry> entries{ ManifestDraft::file("Data/x", "u", "h", '/') };
        const QByteArray text = textOf(entries);
        QVERIFY(text.contains(from));
        const Problem difference
            = ManifestDraft::misreading(text, written(QByteArray(text).replace(from, to)));
        QVERIFY(difference);
        QVERIFY2(difference->contains(told), qPrintable(*difference));
    }
};

HALDEN_TEST_MAIN(tst_ManifestDraft)
#include "tst_manifestdraft.moc"
