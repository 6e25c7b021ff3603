#include "app/constants.h"
#include "tests/publisher/commandrun.h"
#include "tests/support/applicationfolder.h"
#include "tests/support/testmain.h"
#include "tests/world/community.h"

#include <QFile>
#include <QProcess>

using namespace TestSupport;
using namespace Publisher;

namespace {

const QString configuration = "/run/halden/nginx.conf";
const QString altered = "/run/halden/altered.conf";
const QString site = "/run/halden/site.conf";
const QString alteredSite = "/run/halden/altered-site.conf";

CommandRun probe(const QStringList& options)
{
    // The throw-away certificate is valid for two days.
    return CommandRun(
        QStringList{ "probe", "--days", "0" } + options + QStringList{ downloadBaseUrl });
}

/// Starts the server with the administrators' configuration, one line of it
/// replaced.
void startWith(const QByteArray& line, const QByteArray& replacement)
{
    QByteArray rules = readFile(site);
    if (!rules.contains(line))
        qFatal("%s has no line \"%s\"", qPrintable(site), line.constData());
    writeFile(alteredSite, rules.replace(line, replacement));
    writeFile(altered, readFile(configuration).replace(site.toUtf8(), alteredSite.toUtf8()));
    if (QProcess::execute("/usr/sbin/nginx", { "-c", altered }) != 0)
        qFatal("nginx does not start");
}

} // namespace

/// `probe` against nginx: the administrators' configuration passes, and what
/// nginx does by default is found.
class tst_ProbeNginx : public QObject {
    Q_OBJECT

private slots:
    void initTestCase()
    {
        community.publish();
        community.start();
    }

    void administratorsConfiguration_data()
    {
        QTest::addColumn<QStringList>("options");
        QTest::newRow("live") << QStringList{};
        QTest::newRow("live and test") << QStringList{ "--test" };
        QTest::newRow("deep, with sizes")
            << QStringList{ "--test", "--deep", "--tree", "/srv/halden" };
    }

    void administratorsConfiguration()
    {
        QFETCH(QStringList, options);
        const CommandRun probed = probe(options);
        QVERIFY2(probed.text.contains("no findings\n"), qPrintable(probed.text));
        QCOMPARE(probed.code, ExitCode::Fine);
    }

    void otherConfigurations_data()
    {
        QTest::addColumn<QByteArray>("line");
        QTest::addColumn<QByteArray>("replacement");
        QTest::addColumn<QString>("finding");
        const QByteArray before = "if_modified_since before;";
        QTest::newRow("nginx's default, exact dates")
            << before << QByteArray() << QString("later-date-answered-in-full");
        QTest::newRow("no dates") << before << QByteArray("if_modified_since off;")
                                  << QString("exact-date-answered-in-full");
        const QByteArray off = "if_modified_since off;";
        QTest::newRow("dates for patch files") << "location /wow-client-patch/ {\n        " + off
                                               << "location /wow-client-patch/ {\n        " + before
                                               << QString("patch-file-not-modified");
        const QByteArray manifests = "location = /patch.ini {\n        ";
        QTest::newRow("dates for manifests")
            << manifests + off << manifests + before << QString("manifest-not-modified");
        QTest::newRow("compression")
            << QByteArray("gzip off;") << QByteArray("gzip on; gzip_types *; gzip_min_length 0;")
            << QString("content-encoded");
        QTest::newRow("TLS 1.3 only")
            << QByteArray("ssl_protocols TLSv1.2 TLSv1.3;") << QByteArray("ssl_protocols TLSv1.3;")
            << QString("tls-1.2-missing");
        QTest::newRow("a page for whatever is missing")
            << QByteArray("autoindex off;") << QByteArray("error_page 404 =200 /patch.ini;")
            << QString("missing-file-answered");
    }

    void otherConfigurations()
    {
        QFETCH(QByteArray, line);
        QFETCH(QByteArray, replacement);
        QFETCH(QString, finding);
        community.stop();
        startWith(line, replacement);
        const CommandRun probed = probe({});
        QVERIFY2(probed.text.contains('[' + finding + ']'), qPrintable(probed.text));
        QCOMPARE(probed.code, ExitCode::Findings);
    }

private:
    const Community community{};
};

HALDEN_TEST_MAIN(tst_ProbeNginx)
#include "tst_probenginx.moc"
