#include "app/constants.h"
#include "tests/support/applicationfolder.h"
#include "tests/support/reporter.h"
#include "tests/support/runlog.h"
#include "tests/support/testmain.h"

#include <QDir>
#include <QDirIterator>
#include <QFile>
#include <QImage>
#include <QImageReader>
#include <QProcess>
#include <QProcessEnvironment>
#include <QRegularExpression>

using namespace TestSupport;

namespace {

const char oneEntry[] = "[realms]\nsize=1\n1-realmName=Tarnwick\n\n[selected_realm]\nrealmid=1\n";

/// The real program as a player has it, in a folder of its own.
class Launcher {
public:
    Launcher()
    {
        QDir().mkpath(path());
        if (!QFile::copy(HALDEN_TEST_LAUNCHER, path("Halden-Launcher.exe")))
            qFatal("cannot copy %s", HALDEN_TEST_LAUNCHER);
        process.setProcessChannelMode(QProcess::MergedChannels);
        process.setWorkingDirectory(path());
        // The toolkit would complain about a missing one, in the first line.
        setVariable("XDG_RUNTIME_DIR", runtimeFolder());
        // Without it a program with windows tells Windows' debuggers.
        setVariable("QT_FORCE_STDERR_LOGGING", "1");
        setVariable("QT_MESSAGE_PATTERN", "%{appname}|%{type}|%{message}");
    }
    ~Launcher()
    {
        process.kill();
        process.waitForFinished();
    }
    Launcher(const Launcher&) = delete;
    Launcher& operator=(const Launcher&) = delete;

    /// Another one for each test: what an earlier launcher has started may still
    /// be about to report.
    static QString path()
    {
        return ApplicationFolder::path(QString("The Launcher of ") + QTest::currentTestFunction());
    }
    static QString path(const QString& name)
    {
        return path() + '/' + name;
    }

    void setVariable(const QString& name, const QString& value)
    {
        QProcessEnvironment environment = process.processEnvironment();
        if (environment.isEmpty())
            environment = QProcessEnvironment::systemEnvironment();
        environment.insert(name, value);
        process.setProcessEnvironment(environment);
    }

    void start()
    {
        process.start(path("Halden-Launcher.exe"), QStringList());
    }

    bool isRunning() const
    {
        return process.state() == QProcess::Running;
    }

    /// The log so far, a line each: application name, kind, message.
    QStringList log()
    {
        output += process.readAll().replace('\r', "");
        return QString::fromUtf8(output).split('\n', Qt::SkipEmptyParts);
    }

    qsizetype installingRuns()
    {
        return log().count(QString("Launcher|debug|") + RunLog::installs);
    }

    QProcess process;

private:
    static QString runtimeFolder()
    {
        QString folder = ApplicationFolder::path("runtime");
        QDir().mkpath(folder);
        QFile::setPermissions(folder, QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
        return folder;
    }

    QByteArray output;
};

/// Puts a program that reports its starts in the place of the updater, and a newer
/// launcher for it to install.
void placeUpdater()
{
    placeReporter(Launcher::path("Halden-Launcher-Updater.exe"), Launcher::path("updater.txt"));
    writeFile(Launcher::path("Halden-Launcher.tmp"), "newer");
}

/// How the launcher starts the updater.
QStringList updaterCall(const Launcher& launcher)
{
    return { Launcher::path("Halden-Launcher-Updater.exe"), Launcher::path(),
             QString::number(launcher.process.processId()) };
}

QList<QStringList> updaterCalls()
{
    return reportedStarts(Launcher::path("updater.txt"));
}

QStringList ownResources()
{
    QStringList found;
    for (const char* folder : { ":/images", ":/icons" }) {
        QDirIterator files(folder, QDir::Files, QDirIterator::Subdirectories);
        while (files.hasNext())
            found.append(files.next());
    }
    found.sort();
    return found;
}

QList<QSize> sizesIn(const QString& icon)
{
    QImageReader reader(icon);
    QList<QSize> sizes;
    for (int i = 0; i < reader.imageCount(); ++i) {
        reader.jumpToImage(i);
        const QImage image = reader.read();
        if (!image.isNull())
            sizes.append(image.size());
    }
    return sizes;
}

/// The largest picture that the platform plugin "minimal" has left of the
/// windows' contents: it is the main window's.
QImage paintedWindow()
{
    QImage largest;
    const QDir folder(Launcher::path());
    for (const QString& name : folder.entryList({ "output*.png" })) {
        const QByteArray content = readFile(folder.filePath(name));
        // The last chunk: a picture without it is still being written.
        if (!content.endsWith("IEND\xAE\x42\x60\x82"))
            continue;
        const QImage image = QImage::fromData(content);
        if (image.width() > largest.width())
            largest = image;
    }
    return largest;
}

} // namespace

class tst_Application : public QObject {
    Q_OBJECT

private slots:
    void init()
    {
        ApplicationFolder::clear();
    }

