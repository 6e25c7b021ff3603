#include "publisher/common/treelock.h"
#include "tests/publisher/buildfixture.h"
#include "tests/publisher/fleet/pushfixture.h"
#include "tests/support/applicationfolder.h"
#include "tests/support/certificateauthority.h"
#include "tests/support/smalldisk.h"
#include "tests/support/testmain.h"

#include <QFile>
#include <QTcpServer>

#include <functional>

using namespace TestSupport;
using namespace PushFixture;
using BuildFixture::server;
using Publisher::ExitCode;

namespace {

void change(const QString& program, const QStringList& arguments)
{
    if (QProcess::execute(program, arguments) != 0)
        qFatal("%s %s failed", qPrintable(program), qPrintable(arguments.join(' ')));
}

using Fault = std::function<void(Fleet&)>;

} // namespace
Q_DECLARE_METATYPE(Fault)

/// Pushes to servers with which something is wrong.
class tst_PushFaults : public QObject {
    Q_OBJECT

private slots:
    void initTestCase()
    {
        trustedCertificate();
    }

    void init()
    {
        fleet = std::make_unique<Fleet>();
        layOut();
        fleet->start();
        const CommandRun run = push(*fleet);
        QVERIFY2(run.code == ExitCode::Fine, qPrintable(all(run)));
        moveOn();
    }

    void cleanup()
    {
        silent.close();
        fleet.reset();
    }

    void stopsBeforeTheSwitchAndHeals_data()
    {
        QTest::addColumn<Fault>("breakIt");
        QTest::addColumn<Fault>("mendIt");
        QTest::addColumn<QString>("sentence");
        QTest::newRow("web server down")
            << Fault([](Fleet& all) { all.stopWeb("birch"); })
            << Fault([](Fleet& all) { all.startWeb("birch"); }) << "127.0.0.12:443 cannot be asked";
        QTest::newRow("web server silent") << Fault([this](Fleet& all) {
            all.stopWeb("birch");
            QVERIFY(silent.listen(QHostAddress("127.0.0.12"), 443));
        }) << Fault([this](Fleet& all) {
            silent.close();
            all.startWeb("birch");
        }) << "127.0.0.12:443 has said nothing for 5 seconds";
        QTest::newRow("storage down") << Fault([](Fleet& all) { all.stopStorage("birch"); })
                                      << Fault([](Fleet& all) { all.startStorage("birch"); })
                                      << "its files cannot be listed: ";
        QTest::newRow("read-only") << Fault([](Fleet&) {
            change("chmod", { "-R", "a-w", Fleet::path("birch", "wow-client-patch") });
        }) << Fault([](Fleet&) {
            change("chmod", { "-R", "u+w", Fleet::path("birch", "wow-client-patch") });
        }) << "patch files cannot be copied to it: ";
        QTest::newRow("clock an hour ahead") << Fault([](Fleet& all) {
            all.stopWeb("birch");
            all.startWeb("birch", anHourAhead(HALDEN_FAKETIME));
        }) << Fault([](Fleet& all) {
            all.stopWeb("birch");
            all.startWeb("birch");
        }) << "its clock says ";
        QTest::newRow("certificate of nobody") << Fault([](Fleet& all) {
            all.stopWeb("birch");
            static const CertificateAuthority nobody;
            all.setCertificate("birch", nobody.issue(communityHosts()));
            all.startWeb("birch");
        }) << Fault([](Fleet& all) {
            all.stopWeb("birch");
            all.setCertificate("birch", trustedCertificate());
            all.startWeb("birch");
        }) << "127.0.0.12:443 shows a certificate that launchers do not trust";
    }

    void stopsBeforeTheSwitchAndHeals()
    {
        QFETCH(Fault, breakIt);
        QFETCH(Fault, mendIt);
        QFETCH(QString, sentence);
        const QByteArray old = readFile(Fleet::path("alder", "patch.ini"));
        breakIt(*fleet);
        const CommandRun stopped = push(*fleet, { "--timeout", "5" });
        QCOMPARE(stopped.code, ExitCode::InputOutput);
        QVERIFY2(
            stopped.messages.contains("server \"birch\": " + sentence), qPrintable(all(stopped)));
        QCOMPARE(stopped.messages.count('\n'), 1);
        QVERIFY2(stopped.text.contains("Not switched"), qPrintable(stopped.text));
        for (const QString& name : fleet->names())
            QCOMPARE(readFile(Fleet::path(name, "patch.ini")), old);
        const CommandRun partly = push(*fleet, { "--without", "birch" });
        QVERIFY2(partly.code == ExitCode::Fine, qPrintable(all(partly)));
        QCOMPARE(differenceFromTree("alder"), QString());
        QCOMPARE(differenceFromTree("cedar"), QString());
        QCOMPARE(readFile(Fleet::path("birch", "patch.ini")), old);
        mendIt(*fleet);
        QCOMPARE(brokenOn(*fleet, "birch"), QStringList());
        const CommandRun healed = push(*fleet);
        QVERIFY2(healed.code == ExitCode::Fine, qPrintable(all(healed)));
        for (const QString& name : fleet->names())
            QCOMPARE(differenceFromTree(name), QString());
    }

