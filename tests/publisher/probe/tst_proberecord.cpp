#include "app/constants.h"
#include "tests/publisher/buildfixture.h"
#include "tests/publisher/commandrun.h"
#include "tests/support/applicationfolder.h"
#include "tests/support/httpsserver.h"
#include "tests/support/testmain.h"

#include <QDir>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonObject>
#include <QProcess>
#include <QTemporaryDir>
#include <QUrl>

using namespace TestSupport;
using namespace BuildFixture;
using namespace Publisher;

namespace {

const QString launcher = "Halden-Launcher.exe";
const QString updater = "Halden-Launcher-Updater.exe";

/// What is published before each test.
struct Published {
    /// The folder as it is, and as it was at the publication before.
    QString now;
    QString before;
    /// As somebody else has published into it: a file more, a file less.
    QString more;
    QString less;
    QString record;
    QString key;
};

QString host()
{
    return QUrl(downloadBaseUrl).host();
}

QByteArray fromHex(const char* digits)
{
    return QByteArray::fromHex(digits);
}

/// Two contents of one MD5.
const QByteArray oneOfTwins
    = fromHex("d131dd02c5e6eec4693d9a0698aff95c2fcab58712467eab4004583eb8fb7f89"
              "55ad340609f4b30283e488832571415a085125e8f7cdc99fd91dbdf280373c5b"
              "d8823e3156348f5bae6dacd436c919c6dd53e2b487da03fd02396306d248cda0"
              "e99f33420f577ee8ce54b67080a80d1ec69821bcb6a8839396f9652b6ff72a70");
const QByteArray otherTwin
    = fromHex("d131dd02c5e6eec4693d9a0698aff95c2fcab50712467eab4004583eb8fb7f89"
              "55ad340609f4b30283e4888325f1415a085125e8f7cdc99fd91dbd7280373c5b"
              "d8823e3156348f5bae6dacd436c919c6dd53e23487da03fd02396306d248cda0"
              "e99f33420f577ee8ce54b67080280d1ec69821bcb6a8839396f965ab6ff72a70");

void mustSucceed(const QString& program, const QStringList& arguments)
{
    QProcess process;
    process.setStandardInputFile(QProcess::nullDevice());
    process.start(program, arguments);
    if (!process.waitForFinished(-1) || process.exitCode() != 0)
        qFatal("%s: %s", qPrintable(program), process.readAllStandardError().constData());
}

void mustPublish(const QStringList& arguments)
{
    const CommandRun run(arguments);
    if (run.code != ExitCode::Fine)
        qFatal("%s %s", qPrintable(run.messages), qPrintable(run.text));
}

/// What is there already gets dates of yesterday, so that no publication waits.
void age(const QString& folder)
{
    const QDateTime yesterday = QDateTime::currentDateTimeUtc().addDays(-1);
    const QStringList names = QDir(folder).entryList(QDir::Files);
    for (const QString& name : names)
        setDate(folder + '/' + name, yesterday);
}

/// As an administrator's web server answers, from a folder.
HttpAnswer answerFrom(const QString& folder, const HttpRequest& request)
{
    const QString path = QUrl::fromPercentEncoding(request.path);
    const QString file = folder + path;
    if (!QFileInfo(file).isFile())
        return HttpAnswer::status(404, "none");
    const QDateTime date = dateOf(file);
    if (path.endsWith(".exe"))
        return HttpsServer::servingFile(readFile(file), date)(request);
    return HttpAnswer::ok(readFile(file), { { "Last-Modified", httpDate(date) } });
}

} // namespace

/// A live server against the record of what was published: whatever somebody else
/// changes is found.
class tst_ProbeRecord : public QObject {
    Q_OBJECT

private slots:
    void initTestCase()
    {
        trustedAuthority();
        trustedCertificate();
        const QString all = folder.path();
        kept = { all + "/now",  all + "/before",        all + "/more",
                 all + "/less", all + "/halden.record", all + "/minisign.pub" };
        mustSucceed("minisign", { "-G", "-W", "-p", kept.key, "-s", secretKey() });
        publishEverything('1');
        mustSucceed("cp", { "-a", kept.now, kept.before });
        publishEverything('2');
        sign();
        mustSucceed("cp", { "-a", kept.now, kept.more });
        mustSucceed("cp", { "-a", kept.now, kept.less });
        put("live/Data/more.mpq", "somebody else's");
        put("test/Data/more.mpq", "somebody else's");
        publishPatches(kept.more, {});
        for (const char* kind : { "live", "test" }) {
            QFile::remove(source(kind + QString("/Data/more.mpq")));
            QFile::remove(source(kind + QString("/Data/other.mpq")));
        }
        publishPatches(kept.less, {});
    }

