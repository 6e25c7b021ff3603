#include "app/constants.h"
#include "tests/publisher/commandrun.h"
#include "tests/support/applicationfolder.h"
#include "tests/support/httpsserver.h"
#include "tests/support/testmain.h"

#include <QDir>
#include <QEventLoop>
#include <QFileInfo>
#include <QProcess>
#include <QTcpSocket>
#include <QUrl>

using namespace TestSupport;
using namespace Publisher;

namespace {

constexpr quint16 portOfMail = 2525;

QString metricsFile()
{
    return ApplicationFolder::path("halden.prom");
}

QString host()
{
    return QUrl(downloadBaseUrl).host();
}

QString address(const HttpsServer& server)
{
    return "https://" + host() + ':' + QString::number(server.port());
}

/// A server with nothing but an empty manifest: both launcher files are missing.
void furnish(HttpsServer& server)
{
    server.listen(0);
    server.answer("/patch.ini", HttpAnswer::ok("numberOfFiles=0\n"));
    server.answer("/alert", HttpAnswer::ok("<html><p>Willkommen"));
}

QStringList optionsFor(const HttpsServer& server)
{
    return { "--alert", address(server) + "/alert", address(server) };
}

/// The exit code, as a shell tells it. The test's own servers go on meanwhile.
int run(
    const QString& program, const QStringList& arguments, const QProcessEnvironment& environment)
{
    QProcess process;
    process.setProcessEnvironment(environment);
    process.setProcessChannelMode(QProcess::ForwardedErrorChannel);
    process.setStandardInputFile(QProcess::nullDevice());
    QEventLoop loop;
    QObject::connect(&process, &QProcess::finished, &loop, &QEventLoop::quit);
    process.start(program, arguments);
    if (!process.waitForStarted())
        qFatal("%s does not start", qPrintable(program));
    if (process.state() != QProcess::NotRunning)
        loop.exec();
    return process.exitCode();
}

} // namespace

/// What watches the servers from a second machine: figures, and one call for each
/// change.
class tst_Watch : public QObject {
    Q_OBJECT

private slots:
    void initTestCase()
    {
        trustedAuthority();
        trustedCertificate();
    }

    void init()
    {
        ApplicationFolder::clear();
        QVERIFY(QDir().mkpath(state()));
        environment = QProcessEnvironment::systemEnvironment();
        environment.insert(
            "PATH", QFileInfo(HALDEN_PUBLISH).path() + ':' + environment.value("PATH"));
        environment.insert("STATE_DIRECTORY", state());
        // Each call leaves a file with its subject and what it is told.
        environment.insert(
            "HALDEN_WATCH_COMMAND",
            "f() { n=$(ls '" + calls() + "' | wc -l); { echo \"$1\"; cat; } >'" + calls()
                + "'/$n; }; f");
        QVERIFY(QDir().mkpath(calls()));
    }

    void metrics()
    {
        HttpsServer server;
        furnish(server);
        const CommandRun probed(
            QStringList{ "probe", "--json", "--metrics", metricsFile() } + optionsFor(server));
        QCOMPARE(probed.code, ExitCode::Findings);
        const QByteArray text = readFile(metricsFile());
        const QByteArray whose = "{server=\"" + host().toUtf8() + "\",depth=\"glance\"";
        QVERIFY2(text.contains("halden_probe_complete" + whose + "} 1\n"), text);
        QVERIFY2(text.contains("halden_probe_files" + whose + "} 3\n"), text);
        QVERIFY2(
            text.contains("halden_probe_findings" + whose + ",id=\"launcher-file-missing\"} 2\n"),
            text);
        const QByteArray seconds
            = QByteArray::number(probed.json["certificateDays"].toInt() * 86400);
        QVERIFY2(
            text.contains("halden_probe_certificate_seconds" + whose + "} " + seconds + '\n'),
            text);
        QVERIFY(QFileInfo(metricsFile()).permission(QFile::ReadOther));
        QCOMPARE(
            run("sh", { "-c", "promtool check metrics <'" + metricsFile() + '\'' }, environment),
            0);
    }

    void metricsOfWhatIsAccepted()
    {
        HttpsServer server;
        furnish(server);
        const CommandRun probed(
            QStringList{ "probe", "--deep", "--accept", "launcher-file-missing", "--metrics",
                         metricsFile() }
            + optionsFor(server));
        QCOMPARE(probed.code, ExitCode::Fine);
        const QByteArray text = readFile(metricsFile());
        QVERIFY2(text.contains("depth=\"deep\",id=\"launcher-file-missing\"} 0\n"), text);
    }

    void metricsWhenNobodyIsThere()
    {
        const CommandRun probed({ "probe", "--metrics", metricsFile(), "https://localhost:1/" });
        QCOMPARE(probed.code, ExitCode::InputOutput);
        const QByteArray text = readFile(metricsFile());
        QVERIFY2(
            text.contains("halden_probe_complete{server=\"localhost\",depth=\"glance\"} 0"), text);
        QVERIFY2(text.contains("id=\"server-unreachable\"} 1\n"), text);
    }

