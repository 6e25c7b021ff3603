#include "publisher/fleet/fleetfile.h"
#include "tests/publisher/commandrun.h"
#include "tests/support/applicationfolder.h"
#include "tests/support/testmain.h"

#include <QDir>

using namespace TestSupport;
using namespace Publisher;

namespace {

const QString north = "[north]\n"
                      "remote = north:/srv/halden\n"
                      "address = https://download.example/\n"
                      "connect = 192.0.2.10:443\n";

const QString remote = "remote = north:/srv/halden";
const QString address = "address = https://download.example/";
const QString connect = "connect = 192.0.2.10:443";

QString with(const QString& line, const QString& other)
{
    return QString(north).replace(line, other);
}

void addRowsOfSectionsAndKeys()
{
    QTest::newRow("nothing") << QString() << "fleet.ini:1: there is no server";
    QTest::newRow("no section") << remote << "fleet.ini:1: \"remote\" stands before";
    QTest::newRow("no name") << with("[north]", "[]") << "fleet.ini:1: a server's name";
    QTest::newRow("a name with a blank")
        << with("[north]", "[north pole]") << "fleet.ini:1: a server's name";
    QTest::newRow("a name twice") << north
            + QString(north).replace("north:/", "south:/").replace(".10", ".11")
                                  << "fleet.ini:5: there is a server \"north\" already";
    QTest::newRow("no key") << north + "remote\n"
                            << "fleet.ini:5: this is neither";
    QTest::newRow("an unknown key") << north + "user = me\n"
                                    << "fleet.ini:5: there is no key \"user\"";
    QTest::newRow("a key in other letters") << north + "Remote = north:/srv\n"
                                            << "fleet.ini:5: there is no key \"Remote\"";
    QTest::newRow("a key twice") << north + address
                                 << "fleet.ini:5: address stands in line 3 already";
    QTest::newRow("no remote") << with(remote, "") << "fleet.ini:1: server \"north\" has no rem";
    QTest::newRow("no address") << with(address, "")
                                << "fleet.ini:1: server \"north\" has no address";
    QTest::newRow("no connect") << with(connect, "")
                                << "fleet.ini:1: server \"north\" has no connect";
}

void addRowsOfRemotes()
{
    QTest::newRow("a remote that is a relative path")
        << with(remote, "remote = srv/halden") << "fleet.ini:2: \"srv/halden\" is neither";
    QTest::newRow("a remote twice")
        << north + QString(north).replace("[north]", "[south]").replace(".10", ".11")
        << "fleet.ini:6: another server has the remote north:/srv/halden";
}

void addRowsOfAddresses()
{
    QTest::newRow("an address without TLS")
        << with("https", "http") << "fleet.ini:3: \"http://download.example/\" is not where";
    QTest::newRow("an address without a slash")
        << with("example/", "example") << "fleet.ini:3: \"https://download.example\" is not";
    QTest::newRow("an address with a question")
        << with("example/", "example/?a/") << "fleet.ini:3: \"https://download.example/?a/\"";
    QTest::newRow("connect without a port")
        << with(":443", "") << "fleet.ini:4: \"192.0.2.10\" is no address with a port";
    QTest::newRow("connect to port 0") << with(":443", ":0") << "fleet.ini:4: \"192.0.2.10:0\"";
    QTest::newRow("connect by a host name")
        << with("192.0.2.10", "north.example") << "fleet.ini:4: \"north.example:443\" is no";
    QTest::newRow("connect by IPv6 without brackets")
        << with("192.0.2.10", "2001:db8::10") << "fleet.ini:4: \"2001:db8::10:443\" is no";
    QTest::newRow("connect to nothing")
        << with(connect, "connect =") << "fleet.ini:4: connect names no address";
    QTest::newRow("connect to one address twice")
        << with(connect, connect + ", 192.0.2.10:443") << "fleet.ini:4: 192.0.2.10:443 stands";
    QTest::newRow("connect to another server's address")
        << north + QString(north).replace("[north]", "[south]").replace("north:/", "south:/")
        << "fleet.ini:8: 192.0.2.10:443 stands here twice";
}

QStringList faultsOf(const QString& text)
{
    return FleetFile::parse(text, "fleet.ini").faults;
}

void makeProgram(const QString& path, const QByteArray& script)
{
    writeFile(path, "#!/bin/sh\n" + script + '\n');
    QFile::setPermissions(path, QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
}

/// Lets commands find this rclone and no other while it lives.
class OtherRclone {
public:
    explicit OtherRclone(const QByteArray& script)
    {
        const QString folder = ApplicationFolder::path("bin");
        QDir().mkpath(folder);
        if (!script.isEmpty())
            makeProgram(folder + "/rclone", script);
        qputenv("PATH", folder.toUtf8());
    }
    ~OtherRclone()
    {
        qputenv("PATH", before);
    }
    OtherRclone(const OtherRclone&) = delete;
    OtherRclone& operator=(const OtherRclone&) = delete;

private:
    QByteArray before = qgetenv("PATH");
};

CommandRun push(const QString& fleet, const QStringList& options = {})
{
    QDir().mkpath(ApplicationFolder::path("tree"));
    writeFile(ApplicationFolder::path("fleet.ini"), fleet.toUtf8());
    return CommandRun(
        QStringList{ "push", ApplicationFolder::path("tree"), "--fleet",
                     ApplicationFolder::path("fleet.ini") }
        + options);
}

} // namespace

/// The list of servers, and what is refused before anything is copied.
class tst_FleetFile : public QObject {
    Q_OBJECT

private slots:
    void init()
    {
        ApplicationFolder::clear();
    }

