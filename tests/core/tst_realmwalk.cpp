#include "core/realmwalk.h"
#include "core/settingshandler.h"
#include "tests/support/applicationfolder.h"
#include "tests/support/realmsini.h"
#include "tests/support/testmain.h"

#include <QRegularExpression>

using namespace TestSupport;

class tst_RealmWalk : public QObject {
    Q_OBJECT

private slots:
    void init()
    {
        QTest::failOnWarning(QRegularExpression(".*"));
        ApplicationFolder::clear();
    }

    void ends_data()
    {
        QTest::addColumn<QByteArray>("rows");
        QTest::addColumn<int>("last");
        const auto row = [](const char* tag, const char* rows, int last) {
            QTest::newRow(tag) << QByteArray(rows) << last;
        };
        row("no count", "1-realmName=A\n", 0);
        row("negative", "size=-3\n1-realmName=A\n", -3);
        row("three", "size=3\n", 3);
        row("more keys than the count says", "size=2\n3-realmName=A\n", 2);
        row("ten thousand without a key", "size=10000\n", 10'000);
        row("more without a key", "size=10001\n", 10'000);
        row("huge with a low key", "size=2000000000\n3-realmName=A\n", 10'000);
        row("huge with a high key", "size=2000000000\n12000-clientPath=/a\n", 12'000);
        row("the highest of several", "size=30000\n12000-realmName=A\n11000-realmName=B\n", 12'000);
        row("a key beyond the count", "size=11000\n12000-realmName=A\n", 11'000);
        row("a key that is no number", "size=20000\nx12000-realmName=A\n12000x-realmName=A\n",
            10'000);
        row("a key beyond 32 bits", "size=2000000000\n99999999999-realmName=A\n", 10'000);
    }

    void ends()
    {
        QFETCH(QByteArray, rows);
        writeRealmsIni("[realms]\n" + rows);
        QTEST(RealmWalk().last(), "last");
    }

    void seesWhatChangesWhileItGoesOn()
    {
        writeRealmsIni("[realms]\nsize=2\n");
        const RealmWalk walk;
        QCOMPARE(walk.last(), 2);
        SettingsHandler::addClient("New", "new.test", "/new", false);
        QCOMPARE(walk.last(), 3);
        writeRealmsIni("[realms]\nsize=20000\n15000-realmName=A\n");
        QCOMPARE(walk.last(), 15'000);
        writeRealmsIni("[realms]\nsize=20001\n16000-realmName=A\n");
        QCOMPARE(walk.last(), 16'000);
    }

    void aMissingFileHasNoEntriesAndStaysMissing()
    {
        QCOMPARE(RealmWalk().last(), 0);
        QVERIFY(!QFile::exists(realmsIniPath()));
    }
};

HALDEN_TEST_MAIN(tst_RealmWalk)
#include "tst_realmwalk.moc"