    void onlyChangesAreTold()
    {
        HttpsServer server;
        furnish(server);
        QCOMPARE(watch(server), 0);
        QCOMPARE(told().size(), 1);
        QVERIFY2(
            told().constFirst().startsWith("Halden: 2 new, 0 gone, 2 in all\n"),
            told().constFirst());
        QVERIFY2(
            told().constFirst().contains("new:  launcher-file-missing Halden-Launcher.exe\n"),
            told().constFirst());
        QVERIFY2(told().constFirst().contains("build-launcher"), "the remedy is told, too");
        QCOMPARE(watch(server), 0);
        QCOMPARE(told().size(), 1);
        server.answer("/patch.ini", HttpAnswer::status(404));
        QCOMPARE(watch(server), 0);
        QCOMPARE(told().size(), 2);
        QVERIFY2(
            told().constLast().startsWith("Halden: 1 new, 0 gone, 3 in all\n"), told().constLast());
        server.answer("/patch.ini", HttpAnswer::ok("numberOfFiles=0\n"));
        QCOMPARE(watch(server), 0);
        QVERIFY2(
            told().constLast().contains("gone: manifest-missing patch.ini\n"), told().constLast());
    }

    /// What is well from the beginning is nothing to tell.
    void nothingIsTold()
    {
        HttpsServer server;
        furnish(server);
        QCOMPARE(watch(server, "glance", "--accept launcher-file-missing "), 0);
        QCOMPARE(told().size(), 0);
        QVERIFY(QFile::exists(state() + "/glance.prom"));
    }

    void bothDepthsForThemselves()
    {
        HttpsServer server;
        furnish(server);
        QCOMPARE(watch(server), 0);
        QCOMPARE(watch(server, "deep"), 0);
        QCOMPARE(told().size(), 2);
        QVERIFY(QFile::exists(state() + "/deep.prom"));
    }

    void aFailureIsToldOnce()
    {
        HttpsServer server;
        furnish(server);
        const QString options = "--record /nowhere --record-key /nowhere ";
        QCOMPARE(watch(server, "glance", options), 0);
        QCOMPARE(watch(server, "glance", options), 0);
        QCOMPARE(told().size(), 1);
        QVERIFY2(
            told().constFirst().contains("new:  error there is no record"), told().constFirst());
    }

    void whoWasNotReachedIsToldLater()
    {
        HttpsServer server;
        furnish(server);
        const QString command = environment.value("HALDEN_WATCH_COMMAND");
        environment.insert("HALDEN_WATCH_COMMAND", "false");
        QVERIFY(watch(server) != 0);
        environment.insert("HALDEN_WATCH_COMMAND", command);
        QCOMPARE(watch(server), 0);
        QCOMPARE(told().size(), 1);
    }

    void mail()
    {
        const QString box = ApplicationFolder::path("box");
        QProcess smtp;
        smtp.start(
            "python3",
            { "-m", "aiosmtpd", "-n", "-l", "127.0.0.1:" + QString::number(portOfMail), "-c",
              "aiosmtpd.handlers.Mailbox", box });
        QVERIFY(smtp.waitForStarted());
        const auto answers = [] {
            QTcpSocket socket;
            socket.connectToHost("127.0.0.1", portOfMail);
            return socket.waitForConnected(1000);
        };
        QTRY_VERIFY(answers());
        environment.remove("HALDEN_WATCH_COMMAND");
        environment.insert("HALDEN_WATCH_SMTP", QString("smtp://127.0.0.1:%1").arg(portOfMail));
        environment.insert("HALDEN_WATCH_MAIL_TO", "admin@tarnwick.example");
        HttpsServer server;
        furnish(server);
        QCOMPARE(watch(server), 0);
        smtp.kill();
        QVERIFY(smtp.waitForFinished());
        const QMap<QString, QByteArray> mails = filesBelow(box + "/new");
        QCOMPARE(mails.size(), 1);
        const QByteArray& mail = mails.first();
        QVERIFY2(mail.contains("\nSubject: Halden: 2 new, 0 gone, 2 in all"), mail);
        QVERIFY2(mail.contains("To: admin@tarnwick.example"), mail);
        QVERIFY2(mail.contains("new:  launcher-file-missing Halden-Launcher.exe"), mail);
    }

private:
    static QString state()
    {
        return ApplicationFolder::path("state");
    }

    static QString calls()
    {
        return ApplicationFolder::path("calls");
    }

    static QList<QByteArray> told()
    {
        return filesBelow(calls()).values();
    }

    int
    watch(const HttpsServer& server, const QString& depth = "glance", const QString& options = {})
    {
        environment.insert("HALDEN_WATCH_OPTIONS", options + optionsFor(server).join(' '));
        return run(HALDEN_WATCH, { depth }, environment);
    }

    QProcessEnvironment environment;
};

HALDEN_TEST_MAIN(tst_Watch)
#include "tst_watch.moc"
