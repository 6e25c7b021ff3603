#include "tests/publisher/accesslog.h"
#include "tests/publisher/commandrun.h"
#include "tests/support/applicationfolder.h"
#include "tests/support/testmain.h"

#include <QImage>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QSet>

using namespace TestSupport;
using namespace Publisher;

namespace {

constexpr qint64 day = 86'400;

/// Something of everything.
QString log()
{
    AccessLog log;
    for (int player = 1; player <= 20; ++player) {
        for (const qint64 published : { qint64(0), day, 2 * day })
            log.add({ .player = player,
                      .second = published + player * qint64(600),
                      .copy = -day,
                      .file = published });
        log.add({ .player = player,
                  .second = player,
                  .target = "/Halden-Launcher.exe",
                  .bytes = 500'000,
                  .copy = -day,
                  .file = 0 });
    }
    log.add({ .target = "/" + QString(400, 'x') + "<script>document.title='run'</script>",
              .status = 404 });
    return log.write();
}

} // namespace

/// The report's page in a browser, as several readers see and hear it.
class tst_ReportPage : public QObject {
    Q_OBJECT

private:
    QJsonObject told;

    static QImage shot(const QString& reader)
    {
        return QImage(ApplicationFolder::path(reader + ".png"));
    }

    QStringList spoken(const QString& role) const
    {
        QStringList names;
        const QJsonArray nodes = told["spoken"].toArray();
        for (const QJsonValue node : nodes) {
            if (node["role"] == role)
                names.append(node["name"].toString());
        }
        return names;
    }

private slots:
    void initTestCase()
    {
        ApplicationFolder::clear();
        const QString page = ApplicationFolder::path("report.html");
        QCOMPARE(CommandRun({ "report", log(), "--html", page }).code, ExitCode::Fine);
        QProcess browser;
        browser.setProcessChannelMode(QProcess::ForwardedErrorChannel);
        browser.start(HALDEN_LOOK_AT_PAGE, { page, ApplicationFolder::path({}) });
        QVERIFY(browser.waitForFinished(100'000));
        QCOMPARE(browser.exitCode(), 0);
        told = QJsonDocument::fromJson(browser.readAllStandardOutput()).object();
    }

    /// Nothing has to be scrolled sideways but tables in themselves.
    void fitsOntoEveryScreen_data()
    {
        QTest::addColumn<QString>("reader");
        QTest::addColumn<int>("width");
        QTest::newRow("light") << "light" << 1000;
        QTest::newRow("dark") << "dark" << 1000;
        QTest::newRow("phone") << "phone" << 360;
        QTest::newRow("print") << "print" << 800;
    }

    void fitsOntoEveryScreen()
    {
        QFETCH(QString, reader);
        QFETCH(int, width);
        const int own = told["widths"][reader].toInt();
        QVERIFY2(own > width / 2 && own <= width, qPrintable(QString::number(own)));
        QCOMPARE(shot(reader).width(), own);
        QVERIFY(shot(reader).height() > 900);
    }

    /// On paper it is light whatever the screen is.
    void takesTheReadersColours_data()
    {
        QTest::addColumn<QString>("reader");
        QTest::addColumn<bool>("isLight");
        QTest::newRow("light") << "light" << true;
        QTest::newRow("dark") << "dark" << false;
        QTest::newRow("phone") << "phone" << true;
        QTest::newRow("print") << "print" << true;
    }

    /// The background at its edge, and letters that stand out from it.
    void takesTheReadersColours()
    {
        QFETCH(QString, reader);
        QFETCH(bool, isLight);
        const QImage image = shot(reader);
        QVERIFY(!image.isNull());
        const int paper = qGray(image.pixel(2, 2));
        QCOMPARE(paper > 128, isLight);
        int farthest = 0;
        for (int y = 0; y < 200; ++y) {
            for (int x = 0; x < image.width(); ++x)
                farthest = std::max(farthest, std::abs(qGray(image.pixel(x, y)) - paper));
        }
        QVERIFY2(farthest > 170, qPrintable(QString::number(farthest)));
    }

    /// Curves and bars have colours that no text has.
    void picturesAreDrawn()
    {
        const QImage image = shot("light");
        QSet<QRgb> colours;
        for (int y = 0; y < image.height(); ++y) {
            for (int x = 0; x < image.width(); ++x)
                colours.insert(image.pixel(x, y));
        }
        for (const char* colour : { "#8a5a00", "#1f5f8b", "#5b6e1f" })
            QVERIFY2(colours.contains(QColor(colour).rgb()), colour);
    }

    void everythingIsSpoken()
    {
        const QStringList headings = spoken("heading");
        for (const char* heading :
             { "What players get", "Who has what", "Live manifest", "Launcher", "Load", "Trouble" })
            QVERIFY2(headings.contains(heading), qPrintable(headings.join('\n')));
        const QStringList images = spoken("image");
        QCOMPARE(images.size(), 3);
        QVERIFY2(images.first().contains("20 of 20 players"), qPrintable(images.first()));
        QVERIFY(images.last().startsWith("Requests in steps of"));
        const QStringList tables = spoken("table");
        QVERIFY(tables.size() >= 4);
        QVERIFY2(!tables.contains(QString()), "a table without a caption");
        // Tables can be scrolled by keyboard where they are too wide.
        QCOMPARE(spoken("region"), tables);
        QVERIFY(spoken("columnheader").contains("Publication"));
    }

    void nothingComesFromElsewhere()
    {
        const QJsonArray wanted = told["wanted"].toArray();
        QCOMPARE(wanted.size(), 1);
        QVERIFY(wanted.first().toString().endsWith("/report.html"));
        QCOMPARE(spoken("RootWebArea"), QStringList("What players get"));
    }
};

HALDEN_TEST_MAIN(tst_ReportPage)
#include "tst_reportpage.moc"