    void waitsForASlowServer()
    {
        const QByteArray old = md5(readFile(Fleet::path("alder", "patch.ini"))).toLatin1();
        fleet->stopStorage("birch");
        fleet->startStorage("birch", { "--bwlimit", "60k" });
        Watcher watcher(*fleet, "patch.ini");
        const CommandRun run = push(*fleet);
        watcher.stop();
        QVERIFY2(run.code == ExitCode::Fine, qPrintable(all(run)));
        QCOMPARE(watcher.broken(), QStringList());
        for (const QString& name : fleet->names())
            QCOMPARE(differenceFromTree(name), QString());
        QDateTime lastOfOld;
        for (const Sighting& sighting : watcher.sightings()) {
            if (sighting.md5 == old)
                lastOfOld = std::max(lastOfOld, sighting.asked);
        }
        QVERIFY(lastOfOld.isValid());
        QVERIFY(lastOfOld.toSecsSinceEpoch() < dateOf("alder", "patch.ini").toSecsSinceEpoch());
    }

    void stopsAtAFullDisk()
    {
        HALDEN_NEEDS_SMALL_DISK();
        fleet->stopStorage("birch");
        fleet->stopWeb("birch");
        fleet->setFolder("birch", "/small/birch");
        fleet->start();
        BuildFixture::put("Data/large.mpq", QByteArray(1100 << 10, 'l'));
        publish();
        const CommandRun stopped = push(*fleet);
        QCOMPARE(stopped.code, ExitCode::InputOutput);
        QVERIFY2(
            stopped.messages.contains("server \"birch\": patch files cannot be copied to it"),
            qPrintable(all(stopped)));
        for (const QString& name : fleet->names())
            QVERIFY(!QFile::exists(Fleet::path(name, "patch.ini")));
    }

    void refusesTheAddressOfAnotherServer()
    {
        QByteArray text = fleet->text().toUtf8();
        text.replace("127.0.0.12:443", "x").replace("127.0.0.13:443", "127.0.0.12:443");
        writeFile(fleet->file(), text.replace("= x", "= 127.0.0.13:443"));
        const QMap<QString, QByteArray> before = filesOf("birch");
        const CommandRun run = push(*fleet);
        QCOMPARE(run.code, ExitCode::InputOutput);
        QVERIFY2(
            run.messages.contains("server \"birch\": 127.0.0.13:443 is the address of server "
                                  "\"cedar\""),
            qPrintable(all(run)));
        const QStringList after = filesOf("birch").keys();
        for (const QString& path : after)
            QVERIFY2(before.contains(path) || path.contains("/halden-push-"), qPrintable(path));
    }

    void replacesWhatIsWrongAtItsAddress()
    {
        const QString added = BuildFixture::placeOf("Data/Neu # 1%/added ä.mpq");
        const QString changed = BuildFixture::placeOf("Data/changed.mpq");
        const QString same = BuildFixture::placeOf("Data/same.mpq");
        writeFile(Fleet::path("birch", changed), QByteArray(100 << 10, 'n'));
        writeFile(Fleet::path("cedar", added), "wrong");
        QVERIFY(QFile::remove(Fleet::path("alder", same)));
        // Named by the manifest that is there, and cut short since.
        writeFile(Fleet::path("birch", same), "sam");
        for (const char* name : { "alder", "birch" })
            QCOMPARE(brokenOn(*fleet, name).size(), 1);
        const CommandRun run = push(*fleet);
        QVERIFY2(run.code == ExitCode::Fine, qPrintable(all(run)));
        for (const QString& name : fleet->names())
            QCOMPARE(differenceFromTree(name), QString());
    }

    void stopsAtWhatCheckFinds()
    {
        const QByteArray old = readFile(Fleet::path("alder", "patch.ini"));
        writeFile(server(BuildFixture::placeOf("Data/changed.mpq")), "else");
        const CommandRun run = push(*fleet);
        QCOMPARE(run.code, ExitCode::Findings);
        QVERIFY2(run.text.contains("[hash-mismatch]"), qPrintable(run.text));
        for (const QString& name : fleet->names())
            QCOMPARE(readFile(Fleet::path(name, "patch.ini")), old);
    }

    void leavesATreeToWhoIsAtWorkInIt()
    {
        const Publisher::TreeLock lock(server());
        QVERIFY(!lock.problem());
        const CommandRun run = push(*fleet);
        QCOMPARE(run.code, ExitCode::InputOutput);
        QVERIFY2(
            run.messages.contains("another halden-publish is at work"), qPrintable(run.messages));
    }

private:
    std::unique_ptr<Fleet> fleet;
    QTcpServer silent;
};

HALDEN_TEST_MAIN(tst_PushFaults)
#include "tst_pushfaults.moc"
