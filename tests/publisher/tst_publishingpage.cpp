#include "app/constants.h"
#include "publisher/common/finding.h"
#include "tests/publisher/commandrun.h"
#include "tests/support/applicationfolder.h"
#include "tests/support/httpsserver.h"
#include "tests/support/testmain.h"

#include <QDir>
#include <QFileInfo>
#include <QProcess>
#include <QRegularExpression>

using namespace TestSupport;
using namespace Publisher;

namespace {

const QString tree = "/srv/halden";

QString page()
{
    return QString::fromUtf8(readFile(HALDEN_PAGE));
}

/// The page's commands in their order, from its code blocks and its sentences:
/// every one that names a folder or an address.
QStringList commands()
{
    static const QRegularExpression command(
        "^ *(halden-publish .*|echo .*)$|`(halden-publish [^`]+)`",
        QRegularExpression::MultilineOption);
    static const QRegularExpression complete("/srv/halden|/tmp/trial|https://");
    const QString text = page().replace("\\\n", " ");
    QStringList found;
    for (auto match = command.globalMatch(text); match.hasNext();) {
        const QRegularExpressionMatch next = match.next();
        const QString line = (next.captured(1) + next.captured(2)).simplified();
        if (line.contains(complete))
            found.append(line);
    }
    return found;
}

/// A server as the page sets it up.
HttpAnswer serve(const HttpRequest& request)
{
    QString path = QUrl::fromPercentEncoding(request.path);
    if (path == "/alert")
        path = "/launcher.info";
    const QFileInfo file(tree + path);
    if (!file.isFile())
        return HttpAnswer::status(404);
    const QByteArray body = readFile(file.filePath());
    if (path.startsWith("/wow-client-patch/"))
        return HttpAnswer::ok(body, { { "Last-Modified", httpDate(file.lastModified().toUTC()) } });
    return HttpsServer::servingFile(body, file.lastModified().toUTC())(request);
}

void layOut(const QString& folder, const QByteArray& content)
{
    for (const char* path : { "patched_wow.exe", "Data/patch-h.mpq", "Data/deDE/patch-deDE-h.mpq",
                              "Interface/AddOns/Halden Karten/karte.blp" })
        writeFile(folder + '/' + path, content + path);
}

/// A line of the page, as an admin types it.
void run(const QString& line)
{
    const QStringList words = QProcess::splitCommand(line);
    if (words.first() == "echo") {
        QDir().mkpath(tree);
        QCOMPARE(QProcess::execute("/bin/sh", { "-c", line }), 0);
        return;
    }
    const CommandRun done(words.mid(1));
    QVERIFY2(done.code == ExitCode::Fine, qPrintable(line + '\n' + done.text + done.messages));
}

} // namespace

/// An admin who does what the page says gets what it says.
class tst_PublishingPage : public QObject {
    Q_OBJECT

private slots:
    void initTestCase()
    {
        trustedCertificate(); // and with it its authority
        ApplicationFolder::clear();
        const QString here = ApplicationFolder::path("admin");
        layOut(here + "/patch", "new ");
        layOut(here + "/patch-of-last-week", "old ");
        for (const char* name : { "Halden-Launcher.exe", "Halden-Launcher-Updater.exe" })
            writeFile(
                here + "/build/package-windows/Halden Launcher/" + name, readFile("/usr/bin/true"));
        QVERIFY(QDir::setCurrent(here));
    }

    void everyCommandWorks()
    {
        const QDateTime now = QDateTime::currentDateTimeUtc();
        HttpsServer server(
            trustedAuthority().issue(communityHosts(), { now.addDays(-1), now.addDays(60) }));
        server.listen();
        server.answerAnythingElse(serve);
        const QStringList walk = commands();
        for (const char* name : { " build ", " build-launcher ", " check ", " probe " })
            QVERIFY2(!walk.filter(name).isEmpty(), name);
        for (QString line : walk) {
            run(line.replace("https://download.tarnwick.example/", downloadBaseUrl));
            if (QTest::currentTestFailed())
                return;
        }
    }

    /// What stands behind "--accept" is found on the page.
    void everyFindingIsListed()
    {
        const QString text = page();
        const QStringList identifiers = Findings::identifiers();
        for (const QString& identifier : identifiers)
            QVERIFY2(text.contains('`' + identifier + '`'), qPrintable(identifier));
    }
};

HALDEN_TEST_MAIN(tst_PublishingPage)
#include "tst_publishingpage.moc"
