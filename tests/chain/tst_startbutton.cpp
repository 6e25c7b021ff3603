#include "tests/support/applicationfolder.h"
#include "tests/support/certificateauthority.h"
#include "tests/support/mainwindowundertest.h"
#include "tests/support/testmain.h"
#include "tests/world/community.h"
#include "tests/world/player.h"

#include <QDir>
#include <QEvent>
#include <QFile>
#include <QPushButton>

using TestSupport::writeFile;

namespace {

/// Writes down every change of a widget between enabled and disabled.
class EnabledLog : public QObject {
    Q_OBJECT

public:
    explicit EnabledLog(QWidget* watched)
        : widget(watched)
    {
        widget->installEventFilter(this);
    }

    QStringList changes;

protected:
    bool eventFilter(QObject*, QEvent* event) override
    {
        if (event->type() == QEvent::EnabledChange)
            changes.append(widget->isEnabled() ? "enabled" : "disabled");
        return false;
    }

private:
    QWidget* widget;
};

/// While it lives, the community's server shows a certificate when it is started
/// that nobody vouches for. The store of those who are trusted stays as it is: the
/// toolkit may have read it already.
class UntrustedServer {
public:
    UntrustedServer()
    {
        QVERIFY(run.rename("tls", "tls-away") && run.mkdir("tls"));
        const auto shown = TestSupport::CertificateAuthority().selfSigned(
            { "www.tarnwick.example", "download.tarnwick.example" });
        writeFile(run.filePath("tls/fullchain.pem"), shown.certificate.toPem());
        writeFile(run.filePath("tls/privkey.pem"), shown.key.toPem());
    }

    ~UntrustedServer()
    {
        QVERIFY(QDir(run.filePath("tls")).removeRecursively() && run.rename("tls-away", "tls"));
    }

    UntrustedServer(const UntrustedServer&) = delete;
    UntrustedServer& operator=(const UntrustedServer&) = delete;

private:
    QDir run{ "/run/halden" };
};

} // namespace

/// However an update goes wrong, the player gets to the game in the end.
class tst_StartButton : public QObject {
    Q_OBJECT

private slots:
    void init()
    {
        TestSupport::ApplicationFolder::clear();
        community.publish();
        community.forgetRequests();
        player.settle();
    }

    void cleanup()
    {
        community.stop();
    }

    void isEnabledInTheEnd_data()
    {
        QTest::addColumn<bool>("running");
        QTest::addColumn<QStringList>("missing");
        QTest::addColumn<QByteArray>("manifest");
        const QByteArray asPublished;
        QTest::newRow("nothing wrong") << true << QStringList() << asPublished;
        QTest::newRow("server down") << false << QStringList() << asPublished;
        QTest::newRow("no information text")
            << true << QStringList{ "launcher.info" } << asPublished;
        QTest::newRow("no launcher files")
            << true << QStringList{ "Halden-Launcher.exe", "Halden-Launcher-Updater.exe" }
            << asPublished;
        QTest::newRow("no manifests")
            << true << QStringList{ "patch.ini", "patchTest.ini" } << asPublished;
        QTest::newRow("no patch files") << true << QStringList{ "wow-client-patch" } << asPublished;
        QTest::newRow("a manifest of something else")
            << true << QStringList() << QByteArray("<html>Wartung</html>\n");
        QTest::newRow("a manifest cut short")
            << true << QStringList()
            << QByteArray("[General]\nnumberOfFiles=40\nfile1=a.MPQ\nfile1-ha");
    }

    void isEnabledInTheEnd()
    {
        QFETCH(bool, running);
        QFETCH(QStringList, missing);
        QFETCH(QByteArray, manifest);
        remove(missing);
        if (!manifest.isNull())
            writeFile(community.path("patch.ini"), manifest);
        if (running)
            community.start();
        verifyStartButton();
    }

    void isEnabledWhenTheServerIsNotTrusted()
    {
        // The first start of all makes the certificates.
        community.start();
        community.stop();
        const UntrustedServer untrusted;
        community.start();
        verifyStartButton();
        community.stop();
        QCOMPARE(community.requests(), QStringList());
    }

private:
    void remove(const QStringList& names)
    {
        for (const QString& name : names) {
            const QString published = community.path(name);
            QVERIFY(QFile::remove(published) || QDir(published).removeRecursively());
        }
    }

    /// One start of the launcher: the button is disabled once and enabled again.
    void verifyStartButton()
    {
        MainWindowUnderTest window;
        const EnabledLog log(window.button("StartWoW"));
        QVERIFY(window.settle(2));
        QCOMPARE(log.changes, QStringList({ "disabled", "enabled" }));
        QVERIFY(window.button("AddClient")->isEnabled());
    }

    Community community;
    Player player;
};

HALDEN_TEST_MAIN(tst_StartButton)
#include "tst_startbutton.moc"
