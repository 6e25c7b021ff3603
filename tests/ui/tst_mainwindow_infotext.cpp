#include "app/constants.h"
#include "tests/support/applicationfolder.h"
#include "tests/support/diskfaults.h"
#include "tests/support/httpsserver.h"
#include "tests/support/mainwindowundertest.h"
#include "tests/support/realmsini.h"
#include "tests/support/testmain.h"

#include <QComboBox>
#include <QDesktopServices>
#include <QDir>
#include <QEvent>
#include <QFile>
#include <QLabel>
#include <QSignalSpy>
#include <QTextBrowser>
#include <QUrl>

using namespace TestSupport;

namespace {

QString infoPath()
{
    return ApplicationFolder::path("launcher.info");
}

/// What the player reads; nothing when the browser is hidden.
QString shownText(const MainWindowUnderTest& window)
{
    const QTextBrowser* browser = window.infoBrowser();
    return browser->isHidden() ? QString() : browser->toPlainText();
}

QByteArray everyByteAThousandTimes()
{
    QByteArray bytes;
    for (int i = 0; i < 256'000; ++i)
        bytes.append(static_cast<char>((i * 131) % 256));
    return bytes;
}

QByteArray fiveMegabytes()
{
    QByteArray text;
    for (int i = 0; text.size() < 5'000'000; ++i)
        text += "<p>" + QByteArray::number(i) + QByteArray(1000, 'x') + "</p>\n";
    return text;
}

/// Stands in for the desktop's browser.
class LinkRecorder : public QObject {
    Q_OBJECT

public:
    LinkRecorder()
    {
        QDesktopServices::setUrlHandler("https", this, "record");
    }
    ~LinkRecorder() override
    {
        QDesktopServices::unsetUrlHandler("https");
    }

    QList<QUrl> opened;

public slots:
    void record(const QUrl& url)
    {
        opened.append(url);
    }
};

/// Notes which entry the selector shows when the next download comes up.
class SelectionAtTheDownload : public QObject {
    Q_OBJECT

public:
    explicit SelectionAtTheDownload(const MainWindowUnderTest& window)
        : selector(window.selector())
    {
        window.downloadLabel()->installEventFilter(this);
    }

    QStringList selections;

protected:
    bool eventFilter(QObject*, QEvent* event) override
    {
        if (event->type() == QEvent::ShowToParent)
            selections.append(selector->currentText());
        return false;
    }

private:
    const QComboBox* selector;
};

} // namespace

class tst_MainWindow_infotext : public MainWindowTest {
    Q_OBJECT

private slots:
    void init()
    {
        MainWindowTest::init();
        writeRealmsIni(realmsIniWith({ { "Tarnwick" } }, "realmid=1\n"));
    }

    void showsTheFile_data()
    {
        QTest::addColumn<QByteArray>("content");
        QTest::addColumn<QString>("shown");
        QTest::newRow("one line") << QByteArray("Welcome") << "Welcome";
        QTest::newRow("markup") << QByteArray("<b>Wel</b>come") << "Welcome";
        QTest::newRow("line breaks vanish") << QByteArray("one\ntwo\nthree\n") << "onetwothree";
        QTest::newRow("carriage returns too") << QByteArray("one\r\ntwo\r\n") << "onetwo";
        QTest::newRow("empty lines too") << QByteArray("\n\none\n\n\ntwo") << "onetwo";
        QTest::newRow("blanks stay") << QByteArray("one \ntwo") << "one two";
        QTest::newRow("tags may be split") << QByteArray("<b\n>one</b> two") << "one two";
        QTest::newRow("markup separates") << QByteArray("one<br>\ntwo") << "one\ntwo";
        QTest::newRow("UTF-8") << QByteArray("Grüße aus Tarnwick – ✓") << "Grüße aus Tarnwick – ✓";
        QTest::newRow("byte order mark") << QByteArray("\xEF\xBB\xBFone") << "one";
        QTest::newRow("empty") << QByteArray("") << "";
        QTest::newRow("nothing but line breaks") << QByteArray("\n\r\n\n") << "";
    }

    void showsTheFile()
    {
        QFETCH(QByteArray, content);
        QFETCH(QString, shown);
        writeFile(infoPath(), content);
        const MainWindowUnderTest window;
        QVERIFY2(window.infoBrowser()->isHidden(), "The text shows before its download has ended");
        QVERIFY(window.settle(2));
        QCOMPARE(shownText(window), shown);
        QCOMPARE(window.infoBrowser()->isHidden(), shown.isEmpty());
        QCOMPARE(window.infoBrowser()->openExternalLinks(), !shown.isEmpty());
    }

    void staysHiddenWithoutAFile()
    {
        const MainWindowUnderTest window;
        QVERIFY(window.settle(2));
        QVERIFY(window.infoBrowser()->isHidden());
    }

    void staysHiddenWhenUnreadable()
    {
        writeFile(infoPath(), "secret");
        const UnreadableFile unreadable(infoPath());
        const MainWindowUnderTest window;
        QVERIFY(window.settle(2));
        QVERIFY(window.infoBrowser()->isHidden());
    }

    void staysHiddenWhenAFolder()
    {
        QVERIFY(QDir().mkdir(infoPath()));
        const MainWindowUnderTest window;
        QVERIFY(window.settle(2));
        QVERIFY(window.infoBrowser()->isHidden());
    }