    void init()
    {
        QVERIFY(QDir(served()).removeRecursively());
        mustSucceed("cp", { "-a", kept.now, served() });
    }

    void whatIsPublishedIsFine_data()
    {
        QTest::addColumn<QStringList>("options");
        QTest::newRow("at a glance") << QStringList{};
        QTest::newRow("in depth") << QStringList{ "--deep" };
    }

    void whatIsPublishedIsFine()
    {
        QFETCH(QStringList, options);
        const CommandRun probed = probe(options);
        QCOMPARE(probed.findings(), QStringList());
        QCOMPARE(probed.messages, QString());
        QCOMPARE(probed.code, ExitCode::Fine);
        // Two programs, three files of each of three manifests, the text for the window.
        QCOMPARE(probed.json["files"].toInt(), 12);
    }

    void tampering_data()
    {
        QTest::addColumn<QString>("path");
        QTest::addColumn<QString>("change");
        QTest::addColumn<bool>("keepsDate");
        QTest::addColumn<QString>("finding");
        for (const bool keepsDate : { true, false }) {
            for (const char* name : { "patch.ini", "patchTest.ini", "patch-next.ini" })
                addRows(name, name, keepsDate, "manifest-missing", true);
            for (const QString& name : { launcher, updater })
                addRows(name, name, keepsDate, "launcher-file-missing", true);
            addRows(patchFile("live", oneOfTwins), "patch.ini", keepsDate, "file-missing", false);
            addRows(
                patchFile("test", oneOfTwins), "patchTest.ini", keepsDate, "file-missing", false);
        }
    }

    void tampering()
    {
        QFETCH(QString, path);
        QFETCH(QString, change);
        QFETCH(bool, keepsDate);
        QFETCH(QString, finding);
        const QString file = served() + '/' + path;
        const QDateTime date = dateOf(file);
        tamper(file, path, change);
        if (keepsDate && QFile::exists(file))
            setDate(file, date);
        const CommandRun probed = probe({ "--deep" });
        QVERIFY2(probed.findings().contains(finding), qPrintable(probed.text));
        QCOMPARE(probed.code, ExitCode::Findings);
    }

    /// Everything but patch files is compared byte by byte at a glance, too.
    void tamperingAtAGlance_data()
    {
        QTest::addColumn<QString>("path");
        for (const QString& name :
             { QString("patch.ini"), QString("patchTest.ini"), launcher, updater })
            QTest::newRow(qPrintable(name)) << name;
    }

    void tamperingAtAGlance()
    {
        QFETCH(QString, path);
        tamper(served() + '/' + path, path, "a byte");
        const QStringList findings = probe({}).findings();
        QVERIFY2(findings.contains("differs-from-record " + path), qPrintable(findings.join(", ")));
    }

    void sizeAtAGlance()
    {
        const QString path = patchFile("live", oneOfTwins);
        tamper(served() + '/' + path, path, "longer");
        const QStringList findings = probe({}).findings();
        // Both name it.
        QCOMPARE(
            findings,
            (QStringList{ "differs-from-record patch-next.ini", "differs-from-record patch.ini" }));
    }

    /// Servers that send in pieces tell no size.
    void sizeThatIsNotTold()
    {
        HttpsServer server;
        const QString path = '/' + patchFile("live", oneOfTwins);
        server.answer(path.toUtf8(), HttpAnswer::chunked({ readFile(served() + path) }));
        QCOMPARE(
            run(server, { "--record", kept.record, "--record-key", kept.key }).findings(),
            (QStringList{ "length-missing patch-next.ini", "length-missing patch.ini" }));
    }

    /// Somebody else publishes, with the very same program.
    void anotherPublication_data()
    {
        QTest::addColumn<QString>("other");
        QTest::addColumn<QString>("manifest");
        QTest::addColumn<QStringList>("findings");
        for (const QString& name : { QString("patch.ini"), QString("patchTest.ini") }) {
            QTest::newRow(qPrintable("a file more in " + name))
                << kept.more << name
                << QStringList{ "differs-from-record " + name, "missing-in-record " + name };
            QTest::newRow(qPrintable("a file less in " + name))
                << kept.less << name
                << QStringList{ "differs-from-record " + name, "only-in-record " + name };
        }
    }