    void takesTheExample()
    {
        const FleetFile fleet = FleetFile::read(HALDEN_EXAMPLE);
        QCOMPARE(fleet.faults, QStringList());
        QCOMPARE(fleet.servers.size(), 3);
        const FleetServer& first = fleet.servers.first();
        QCOMPARE(first.name, "north");
        QCOMPARE(first.remote, "north:/srv/halden");
        QCOMPARE(first.address, QUrl("https://download.tarnwick.example/"));
        QCOMPARE(first.connect.size(), 2);
        QCOMPARE(first.connect.at(1).host, "2001:db8::10");
        QCOMPARE(first.connect.at(1).port, 443);
        QCOMPARE(first.connect.at(1).text(), "[2001:db8::10]:443");
    }

    void namesEachFaultWithItsLine_data()
    {
        QTest::addColumn<QString>("text");
        QTest::addColumn<QString>("fault");
        addRowsOfSectionsAndKeys();
        addRowsOfRemotes();
        addRowsOfAddresses();
    }

    void namesEachFaultWithItsLine()
    {
        QFETCH(QString, text);
        QFETCH(QString, fault);
        const QStringList faults = faultsOf(text);
        QVERIFY2(faults.size() == 1, qPrintable(faults.join('\n')));
        QVERIFY2(faults.first().startsWith(fault), qPrintable(faults.first()));
    }

    void namesAllFaultsAtOnce()
    {
        QCOMPARE(faultsOf("[a]\nremote = x\naddress = y\nconnect = z\n").size(), 3);
    }

    void refusesRemotesThatCannotBe()
    {
        const OtherRclone rclone("[ \"$6\" = version ] && echo rclone v1.60.1-DEV || echo south:");
        const CommandRun run = push(north);
        QCOMPARE(run.code, ExitCode::Usage);
        QVERIFY2(
            run.messages.contains("fleet.ini:2: rclone knows no remote \"north:\""),
            qPrintable(run.messages));
        const CommandRun same
            = push(QString(north).replace("north:/srv/halden", ApplicationFolder::path("tree")));
        QCOMPARE(same.code, ExitCode::Usage);
        QVERIFY2(same.messages.contains("fleet.ini:2: "), qPrintable(same.messages));
        QVERIFY2(same.messages.contains("the folder that is pushed"), qPrintable(same.messages));
    }

    void wantsAnRcloneThatIsNewEnough_data()
    {
        QTest::addColumn<QByteArray>("script");
        QTest::addColumn<QString>("sentence");
        QTest::newRow("none") << QByteArray()
                              << "cannot be started: install Debian's package rclone";
        QTest::newRow("old") << QByteArray("echo rclone v1.53.3-DEV")
                             << "rclone is 1.53.3, and 1.60 or later is needed: install Debian's";
        QTest::newRow("something else") << QByteArray("echo hello") << "rclone is of no version";
    }

    void wantsAnRcloneThatIsNewEnough()
    {
        QFETCH(QByteArray, script);
        QFETCH(QString, sentence);
        const OtherRclone rclone(script);
        const CommandRun run = push(north);
        QCOMPARE(run.code, ExitCode::InputOutput);
        QVERIFY2(run.messages.contains(sentence), qPrintable(run.messages));
        QCOMPARE(run.messages.count('\n'), 1);
    }

    void refusesCommandLinesWithoutSense_data()
    {
        QTest::addColumn<QStringList>("options");
        QTest::addColumn<QString>("sentence");
        QTest::newRow("unknown server")
            << QStringList{ "--without", "west" } << "--without names \"west\"";
        QTest::newRow("no server left")
            << QStringList{ "--without", "north" } << "no server is left";
        QTest::newRow("days") << QStringList{ "--prune-after", "-1" }
                              << "--prune-after is a number";
        QTest::newRow("pause") << QStringList{ "--pause", "x" } << "--pause is a number";
        QTest::newRow("finding") << QStringList{ "--accept", "x" } << "there is no finding";
    }

    void refusesCommandLinesWithoutSense()
    {
        QFETCH(QStringList, options);
        QFETCH(QString, sentence);
        const CommandRun run = push(north, options);
        QCOMPARE(run.code, ExitCode::Usage);
        QVERIFY2(run.messages.contains(sentence), qPrintable(run.messages));
    }
};

HALDEN_TEST_MAIN(tst_FleetFile)
#include "tst_fleetfile.moc"
