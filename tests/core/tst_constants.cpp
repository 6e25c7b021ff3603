#include "app/constants.h"
#include "tests/support/testmain.h"

#include <QRegularExpression>
#include <QUrl>

class tst_Constants : public QObject {
    Q_OBJECT

private slots:
    void informationTextLiesUnderAlert_data()
    {
        QTest::addColumn<QString>("address");
        QTest::newRow("alertUrl") << alertUrl;
        QTest::newRow("launcherInfoUrl") << launcherInfoUrl;
    }

    void informationTextLiesUnderAlert()
    {
        QFETCH(QString, address);
        const QUrl url(address, QUrl::StrictMode);
        QCOMPARE(url.scheme(), "https");
        QVERIFY2(!url.host().isEmpty(), "the address names no host");
        QCOMPARE(url.path(), "/alert");
        QVERIFY2(!url.hasQuery() && !url.hasFragment(), qPrintable(address));
    }

    void alertAndLauncherInfoAreTheSame()
    {
        QCOMPARE(alertUrl, launcherInfoUrl);
    }

    void baseUrlsEndInASlash_data()
    {
        QTest::addColumn<QString>("address");
        QTest::newRow("unencryptedDownloadBaseUrl") << unencryptedDownloadBaseUrl;
        QTest::newRow("downloadBaseUrl") << downloadBaseUrl;
        QTest::newRow("livePatchBaseUrl") << livePatchBaseUrl;
        QTest::newRow("testPatchBaseUrl") << testPatchBaseUrl;
    }

    void baseUrlsEndInASlash()
    {
        QFETCH(QString, address);
        const QUrl url(address + "patch.ini", QUrl::StrictMode);
        QVERIFY2(url.isValid(), qPrintable(url.errorString()));
        QCOMPARE(url.scheme(), "https");
        QVERIFY2(!url.host().isEmpty(), "the address names no host");
        QCOMPARE(url.path(), "/patch.ini");
    }

    void patchesComeFromTheDownloadHost()
    {
        QCOMPARE(livePatchBaseUrl, downloadBaseUrl);
        QCOMPARE(testPatchBaseUrl, downloadBaseUrl);
    }

    void librariesComeFromASecondHost()
    {
        QVERIFY2(
            QUrl(unencryptedDownloadBaseUrl).host() != QUrl(downloadBaseUrl).host(),
            "the mirror is meant to be another host than the download host");
    }

    void organizationDomainIsABareDomainName()
    {
        static const QRegularExpression domain("^[A-Za-z0-9-]+(\\.[A-Za-z0-9-]+)+$");
        QVERIFY2(domain.match(organizationDomain).hasMatch(), qPrintable(organizationDomain));
    }

    void names_data()
    {
        QTest::addColumn<QString>("constant");
        QTest::addColumn<QString>("text");
        QTest::newRow("organizationName") << organizationName << "Tarnwick";
        QTest::newRow("applicationDisplayName") << applicationDisplayName << "Tarnwick Launcher";
        QTest::newRow("launcherVersion") << launcherVersion << "0.6.4";
    }

    void names()
    {
        QFETCH(QString, constant);
        QTEST(constant, "text");
    }

    void versionIsTheProjectsVersion()
    {
        QCOMPARE(launcherVersion, QStringLiteral(HALDEN_TEST_PROJECT_VERSION));
    }
};

HALDEN_TEST_MAIN(tst_Constants)
#include "tst_constants.moc"