    void takesTheServersText_data()
    {
        QTest::addColumn<int>("status");
        QTest::addColumn<QByteArray>("body");
        QTest::addColumn<QString>("shown");
        QTest::newRow("newer") << 200 << QByteArray("today's\nnews") << "today'snews";
        QTest::newRow("not modified") << 304 << QByteArray() << "yesterday's";
        QTest::newRow("empty body") << 200 << QByteArray() << "yesterday's";
        QTest::newRow("error page") << 404 << QByteArray("not here") << "yesterday's";
        QTest::newRow("server in trouble") << 500 << QByteArray("oops") << "yesterday's";
    }

    void takesTheServersText()
    {
        QFETCH(int, status);
        QFETCH(QByteArray, body);
        QFETCH(QString, shown);
        writeFile(infoPath(), "yesterday's");
        HttpsServer server;
        server.answer("/alert", HttpAnswer::status(status, body));
        server.listen();
        const MainWindowUnderTest window;
        QVERIFY(window.settle(2));
        QCOMPARE(shownText(window), shown);
    }

    void everyFurtherDownloadShowsItAgain()
    {
        writeFile(infoPath(), "first");
        const MainWindowUnderTest window;
        QVERIFY(window.settle(2));
        QCOMPARE(shownText(window), "first");
        writeFile(infoPath(), "second");
        window.infoBrowser()->hide();
        QSignalSpy updates(window.get(), SIGNAL(update()));
        window->initDownloadFinished();
        // The second download ends in two calls, for it has been connected twice.
        QVERIFY(window.settle(2 + 2 * 3));
        QCOMPARE(updates.count(), 2);
        QCOMPARE(shownText(window), "second");
    }

    void aTextThatHasGoneStaysOnScreen()
    {
        writeFile(infoPath(), "first");
        const MainWindowUnderTest window;
        QVERIFY(window.settle(2));
        QVERIFY(QFile::remove(infoPath()));
        window->showInfoText();
        QCOMPARE(shownText(window), "first");
        QVERIFY(window.settle(4));
    }

    void startsTheUpdatesWithOrWithoutText_data()
    {
        QTest::addColumn<bool>("text");
        QTest::newRow("with") << true;
        QTest::newRow("without") << false;
    }

    void startsTheUpdatesWithOrWithoutText()
    {
        QFETCH(bool, text);
        const MainWindowUnderTest window;
        QVERIFY(window.settle(2));
        if (text)
            writeFile(infoPath(), "text");
        const QSignalSpy updates(window.get(), SIGNAL(update()));
        window->showInfoText();
        QCOMPARE(updates.count(), 1);
        QCOMPARE(window.infoBrowser()->isHidden(), !text);
        QVERIFY(window.settle(4));
    }

    void refreshesTheEntriesBeforeTheUpdatesStart()
    {
        const MainWindowUnderTest window;
        QVERIFY(window.settle(2));
        writeRealmsIni(realmsIniWith({ { "One" }, { "Two" } }, "realmid=2\n"));
        const SelectionAtTheDownload seen(window);
        window->showInfoText();
        QCOMPARE(seen.selections.value(0), "Two");
        QVERIFY(window.settle(4));
    }

    void opensLinksOutside()
    {
        writeFile(infoPath(), "<a href=\"https://www.tarnwick.example/news?id=7\">All news</a>");
        const MainWindowUnderTest window;
        QVERIFY(window.settle(2));
        window.show();
        QTextBrowser* browser = window.infoBrowser();
        const LinkRecorder links;
        QTextCursor inTheLink(browser->document());
        inTheLink.setPosition(3);
        QTest::mouseClick(
            browser->viewport(), Qt::LeftButton, {}, browser->cursorRect(inTheLink).center());
        QCOMPARE(links.opened, QList<QUrl>{ QUrl("https://www.tarnwick.example/news?id=7") });
        QCOMPARE(browser->toPlainText(), "All news");
    }

    void survivesAnything_data()
    {
        QTest::addColumn<QByteArray>("content");
        QTest::newRow("every byte") << everyByteAThousandTimes();
        QTest::newRow("zeros") << QByteArray(10'000, '\0');
        QTest::newRow("broken UTF-8") << QByteArray("\xC3\x28\xFF\xFE\xF0\x9F");
        QTest::newRow("unclosed markup") << QByteArray("<table><tr><td><a href='<b>");
        QTest::newRow("deep markup") << QByteArray("<div>").repeated(2'000);
    }

    void survivesAnything()
    {
        QFETCH(QByteArray, content);
        writeFile(infoPath(), content);
        const MainWindowUnderTest window;
        window.show();
        QVERIFY(window.settle(2));
        QVERIFY2(!window.infoBrowser()->isHidden(), "There is a text, and it is not shown");
        QCOMPARE(readFile(infoPath()), content);
    }

    void showsFiveMegabytes()
    {
        const QByteArray text = fiveMegabytes();
        writeFile(infoPath(), text);
        const MainWindowUnderTest window;
        window.show();
        QVERIFY(window.settle(2));
        QCOMPARE(shownText(window).count('x'), text.count('x'));
    }
};

HALDEN_TEST_MAIN(tst_MainWindow_infotext)
#include "tst_mainwindow_infotext.moc"
