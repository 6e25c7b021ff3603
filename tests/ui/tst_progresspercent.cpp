#include "tests/support/testmain.h"
#include "ui/progresspercent.h"

#include <QRandomGenerator>

#include <limits>

using Percent = std::optional<int>;
Q_DECLARE_METATYPE(Percent)

namespace {

constexpr qint64 twoTo32 = Q_INT64_C(4294967296);
constexpr qint64 largest = std::numeric_limits<qint64>::max();
constexpr qint64 smallest = std::numeric_limits<qint64>::min();

/// The residue of a number that lies in the range of 32 signed bits, reached
/// with 64-bit arithmetic alone.
qint64 wrapped(qint64 value)
{
    const qint64 residue = ((value % twoTo32) + twoTo32) % twoTo32;
    return residue >= twoTo32 / 2 ? residue - twoTo32 : residue;
}

Percent model(qint64 sent, qint64 total)
{
    if (total <= 0 || wrapped(total) == 0)
        return std::nullopt;
    const qint64 hundredfold = wrapped(wrapped(sent == 0 ? 1 : sent) * 100);
    return static_cast<int>(wrapped(hundredfold / wrapped(total)));
}

QByteArray toText(const Percent& percent)
{
    return percent ? QByteArray::number(*percent) : QByteArray("unchanged");
}

/// Sizes of files as they occur, and those where the arithmetic turns over.
QList<qint64> remarkableNumbers()
{
    QList<qint64> numbers{ smallest, largest, -1, 0, 1, 2, 50, 99, 100, 101, 1'000'000 };
    for (const qint64 edge : { Q_INT64_C(21474836), Q_INT64_C(42949672), twoTo32 / 2, twoTo32,
                               2 * twoTo32, 100 * twoTo32 }) {
        for (qint64 offset = -2; offset <= 2; ++offset)
            numbers.append(edge + offset);
    }
    return numbers;
}

} // namespace

class tst_ProgressPercent : public QObject {
    Q_OBJECT

private slots:
    void percentage_data()
    {
        QTest::addColumn<qint64>("sent");
        QTest::addColumn<qint64>("total");
        QTest::addColumn<Percent>("percent");
        const auto row = [](const char* tag, qint64 sent, qint64 total, Percent percent) {
            QTest::newRow(tag) << sent << total << percent;
        };
        row("nothing sent counts as one byte", 0, 50, 2);
        row("one of fifty", 1, 50, 2);
        row("nothing of much", 0, 1000, 0);
        row("nothing of one byte", 0, 1, 100);
        row("half", 50, 100, 50);
        row("rounds down", 199, 200, 99);
        row("all", 200, 200, 100);
        row("more than all", 300, 200, 150);
        row("negative sent", -50, 100, -50);
        row("negative sent rounds towards zero", -199, 200, -99);
        row("largest that does not wrap", 21'474'836, 21'474'836, 100);
        row("first that wraps", 21'474'837, 21'474'837, -99);
        row("twice as much is small again", 42'949'673, 42'949'673, 0);
        row("total of 2 GiB is negative", 1'000'000, twoTo32 / 2, 0);
        row("total just above 4 GiB is tiny", 1000, twoTo32 + 10, 10'000);
        row("sent of 4 GiB is nothing", twoTo32, 100, 0);
        row("total of minus one in 32 bits", 1, twoTo32 - 1, -100);
        // Numerator -2147483648: negating it does not fit and stays as it is.
        row("smallest number by minus one", twoTo32 / 8, twoTo32 - 1,
            std::numeric_limits<int>::min());
        row("huge sent and total", largest, largest, 100);
    }

    void percentage()
    {
        QFETCH(qint64, sent);
        QFETCH(qint64, total);
        QFETCH(Percent, percent);
        QCOMPARE(toText(progressPercent(sent, total)), toText(percent));
    }

    void leavesTheBarAlone_data()
    {
        QTest::addColumn<qint64>("total");
        QTest::newRow("total 0") << Q_INT64_C(0);
        QTest::newRow("total unknown") << Q_INT64_C(-1);
        QTest::newRow("total negative") << Q_INT64_C(-100);
        QTest::newRow("total smallest") << smallest;
        QTest::newRow("total negative, low 32 bits positive") << -twoTo32 + 5;
        QTest::newRow("total 4 GiB") << twoTo32;
        QTest::newRow("total 8 GiB") << 2 * twoTo32;
    }

    void leavesTheBarAlone()
    {
        QFETCH(qint64, total);
        for (const qint64 sent : { Q_INT64_C(0), Q_INT64_C(1), twoTo32, largest, smallest })
            QCOMPARE(toText(progressPercent(sent, total)), "unchanged");
    }

    void matchesTheModelAtEveryEdge()
    {
        const QList<qint64> numbers = remarkableNumbers();
        for (const qint64 sent : numbers) {
            for (const qint64 total : numbers)
                compareWithModel(sent, total);
            if (QTest::currentTestFailed())
                return;
        }
    }

    void matchesTheModelAnywhere()
    {
        QRandomGenerator random(20'240'229);
        for (int i = 0; i < 100'000 && !QTest::currentTestFailed(); ++i) {
            const int shift = i % 60;
            const auto sent = static_cast<qint64>(random.generate64() >> shift);
            const auto total = static_cast<qint64>(random.generate64() >> (i % 47));
            compareWithModel(sent, total);
        }
    }

private:
    static void compareWithModel(qint64 sent, qint64 total)
    {
        const Percent actual = progressPercent(sent, total);
        const Percent expected = model(sent, total);
        QVERIFY2(
            actual == expected,
            "percentage of " + QByteArray::number(sent) + " of " + QByteArray::number(total) + ": "
                + toText(actual) + " instead of " + toText(expected));
    }
};

HALDEN_TEST_MAIN(tst_ProgressPercent)
#include "tst_progresspercent.moc"
