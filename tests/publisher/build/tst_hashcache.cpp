#include "publisher/common/hashcache.h"
#include "tests/publisher/buildfixture.h"
#include "tests/support/applicationfolder.h"
#include "tests/support/testmain.h"

#include <QFile>
#include <QRegularExpression>

using namespace TestSupport;
using namespace BuildFixture;
using namespace Publisher;

namespace {

const QString one = "0cc175b9c0f1b6a831c399e269772661";
const QString two = "92eb5ffee6ae2fec3ad71c777531578f";

QString file()
{
    return ApplicationFolder::path("cache/x.hashes");
}

QString find(const QString& path)
{
    return HashCache(file()).find(path, FileFingerprint::of(path));
}

void remember(const QMap<QString, QString>& hashes)
{
    HashCache cache(file());
    for (auto hash = hashes.begin(); hash != hashes.end(); ++hash)
        cache.remember(hash.key(), FileFingerprint::of(hash.key()), hash.value());
    cache.save();
}

} // namespace

class tst_HashCache : public QObject {
    Q_OBJECT

private slots:
    void init()
    {
        QTest::failOnWarning(QRegularExpression(".*"));
        ApplicationFolder::clear();
        put("a", "x");
        put("b", "x");
    }

    void knowsWhatIsRemembered()
    {
        QCOMPARE(find(source("a")), QString());
        remember({ { source("a"), one }, { source("b"), two } });
        QCOMPARE(find(source("a")), one);
        QCOMPARE(find(source("b")), two);
        QCOMPARE(find(source("c")), QString());
    }

    void forgetsWhatIsNotRememberedAgain()
    {
        remember({ { source("a"), one }, { source("b"), two } });
        remember({ { source("a"), one } });
        QCOMPARE(find(source("a")), one);
        QCOMPARE(find(source("b")), QString());
    }

    /// Neither the order in which paths come nor characters beyond the first
    /// plane, which UTF-16 and UTF-8 sort differently, hide one of them.
    void findsEveryPath()
    {
        const FileFingerprint fingerprint = FileFingerprint::of(source("a"));
        HashCache cache(file());
        QStringList paths{ "",    "/\U0001F600", "/\uFF5E", "/a",
                           "/a/", "/A",          "/ab",     QString(5000, 'x') };
        for (int i = 0; i < 2000; ++i)
            paths.append("/many/" + QString::number(i * 7919 % 2000));
        for (const QString& path : std::as_const(paths))
            cache.remember(path, fingerprint, md5(path.toUtf8()));
        cache.save();
        const HashCache read(file());
        for (const QString& path : std::as_const(paths))
            QVERIFY2(read.find(path, fingerprint) == md5(path.toUtf8()), qPrintable(path));
    }

    void fileThatLooksDifferentIsUnknown_data()
    {
        QTest::addColumn<QByteArray>("content");
        QTest::addColumn<bool>("keepsDate");
        QTest::newRow("size") << QByteArray("xx") << true;
        QTest::newRow("date") << QByteArray("y") << false;
#ifndef Q_OS_WIN // which tells no date of change that nobody can set
        QTest::newRow("date set back") << QByteArray("y") << true;
#endif
    }

    void fileThatLooksDifferentIsUnknown()
    {
        QFETCH(QByteArray, content);
        QFETCH(bool, keepsDate);
        remember({ { source("a"), one } });
        const QDateTime date = dateOf(source("a"));
        writeFile(source("a"), content);
        setDate(source("a"), keepsDate ? date : date.addSecs(-1));
        QCOMPARE(find(source("a")), QString());
        QFile::remove(source("a"));
        QCOMPARE(find(source("a")), QString());
    }

    /// Not a single broken bit of it may vouch for a hash.
    void brokenFileIsIgnored_data()
    {
        QTest::addColumn<QByteArray>("content");
        QTest::newRow("empty") << QByteArray();
        QTest::newRow("text") << QByteArray("{\"/x\":[\"1");
        remember({ { source("a"), one } });
        const QByteArray whole = readFile(file());
        for (qsizetype size = whole.size() - 1; size > 0; size /= 2)
            QTest::addRow("cut after %lld", qint64(size)) << whole.left(size);
        for (qsizetype i = 0; i < whole.size(); ++i) {
            QByteArray flipped = whole;
            flipped[i] = char(flipped.at(i) ^ 0x10);
            QTest::addRow("bit of byte %lld", qint64(i)) << flipped;
        }
        QTest::newRow("too long") << whole + 'x';
    }

    void brokenFileIsIgnored()
    {
        QFETCH(QByteArray, content);
        remember({ { source("a"), one } });
        writeFile(file(), content);
        QCOMPARE(find(source("a")), QString());
        remember({ { source("a"), one } });
        QCOMPARE(find(source("a")), one);
    }

    /// A length that leads far beyond the end, behind a checksum that is right.
    void lyingLengthIsIgnored()
    {
        const QByteArray mark = "halden-publish hashes 2\n";
        for (const char filler : { '\0', '\x7f', '\xff' }) {
            const QByteArray records(100, filler);
            const QByteArray sum = QByteArray::fromHex(md5(records).toLatin1());
            writeFile(file(), mark + sum + records);
            QCOMPARE(find(source("a")), QString());
        }
    }
};

HALDEN_TEST_MAIN(tst_HashCache)
#include "tst_hashcache.moc"