    void anotherPublication()
    {
        QFETCH(QString, other);
        QFETCH(QString, manifest);
        QFETCH(QStringList, findings);
        mustSucceed("cp", { "-a", other + '/' + manifest, served() });
        mustSucceed("cp", { "-a", other + "/wow-client-patch", served() });
        QCOMPARE(probe({ "--deep" }).findings(), findings);
    }

    /// A new publication of which nobody has told the record.
    void unknownManifest()
    {
        mustSucceed("cp", { "-a", kept.now + "/patch.ini", served() });
        const QString empty = folder.path() + "/empty.record";
        writeFile(empty, "");
        sign(empty);
        const QStringList findings
            = run({ "--record", empty, "--record-key", kept.key }).findings();
        QCOMPARE(
            findings,
            (QStringList{ "missing-in-record " + updater, "missing-in-record " + launcher,
                          "missing-in-record patch.ini" }));
    }

    void signature_data()
    {
        QTest::addColumn<QString>("fault");
        QTest::addColumn<QString>("wayOut");
        QTest::newRow("none") << "none"
                              << "minisign -Sm";
        QTest::newRow("of another record") << "another record"
                                           << "sign it anew";
        QTest::newRow("a line more") << "a line more"
                                     << "sign it anew";
        QTest::newRow("of another key") << "another key"
                                        << "minisign.pub does not match";
        QTest::newRow("no signature at all") << "words"
                                             << "sign it anew";
        QTest::newRow("of what is no record") << "no record inside"
                                              << "line 1 is none";
        QTest::newRow("no record") << "no record"
                                   << "build --record";
        QTest::newRow("no key") << "no key"
                                << "minisign -G";
    }

    void signature()
    {
        QFETCH(QString, fault);
        QFETCH(QString, wayOut);
        const QString record = folder.path() + "/spoilt.record";
        const QString signature = record + ".minisig";
        QFile::remove(record);
        QFile::remove(signature);
        writeFile(record, readFile(kept.record));
        sign(record);
        QString key = kept.key;
        if (fault == "none") {
            QVERIFY(QFile::remove(signature));
        } else if (fault == "another record") {
            writeFile(record, readFile(record).first(readFile(record).indexOf('\n') + 1));
        } else if (fault == "a line more") {
            writeFile(record, readFile(record) + '\n');
        } else if (fault == "another key") {
            key = folder.path() + "/other/minisign.pub";
            QDir().mkpath(folder.path() + "/other");
            mustSucceed(
                "minisign", { "-G", "-W", "-f", "-p", key, "-s", folder.path() + "/other/key" });
            wayOut = "the key " + key;
        } else if (fault == "words") {
            writeFile(signature, "signed, the admin\n");
        } else if (fault == "no record inside") {
            writeFile(record, "signed, and no record\n");
            sign(record);
        } else if (fault == "no record") {
            QVERIFY(QFile::remove(record));
        } else {
            key = folder.path() + "/none.pub";
        }
        const CommandRun probed = run({ "--record", record, "--record-key", key });
        QCOMPARE(probed.code, ExitCode::InputOutput);
        QVERIFY2(probed.messages.contains(wayOut), qPrintable(probed.messages));
        QVERIFY2(!probed.json.contains("findings"), "nothing may be compared with it");
    }

    void minisignIsMissing()
    {
        const QByteArray path = qgetenv("PATH");
        qputenv("PATH", "/nowhere");
        const CommandRun probed = probe({});
        qputenv("PATH", path);
        QCOMPARE(probed.code, ExitCode::InputOutput);
        QVERIFY2(probed.messages.contains("package minisign"), qPrintable(probed.messages));
    }

    void keyAndRecordGoTogether()
    {
        QCOMPARE(run({ "--record", kept.record }).code, ExitCode::Usage);
        QCOMPARE(run({ "--record-key", kept.key }).code, ExitCode::Usage);
    }

private:
    QString secretKey() const
    {
        return folder.path() + "/minisign.key";
    }

    void sign(const QString& file) const
    {
        mustSucceed("minisign", { "-S", "-s", secretKey(), "-m", file });
    }