    void startsAndStays()
    {
        Launcher launcher;
        writeFile(Launcher::path("Settings/realms.ini"), oneEntry);
        launcher.start();
        QTRY_COMPARE(launcher.installingRuns(), RunLog::runsPerStart);
        QVERIFY(launcher.isRunning());
        QCOMPARE(launcher.log().constFirst(), "Launcher|debug|initer called");
    }

    /// The name is set before the window is built, so every line bears it.
    void logsUnderItsName()
    {
        Launcher launcher;
        writeFile(Launcher::path("Settings/realms.ini"), oneEntry);
        launcher.start();
        const QString infoLine = "Launcher|debug|true QUrl(\"" + launcherInfoUrl + "\") \""
            + Launcher::path() + "\" \"launcher.info\"";
        QTRY_VERIFY(launcher.log().contains(infoLine));
        QTRY_VERIFY(launcher.log().contains(
            "Launcher|warning|ErrorNo:  QNetworkReply::ConnectionRefusedError for url:  \""
            + launcherInfoUrl + '"'));
        const QStringList log = launcher.log();
        QCOMPARE(log.filter(QRegularExpression("^Launcher\\|")), log);
    }

    void showsItsWindow()
    {
        Launcher launcher;
        writeFile(Launcher::path("Settings/realms.ini"), oneEntry);
        launcher.setVariable("QT_QPA_PLATFORM", "minimal");
        launcher.setVariable("QT_DEBUG_BACKINGSTORE", "1");
        launcher.start();
        QTRY_COMPARE(paintedWindow().size(), QSize(1178, 707));
    }

    void endsWithoutErrorAfterTheHandOver()
    {
        Launcher launcher;
        writeFile(Launcher::path("Settings/realms.ini"), oneEntry);
        placeUpdater();
        launcher.start();
        QVERIFY(launcher.process.waitForStarted());
        const QStringList call = updaterCall(launcher);
        QVERIFY(launcher.process.waitForFinished());
        QCOMPARE(launcher.process.exitStatus(), QProcess::NormalExit);
        QCOMPARE(launcher.process.exitCode(), 0);
        QTRY_COMPARE(updaterCalls().value(0), call);
        QVERIFY2(
            !launcher.log().contains("Launcher|debug|clientUpdateIsCalled"),
            "The launcher went on although it had been handed over");
    }

    void theQuestionOfAFirstStartOutlastsTheHandOver()
    {
        Launcher launcher;
        placeUpdater();
        launcher.start();
        QTRY_COMPARE(launcher.installingRuns(), RunLog::runsPerStart);
        QTRY_COMPARE(updaterCalls(), QList<QStringList>(2, updaterCall(launcher)));
        QVERIFY2(launcher.isRunning(), "The program ended under the player's hands");
        QVERIFY(!QFile::exists(Launcher::path("Settings/realms.ini")));
    }

    void holdsTwoPictures()
    {
        const QStringList pictures{ ":/icons/Halden-Logo.ico",
                                    ":/images/ressources/background.jpg" };
        QCOMPARE(ownResources(), pictures);
    }

    void theBackgroundFillsTheLargestWindow()
    {
        const QString background = ":/images/ressources/background.jpg";
        QCOMPARE(QFile(background).size(), 227'090);
        QImageReader reader(background);
        reader.setDecideFormatFromContent(true);
        QCOMPARE(reader.format(), "jpeg");
        const QImage image = reader.read();
        QVERIFY2(!image.isNull(), qPrintable(reader.errorString()));
        QVERIFY(image.width() >= 1600);
        QVERIFY(image.height() >= 900);
    }

    void theLogoComesInManySizes()
    {
        const QString logo = ":/icons/Halden-Logo.ico";
        QImageReader reader(logo);
        reader.setDecideFormatFromContent(true);
        QCOMPARE(reader.format(), "ico");
        const QList<QSize> sizes = sizesIn(logo);
        for (const int side : { 16, 32, 48, 256 })
            QVERIFY2(sizes.contains(QSize(side, side)), qPrintable(QString::number(side)));
    }
};

HALDEN_TEST_MAIN(tst_Application)
#include "tst_application.moc"
