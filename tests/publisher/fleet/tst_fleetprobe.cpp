#include "tests/publisher/buildfixture.h"
#include "tests/publisher/fleet/pushfixture.h"
#include "tests/support/applicationfolder.h"
#include "tests/support/certificateauthority.h"
#include "tests/support/testmain.h"

#include <QFile>
#include <QJsonArray>

using namespace TestSupport;
using namespace PushFixture;
using Publisher::ExitCode;

namespace {

CommandRun probe(const Fleet& fleet, const QStringList& options = {})
{
    return CommandRun(
        QStringList{ "probe", "--fleet", fleet.file(), "--days", "0", "--timeout", "5" } + options);
}

bool says(const CommandRun& run, const QString& pattern)
{
    return run.text.contains(QRegularExpression(pattern));
}

} // namespace

/// `probe` of several servers behind one name.
class tst_FleetProbe : public QObject {
    Q_OBJECT

private slots:
    void initTestCase()
    {
        trustedCertificate();
        layOut();
    }

    void init()
    {
        fleet = std::make_unique<Fleet>();
        fleet->start();
        const CommandRun pushed = push(*fleet);
        QVERIFY2(pushed.code == ExitCode::Fine, qPrintable(pushed.text + pushed.messages));
    }

    void findsNothingWhereAllAreAlike()
    {
        const CommandRun run = probe(*fleet, { "--deep" });
        QVERIFY2(run.text.contains("no findings\n"), qPrintable(run.text));
        QVERIFY2(!run.text.contains("differ"), qPrintable(run.text));
        QCOMPARE(run.code, ExitCode::Fine);
        const QJsonArray servers = probe(*fleet, { "--json" }).json.value("servers").toArray();
        QCOMPARE(servers.size(), Fleet::hasIpv6() ? 4 : 3);
        const QJsonValue last = servers.last();
        QCOMPARE(last["server"].toString(), "cedar");
        QCOMPARE(last["address"].toString(), "127.0.0.13:443");
        QVERIFY(last["certificateDays"].toInt(-1) >= 0);
        const QJsonArray roots = last["certificateRoots"].toArray();
        QCOMPARE(roots.size(), 1);
        QVERIFY2(
            run.text.contains(
                "cedar (127.0.0.13:443): its chain ends in the root "
                + roots.first()["name"].toString() + ", which there is since "
                + roots.first()["since"].toString()),
            qPrintable(run.text));
        QVERIFY(last["tls"].toString().startsWith("TLSv1.3 "));
    }

    void tellsOtherBytes()
    {
        QFile manifest(Fleet::path("birch", "patch.ini"));
        QVERIFY(manifest.open(QIODevice::Append));
        manifest.write("; by hand\n");
        manifest.close();
        const CommandRun run = probe(*fleet);
        QCOMPARE(run.code, ExitCode::Findings);
        QVERIFY2(
            says(
                run,
                "patch\\.ini: Players get .* MD5 [0-9a-f]{32} from birch \\(127\\.0\\.0\\.12:443\\)"
                ".*\\[servers-differ-in-bytes\\]"),
            qPrintable(run.text));
    }

    void tellsOtherDates()
    {
        BuildFixture::setDate(
            Fleet::path("cedar", "Halden-Launcher.exe"),
            QDateTime::currentDateTimeUtc().addDays(-1));
        BuildFixture::setDate(
            Fleet::path("cedar", BuildFixture::placeOf("Data/same.mpq")),
            QDateTime::currentDateTimeUtc().addDays(-1));
        const CommandRun run = probe(*fleet);
        QCOMPARE(run.code, ExitCode::Findings);
        QVERIFY2(
            says(
                run,
                "Halden-Launcher\\.exe: .* from cedar \\(127\\.0\\.0\\.13:443\\)"
                ".*\\[servers-differ-in-dates\\]"),
            qPrintable(run.text));
        // Nobody asks for patch files by date.
        QCOMPARE(run.text.count("[servers-differ-in-dates]"), 1);
    }

    void tellsAMissingFile()
    {
        QVERIFY(QFile::remove(Fleet::path("cedar", BuildFixture::placeOf("Data/same.mpq"))));
        const CommandRun run = probe(*fleet);
        QCOMPARE(run.code, ExitCode::Findings);
        QVERIFY2(
            says(
                run,
                "cedar \\(127\\.0\\.0\\.13:443\\): patch\\.ini, "
                "entry \\d+: .*\\[file-missing\\]"),
            qPrintable(run.text));
        QCOMPARE(run.text.count("[file-missing]"), 1);
    }

    void tellsAServerThatIsAway()
    {
        fleet->stopWeb("birch");
        const CommandRun run = probe(*fleet);
        QCOMPARE(run.code, ExitCode::InputOutput);
        QVERIFY2(run.text.contains("birch (127.0.0.12:443): not reached"), qPrintable(run.text));
        QVERIFY2(run.text.contains("[server-unreachable]"), qPrintable(run.text));
        QVERIFY2(run.text.contains("cedar (127.0.0.13:443): 5 files"), qPrintable(run.text));
    }

    void tellsOtherCertificatesAndTls()
    {
        fleet->stopWeb("alder");
        const QDateTime now = QDateTime::currentDateTimeUtc();
        // An hour more, so that the days are full ones.
        fleet->setCertificate(
            "alder",
            trustedAuthority().issue(
                communityHosts(), { now.addDays(-1), now.addDays(40).addSecs(3600) }));
        fleet->startWeb("alder");
        fleet->stopWeb("cedar");
        fleet->setRule("cedar", "ssl_protocols TLSv1.2 TLSv1.3;", "ssl_protocols TLSv1.2;");
        fleet->startWeb("cedar");
        const CommandRun run = probe(*fleet);
        QVERIFY2(
            run.text.contains("The servers differ in their certificates."), qPrintable(run.text));
        QVERIFY2(run.text.contains("The servers differ in their TLS."), qPrintable(run.text));
        QVERIFY2(says(run, "alder [^\n]* for 40 more days, TLSv1\\.3 "), qPrintable(run.text));
        QVERIFY2(says(run, "cedar [^\n]* more days, TLSv1\\.2 "), qPrintable(run.text));
    }

    void refusesAnAddressBesides()
    {
        const CommandRun run = probe(*fleet, { "https://download.example/" });
        QCOMPARE(run.code, ExitCode::Usage);
    }

private:
    std::unique_ptr<Fleet> fleet;
};

HALDEN_TEST_MAIN(tst_FleetProbe)
#include "tst_fleetprobe.moc"
