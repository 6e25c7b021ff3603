#include "publisher/check/manifestcontent.h"
#include "tests/support/applicationfolder.h"
#include "tests/support/testmain.h"

#include <QTemporaryDir>

using namespace Qt::StringLiterals;
using Publisher::ManifestContent;

namespace {

constexpr qint64 many = ManifestContent::mostVacantNumbers;

} // namespace

/// What `check` takes out of a manifest.
class tst_ManifestContent : public QObject {
    Q_OBJECT

private:
    QTemporaryDir folder;

    ManifestContent read(const QByteArray& keys, qint64 count) const
    {
        const QString path = folder.filePath(u"patch.ini"_s);
        TestSupport::writeFile(
            path, "[General]\nnumberOfFiles=" + QByteArray::number(count) + '\n' + keys);
        return ManifestContent::read(path, u'\\', 16);
    }

private slots:
    void everyEntryIsTakenIn()
    {
        QByteArray keys;
        for (qint64 n = 1; n <= many + 500; ++n)
            keys += "file" + QByteArray::number(n) + "=a\n";
        const ManifestContent content = read(keys, many + 500);
        QCOMPARE(content.count(), many + 500);
        QCOMPARE(content.name(many + 500), u"a"_s);
    }

    void aGapOfManyNumbersEndsIt_data()
    {
        QTest::addColumn<qint64>("number");
        QTest::addColumn<qint64>("count");
        QTest::newRow("as many as are taken in") << many + 1 << many + 1;
        QTest::newRow("one more") << many + 2 << many + 1;
        QTest::newRow("far more") << qint64(2'000'000'000) << many + 1;
    }

    void aGapOfManyNumbersEndsIt()
    {
        QFETCH(qint64, number);
        QTEST(read("file" + QByteArray::number(number) + "=a\n", number).count(), "count");
    }

    void namesBehindTheLastEntry()
    {
        const ManifestContent content = read("file1=a\nfile3=c\nfile17=q\n", 1);
        QCOMPARE(content.count(), 1);
        QCOMPARE(content.name(1), u"a"_s);
        QCOMPARE(content.name(3), u"c"_s);
        QCOMPARE(content.name(17), QString());
    }
};

HALDEN_TEST_MAIN(tst_ManifestContent)
#include "tst_manifestcontent.moc"
