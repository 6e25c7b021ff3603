#include "publisher/probe/answerheaders.h"
#include "tests/support/testmain.h"

#include <QTimeZone>

using Publisher::AnswerHeaders;

namespace {

AnswerHeaders read(const QByteArray& name, const QByteArray& value)
{
    return AnswerHeaders::read({ { name, value } });
}

} // namespace

/// What `probe` takes from the headers of one answer.
class tst_AnswerHeaders : public QObject {
    Q_OBJECT

private slots:
    void none()
    {
        const AnswerHeaders headers = AnswerHeaders::read({});
        QCOMPARE(headers.length, -1);
        QCOMPARE(headers.secondsInCaches(), 0);
        QVERIFY(headers.encoding.isEmpty());
        QVERIFY(!headers.lastModified.isValid());
        QVERIFY(!headers.date.isValid());
        QVERIFY(headers.redirect.isEmpty());
    }

    void length_data()
    {
        QTest::addColumn<QByteArray>("value");
        QTest::addColumn<qint64>("length");
        QTest::newRow("number") << QByteArray("1234") << qint64(1234);
        QTest::newRow("blanks") << QByteArray(" 1234 ") << qint64(1234);
        QTest::newRow("none") << QByteArray("0") << qint64(0);
        QTest::newRow("negative") << QByteArray("-5") << qint64(-1);
        QTest::newRow("no number") << QByteArray("five") << qint64(-1);
        QTest::newRow("empty") << QByteArray("") << qint64(-1);
        QTest::newRow("twice") << QByteArray("5, 5") << qint64(-1);
        QTest::newRow("too large") << QByteArray("99999999999999999999") << qint64(-1);
    }

    /// Where launchers do without one, there is none.
    void length()
    {
        QFETCH(QByteArray, value);
        QFETCH(qint64, length);
        QCOMPARE(read("content-length", value).length, length);
    }

    void secondsInCaches_data()
    {
        QTest::addColumn<QByteArray>("value");
        QTest::addColumn<qint64>("seconds");
        QTest::newRow("age") << QByteArray("public, max-age=600") << qint64(600);
        QTest::newRow("longer for shared ones")
            << QByteArray("Max-Age=600,S-MaxAge=\"900\"") << qint64(900);
        QTest::newRow("not without asking") << QByteArray("max-age=600, no-cache") << qint64(0);
        QTest::newRow("not at all") << QByteArray("NO-STORE") << qint64(0);
        QTest::newRow("negative") << QByteArray("max-age=-600") << qint64(0);
        QTest::newRow("no number") << QByteArray("max-age=x, s-maxage=") << qint64(0);
        QTest::newRow("longer than a number can say")
            << QByteArray("max-age=99999999999999999999") << qint64(2'147'483'648);
    }

    void secondsInCaches()
    {
        QFETCH(QByteArray, value);
        QFETCH(qint64, seconds);
        QCOMPARE(read("Cache-Control", value).secondsInCaches(), seconds);
    }

    void dates_data()
    {
        QTest::addColumn<QByteArray>("value");
        QTest::newRow("usual") << QByteArray("Sun, 06 Nov 1994 08:49:37 GMT");
        QTest::newRow("with a weekday in full") << QByteArray("Sunday, 06-Nov-94 08:49:37 GMT");
        QTest::newRow("of C programs") << QByteArray("Sun Nov  6 08:49:37 1994");
    }

    /// In each of the forms that a server may choose.
    void dates()
    {
        QFETCH(QByteArray, value);
        const QDateTime expected(QDate(1994, 11, 6), QTime(8, 49, 37), QTimeZone::utc());
        QCOMPARE(read("LAST-MODIFIED", value).lastModified.toUTC(), expected);
    }

    void noDates_data()
    {
        QTest::addColumn<QByteArray>("value");
        QTest::newRow("empty") << QByteArray("");
        QTest::newRow("number") << QByteArray("0");
        QTest::newRow("comma alone") << QByteArray(",");
        QTest::newRow("nothing behind the weekday") << QByteArray("Sunday,");
        QTest::newRow("nothing behind a short weekday") << QByteArray("Sun,");
        // The memory behind this one bears a date, which is not the server's.
        QTest::newRow("memory behind the comma") << QByteArray::fromRawData(
            "Sunday,\0"
            "06-Nov-94 08:49:37 GMT",
            7);
    }

    void noDates()
    {
        QFETCH(QByteArray, value);
        QVERIFY(!read("Date", value).date.isValid());
        QVERIFY(!read("Last-Modified", value).lastModified.isValid());
    }

    void serversOwnTime()
    {
        const QDateTime expected(QDate(1994, 11, 6), QTime(8, 49, 37), QTimeZone::utc());
        QCOMPARE(read("Date", "Sun, 06 Nov 1994 08:49:37 GMT").date.toUTC(), expected);
    }

    void redirect()
    {
        QCOMPARE(
            read("Location", "../b\xc3\xa4").redirect, QUrl(QString::fromUtf8("../b\xc3\xa4")));
    }
};

HALDEN_TEST_MAIN(tst_AnswerHeaders)
#include "tst_answerheaders.moc"
