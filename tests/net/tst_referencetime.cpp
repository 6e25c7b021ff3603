#include "net/referencetime.h"
#include "tests/support/applicationfolder.h"
#include "tests/support/testmain.h"
#include "tests/support/timezone.h"

#include <QFile>

using namespace TestSupport;

class tst_ReferenceTime : public QObject {
    Q_OBJECT

private slots:
    void init();

    void fixedTimeIsLocal_data();
    void fixedTimeIsLocal();
    void modificationTimeIsUtc_data();
    void modificationTimeIsUtc();
    void missingFileHasTheFixedTime_data();
    void missingFileHasTheFixedTime();
    void folderHasItsOwnTime();
#ifndef Q_OS_WIN // a link is a file with another name there
    void linkHasTheTimeOfItsTarget();
#endif
};

void tst_ReferenceTime::init()
{
    QTest::failOnWarning(QRegularExpression(".*"));
    ApplicationFolder::clear();
}

void tst_ReferenceTime::fixedTimeIsLocal_data()
{
    QTest::addColumn<QByteArray>("zone");
    QTest::addColumn<QDateTime>("utc");
    const auto row = [](const char* name, const char* zone, const QDate& day, const QTime& time) {
        QTest::newRow(name) << QByteArray(zone) << utc(day, time);
    };
    const QDate day(2000, 1, 1);
    row("UTC", "UTC0", day, QTime(10, 15));
    row("Berlin", "CET-1CEST,M3.5.0,M10.5.0/3", day, QTime(9, 15));
    row("New York", "EST5EDT,M3.2.0,M11.1.0", day, QTime(15, 15));
    row("Newfoundland", "NST3:30NDT,M3.2.0,M11.1.0", day, QTime(13, 45));
#ifndef Q_OS_WIN // its C library knows the rules of one country only
    row("summer in the south", "AEST-10AEDT,M10.1.0,M4.1.0/3", QDate(1999, 12, 31), QTime(23, 15));
    row("the day before", "<+14>-14", QDate(1999, 12, 31), QTime(20, 15));
#endif
}

void tst_ReferenceTime::fixedTimeIsLocal()
{
    QFETCH(QByteArray, zone);
    QFETCH(QDateTime, utc);
    const TimeZone home(zone);
    const QDateTime fixed = fixedReferenceTime();
    QCOMPARE(fixed.timeSpec(), Qt::LocalTime);
    QCOMPARE(fixed.date(), QDate(2000, 1, 1));
    QCOMPARE(fixed.time(), QTime(10, 15, 0, 0));
    QCOMPARE(fixed.toUTC(), utc);
}

void tst_ReferenceTime::modificationTimeIsUtc_data()
{
    QTest::addColumn<QByteArray>("zone");
    QTest::addColumn<QDateTime>("modified");
    const QDateTime winter = utc(QDate(2024, 1, 15), QTime(12, 0));
    const QDateTime summer = utc(QDate(2024, 7, 15), QTime(23, 30));
    // The hour from 02:00 to 03:00 in Berlin comes twice on that day.
    const QDateTime firstPass = utc(QDate(2024, 10, 27), QTime(0, 30));
    const QDateTime secondPass = utc(QDate(2024, 10, 27), QTime(1, 30));
    for (const char* zone : { "UTC0", "CET-1CEST,M3.5.0,M10.5.0/3", "EST5EDT,M3.2.0,M11.1.0" }) {
        QTest::addRow("winter, %s", zone) << QByteArray(zone) << winter;
        QTest::addRow("summer, %s", zone) << QByteArray(zone) << summer;
        QTest::addRow("doubled hour, first, %s", zone) << QByteArray(zone) << firstPass;
        QTest::addRow("doubled hour, second, %s", zone) << QByteArray(zone) << secondPass;
    }
}

void tst_ReferenceTime::modificationTimeIsUtc()
{
    QFETCH(QByteArray, zone);
    QFETCH(QDateTime, modified);
    const QString path = ApplicationFolder::path("file");
    writeFile(path, "content");
    QFile file(path);
    QVERIFY(file.open(QIODevice::ReadWrite));
    QVERIFY(file.setFileTime(modified, QFileDevice::FileModificationTime));
    QVERIFY(file.setFileTime(modified.addYears(-1), QFileDevice::FileAccessTime));
    file.close();
    const TimeZone home(zone);
    const QDateTime reference = referenceTimeOf(QFileInfo(path));
    QCOMPARE(reference.timeSpec(), Qt::UTC);
    QCOMPARE(reference, modified);
    QCOMPARE(reference.time(), modified.time());
}

void tst_ReferenceTime::missingFileHasTheFixedTime_data()
{
    QTest::addColumn<QString>("path");
    QTest::newRow("missing file") << ApplicationFolder::path("missing");
    QTest::newRow("missing folder") << ApplicationFolder::path("missing/file");
    QTest::newRow("no name") << QString();
}

void tst_ReferenceTime::missingFileHasTheFixedTime()
{
    QFETCH(QString, path);
    const TimeZone home("EST5EDT");
    const QDateTime reference = referenceTimeOf(QFileInfo(path));
    QCOMPARE(reference, fixedReferenceTime());
    QCOMPARE(reference.timeSpec(), Qt::LocalTime);
}

void tst_ReferenceTime::folderHasItsOwnTime()
{
    const QFileInfo folder(ApplicationFolder::path());
    QCOMPARE(referenceTimeOf(folder), folder.lastModified());
}

#ifndef Q_OS_WIN
void tst_ReferenceTime::linkHasTheTimeOfItsTarget()
{
    const QDateTime modified = utc(QDate(2024, 7, 15), QTime(23, 30));
    const QString path = ApplicationFolder::path("file");
    writeFile(path, "content");
    QFile file(path);
    QVERIFY(file.open(QIODevice::ReadWrite));
    QVERIFY(file.setFileTime(modified, QFileDevice::FileModificationTime));
    file.close();
    const QString link = ApplicationFolder::path("link");
    QVERIFY(QFile::link(path, link));
    QCOMPARE(referenceTimeOf(QFileInfo(link)), modified);
    QVERIFY(QFile::remove(path));
    QCOMPARE(referenceTimeOf(QFileInfo(link)), fixedReferenceTime());
}
#endif

HALDEN_TEST_MAIN(tst_ReferenceTime)
#include "tst_referencetime.moc"