    void sign() const
    {
        sign(kept.record);
    }

    static QString served()
    {
        return ApplicationFolder::path("served");
    }

    static QString patchFile(const QString& kind, const QByteArray& content)
    {
        return "wow-client-patch/" + kind + "/Data/" + md5(content) + "/twin.mpq";
    }

    static void publishPatches(const QString& target, const QStringList& options)
    {
        age(target);
        mustPublish(
            QStringList{ "build", source("live"), target, "--no-flush", "--yes-remove", "1" }
            + options);
        mustPublish(
            QStringList{ "build", source("test"), target, "--no-flush", "--yes-remove", "1",
                         "--kind", "test" }
            + options);
    }

    void publishEverything(char letter) const
    {
        const QStringList record{ "--record", kept.record };
        for (const QString& kind : { QString("live"), QString("test"), QString("next") }) {
            put(kind + "/Data/twin.mpq", oneOfTwins);
            put(kind + "/Data/other.mpq", kind.toUtf8() + letter);
            put(kind + "/beside.txt", "beside Data");
        }
        publishPatches(kept.now, record);
        mustPublish(
            QStringList{ "build", source("next"), kept.now, "--no-flush", "--next" } + record);
        const QByteArray program = readFile("/usr/bin/true") + letter;
        writeFile(source("launcher"), program + 'l');
        writeFile(source("updater"), program + 'u');
        mustPublish(
            QStringList{ "build-launcher", kept.now, "--no-flush", "--launcher", source("launcher"),
                         "--updater", source("updater") }
            + record);
    }

    static void addRows(
        const QString& path, const QString& subject, bool keepsDate, const QString& missing,
        bool hasFormer)
    {
        const auto add = [&](const QString& change, const QString& finding) {
            const QString name = path.section('/', 0, 1) + path.section('/', 2, 2) + ": " + change
                + (keepsDate ? ", date kept" : "");
            QTest::newRow(qPrintable(name))
                << path << change << keepsDate << finding + ' ' + subject;
        };
        for (const QString& change :
             { QString("a byte"), QString("longer"), QString("shorter"), QString("another one") })
            add(change, "differs-from-record");
        if (hasFormer)
            add("the former one", "former-file-served");
        else
            add("another one of its MD5", "differs-from-record");
        if (!keepsDate)
            add("gone", missing);
    }

    /// What somebody does to a file who may write on the server.
    void tamper(const QString& file, const QString& path, const QString& change) const
    {
        const QByteArray content = readFile(file);
        QVERIFY(!content.isEmpty());
        QByteArray changed = content;
        if (change == "a byte")
            changed[changed.size() / 2] = static_cast<char>(changed[changed.size() / 2] ^ 1);
        else if (change == "longer")
            changed += '\n';
        else if (change == "shorter")
            changed.chop(1);
        else if (change == "another one")
            changed = path.endsWith(".exe") ? readFile("/usr/bin/false")
                                            : QByteArray(content.size(), ';');
        else if (change == "another one of its MD5")
            changed = otherTwin;
        else if (change == "the former one")
            changed = readFile(kept.before + '/' + path);
        QVERIFY(QFile::remove(file));
        if (change == "gone")
            return;
        QVERIFY(changed != content);
        QVERIFY(change != "another one of its MD5" || md5(changed) == md5(content));
        writeFile(file, changed);
    }

    static CommandRun run(const QStringList& options)
    {
        HttpsServer server;
        return run(server, options);
    }

    static CommandRun run(HttpsServer& server, const QStringList& options)
    {
        server.listen(0);
        server.answerAnythingElse(
            [](const HttpRequest& request) { return answerFrom(served(), request); });
        const QString address = "https://" + host() + ':' + QString::number(server.port());
        const QString alert = address + "/alert";
        server.answer("/alert", HttpAnswer::ok("<html><p>Willkommen"));
        return CommandRun(
            QStringList{ "probe", "--json", "--alert", alert } + options + QStringList{ address });
    }

    CommandRun probe(const QStringList& options) const
    {
        return run(QStringList{ "--record", kept.record, "--record-key", kept.key } + options);
    }

    QTemporaryDir folder;
    Published kept;
};

HALDEN_TEST_MAIN(tst_ProbeRecord)
#include "tst_proberecord.moc"
