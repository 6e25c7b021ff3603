#include "publisher/common/names.h"
#include "tests/support/testmain.h"

#include <QRegularExpression>

using namespace Publisher;

class tst_Names : public QObject {
    Q_OBJECT

private slots:
    void init()
    {
        QTest::failOnWarning(QRegularExpression(".*"));
    }

    void windowsHolds_data()
    {
        QTest::addColumn<QString>("name");
        QTest::addColumn<QString>("fault");
        const QString character = "character";
        const QString end = "ends in";
        const QString device = "device";
        QTest::newRow("plain") << "patch-x.mpq"
                               << "";
        QTest::newRow("blanks and umlauts") << "Größe der Welt.MPQ"
                                            << "";
        QTest::newRow("comma, semicolon, at, hash, percent") << "a,b;c@d#e%f"
                                                             << "";
        QTest::newRow("leading full stop") << ".config"
                                           << "";
        QTest::newRow("begins like a device") << "console.txt"
                                              << "";
        QTest::newRow("device with a number of two digits") << "com10"
                                                            << "";
        for (const char c : { '<', '>', ':', '"', '|', '?', '*', '\\', '/', '\x01', '\x1f' })
            QTest::addRow("character %d", c) << QString("a%1b").arg(QChar(c)) << character;
        QTest::newRow("trailing full stop") << "folder." << end;
        QTest::newRow("trailing blank") << "folder " << end;
        for (const char* name : { "con", "PRN", "aux.txt", "nul.tar.gz", "COM1", "lpt9.mpq", "com0",
                                  "CONIN$", "nul .txt", "com\u00b2" })
            QTest::addRow("device %s", name) << name << device;
        QTest::newRow("251 characters") << QString(251, 'x') << "";
        QTest::newRow("252 characters") << QString(252, 'x') << "too long";
    }

    void windowsHolds()
    {
        QFETCH(QString, name);
        QFETCH(QString, fault);
        const QString why = whyNotOnWindows(name);
        QCOMPARE(why.isEmpty(), fault.isEmpty());
        QVERIFY2(why.contains(fault), qPrintable(why));
    }

    void junk_data()
    {
        QTest::addColumn<QString>("name");
        QTest::addColumn<bool>("junk");
        QTest::newRow("thumbnails") << "Thumbs.db" << true;
        QTest::newRow("thumbnails in lower case") << "thumbs.db" << true;
        QTest::newRow("folder view") << "desktop.ini" << true;
        QTest::newRow("other folder view") << ".DS_Store" << true;
        QTest::newRow("running download") << "patch-x.mpq-new" << true;
        QTest::newRow("patch file") << "patch-new.mpq" << false;
        QTest::newRow("ini file") << "my-desktop.ini" << false;
    }

    void junk()
    {
        QFETCH(QString, name);
        QTEST(isJunk(name), "junk");
    }
};

HALDEN_TEST_MAIN(tst_Names)
#include "tst_names.moc"
