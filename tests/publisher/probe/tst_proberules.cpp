#include "publisher/probe/answerrules.h"
#include "publisher/probe/daterules.h"
#include "publisher/probe/servedmanifest.h"
#include "publisher/probe/serverrules.h"
#include "tests/support/testmain.h"
#include "tests/support/timezone.h"

#include <QTest>

using namespace TestSupport;
using namespace Publisher;

namespace {

/// What a row does to an answer on which everything is right.
using Spoil = void (*)(ProbeAnswer&);

const QDateTime noon = utc(QDate(2024, 5, 1), QTime(12, 0));

ProbeAnswer soundAnswer()
{
    ProbeAnswer answer;
    answer.url = QUrl("https://server/Data/a.mpq");
    answer.status = HttpStatus::ok;
    answer.body = "content";
    answer.length = answer.body.size();
    answer.received = answer.body.size();
    answer.toTheEnd = true;
    answer.lastModified = noon.addDays(-1);
    answer.date = noon;
    return answer;
}

ProbeAnswer spoilt(Spoil spoil)
{
    ProbeAnswer answer = soundAnswer();
    spoil(answer);
    return answer;
}

QString identifierOf(const std::optional<Finding>& finding)
{
    return finding ? finding->identifier() : QString();
}

PatchFile patchFile(const QString& hash)
{
    return { Kind::Test, 7, { false, false, "Data", "Data", "a.mpq", hash } };
}

} // namespace

/// The rules for answers, without a server that would have to give them.
class tst_ProbeRules : public QObject {
    Q_OBJECT

private slots:
    /// One thing is said of an answer, and the first row that fits says it.
    void judges_data()
    {
        QTest::addColumn<Spoil>("spoil");
        QTest::addColumn<Served>("what");
        QTest::addColumn<QString>("finding");
        QTest::addColumn<bool>("usable");
        addMissingRows();
        addOrderRows();
        addContentRows();
    }

    void judges()
    {
        QFETCH(Spoil, spoil);
        QFETCH(Served, what);
        const AnswerRules::Verdict verdict
            = AnswerRules::judge({ what, "subject", 3 }, spoilt(spoil));
        QTEST(identifierOf(verdict.finding), "finding");
        QTEST(verdict.isUsable, "usable");
        if (verdict.finding) {
            QCOMPARE(verdict.finding->subject, "subject");
            QCOMPARE(verdict.finding->entry, 3);
        }
    }

    void datedAhead_data()
    {
        QTest::addColumn<qint64>("ahead");
        QTest::addColumn<qint64>("serverAhead");
        QTest::addColumn<QString>("finding");
        const QString finding = "date-ahead";
        const qint64 none = 0;
        QTest::newRow("now") << none << none << QString();
        QTest::newRow("as far as clocks may differ") << qint64(10) << none << QString();
        QTest::newRow("a second more") << qint64(11) << none << finding;
        // Players' clocks are like this machine's.
        QTest::newRow("by a server that is ahead itself") << qint64(60) << qint64(60) << finding;
        QTest::newRow("for a server that is behind") << none << qint64(-60) << finding;
    }

    void datedAhead()
    {
        QFETCH(qint64, ahead);
        QFETCH(qint64, serverAhead);
        ProbeAnswer answer = soundAnswer();
        answer.lastModified = noon.addSecs(ahead);
        answer.date = noon.addSecs(serverAhead);
        QTEST(identifierOf(DateRules::ahead("patch.ini", answer, noon)), "finding");
    }

    void datedAheadWithoutDates()
    {
        ProbeAnswer answer = soundAnswer();
        answer.date = {};
        QVERIFY(!DateRules::ahead("patch.ini", answer, noon));
        answer.lastModified = noon.addSecs(11);
        QVERIFY(DateRules::ahead("patch.ini", answer, noon));
        answer.lastModified = {};
        QVERIFY(!DateRules::ahead("patch.ini", answer, noon));
    }

    void caching_data()
    {
        QTest::addColumn<QByteArray>("header");
        QTest::addColumn<QString>("finding");
        const QString finding = "cached-too-long";
        QTest::newRow("none") << QByteArray() << QString();
        QTest::newRow("no seconds") << QByteArray("public, max-age=0") << QString();
        QTest::newRow("seconds") << QByteArray("public, max-age=1") << finding;
        QTest::newRow("in quotes") << QByteArray("max-age=\"5\"") << finding;
        QTest::newRow("shared caches only") << QByteArray("max-age=0, s-maxage=5") << finding;
        QTest::newRow("not stored") << QByteArray("max-age=5, no-store") << QString();
        QTest::newRow("asked for each time") << QByteArray("no-cache, max-age=5") << QString();
        QTest::newRow("no number") << QByteArray("max-age=long") << QString();
    }

    void caching()
    {
        QFETCH(QByteArray, header);
        ProbeAnswer answer = soundAnswer();
        answer.cacheControl = header;
        QTEST(identifierOf(DateRules::caching("patch.ini", answer)), "finding");
    }

    void copiedManifest()
    {
        ProbeAnswer answer = soundAnswer();
        QVERIFY(!DateRules::copiedManifest("patch.ini", noon, answer));
        answer.status = HttpStatus::notModified;
        const auto finding = DateRules::copiedManifest("patch.ini", DateRules::farAhead(), answer);
        QCOMPARE(identifierOf(finding), "manifest-not-modified");
        QCOMPARE(finding->subject, "patch.ini");
        QVERIFY2(finding->text.contains("2099"), qPrintable(finding->text));
    }

    /// Later than the file's date even where the server's clock is behind it, and
    /// ahead of both.
    void laterCopy()
    {
        ProbeAnswer answer = soundAnswer();
        QCOMPARE(DateRules::ofLaterCopy(answer, noon), noon.addSecs(3600));
        answer.lastModified = noon.addSecs(1);
        QCOMPARE(DateRules::ofLaterCopy(answer, noon), noon.addSecs(3601));
        answer.lastModified = {};
        QCOMPARE(DateRules::ofLaterCopy(answer, noon), noon.addSecs(3600));
    }

    /// Capital letters are another finding.
    void hashes()
    {
        ProbeAnswer answer = soundAnswer();
        answer.md5 = "ab12";
        QVERIFY(!AnswerRules::hash(patchFile("AB12"), answer.url, answer));
        const auto finding = AnswerRules::hash(patchFile("ab13"), answer.url, answer);
        QCOMPARE(identifierOf(finding), "hash-mismatch");
        QCOMPARE(finding->subject, "patchTest.ini");
        QCOMPARE(finding->entry, 7);
        QVERIFY2(finding->text.contains(answer.url.toString()), qPrintable(finding->text));
    }

    void certificateDays()
    {
        QVERIFY(!ServerRules::certificateDays("server", 14, 14));
        QCOMPARE(
            identifierOf(ServerRules::certificateDays("server", 13, 14)), "certificate-expiring");
    }

    /// A failure that tells nothing sure leaves it to further questions.
    void absence()
    {
        ProbeAnswer failure;
        failure.error = "handshake failed";
        QVERIFY(!ServerRules::presence("server", failure, 60));
        failure.isNobodyThere = true;
        QCOMPARE(identifierOf(ServerRules::presence("server", failure, 60)), "server-unreachable");
        failure = {};
        failure.isSilent = true;
        QCOMPARE(identifierOf(ServerRules::presence("server", failure, 60)), "server-unreachable");
    }

    /// Folders, removals and placeholders have no file that could be asked for.
    void filesOfAManifest()
    {
        const ServedManifest manifest = ServedManifest::read(
            Kind::Live, "patch-next.ini",
            "numberOfFiles=5\n"
            "file1=Data\nfile1-dirOnly=true\nfile1-pathOffset=.\n"
            "file2=a.mpq\nfile2-pathOffset=Data\nfile2-urlOffset=Data\nfile2-hash=ab\n"
            "file3=gone.mpq\nfile3-save=false\nfile3-pathOffset=Data\n"
            "file4=named.mpq\nfile4-pathOffset=Data\n"
            "file5-pathOffset=Data\nfile5-hash=ab\n");
        QCOMPARE(manifest.error, QString());
        QCOMPARE(manifest.files.size(), 1);
        const PatchFile& file = manifest.files.first();
        QCOMPARE(file.number, 2);
        QCOMPARE(file.manifest(), "patch-next.ini");
        QCOMPARE(
            file.address(QUrl("https://server/")),
            QUrl("https://server/wow-client-patch/live/Data/a.mpq"));
    }

private:
    static void add(const char* name, Served what, const QString& finding, Spoil spoil)
    {
        QTest::newRow(name) << spoil << what << finding << finding.isEmpty();
    }

    static void addMissingRows()
    {
        const Spoil gone = [](ProbeAnswer& answer) {
            answer.status = HttpStatus::gone;
        };
        add("no manifest", Served::Manifest, "manifest-missing", gone);
        add("no launcher file", Served::LauncherFile, "launcher-file-missing", gone);
        add("no patch file", Served::PatchFile, "file-missing", gone);
        add("no text", Served::InfoText, "info-missing", gone);
    }

    static void addOrderRows()
    {
        add("everything right", Served::PatchFile, {}, [](ProbeAnswer&) {});
        add("a redirect counts more than its status", Served::PatchFile, "redirect-insecure",
            [](ProbeAnswer& answer) {
                answer.redirectsElsewhere = true;
                answer.status = HttpStatus::notFound;
            });
        add("304 counts more than that nothing arrives", Served::Manifest,
            "earlier-date-not-answered", [](ProbeAnswer& answer) {
                answer.status = HttpStatus::notModified;
                answer.received = 0;
            });
        add("a status counts more than a page", Served::PatchFile, "file-unreachable",
            [](ProbeAnswer& answer) {
                answer.status = 503;
                answer.body = "<html>";
            });
        add("a page counts more than its packing", Served::PatchFile, "error-page",
            [](ProbeAnswer& answer) {
                answer.body = "<html>";
                answer.encoding = "gzip";
            });
    }

    static void addContentRows()
    {
        add("cut short", Served::PatchFile, "file-unreachable",
            [](ProbeAnswer& answer) { answer.length += 1; });
        add("not read to its end", Served::PatchFile, {}, [](ProbeAnswer& answer) {
            answer.length += 1;
            answer.toTheEnd = false;
        });
        add("a page that is named like one", Served::PatchFile, {}, [](ProbeAnswer& answer) {
            answer.url = QUrl("https://server/Help.HTM");
            answer.body = "<html>";
        });
        add("the text for the window is a page", Served::InfoText, {},
            [](ProbeAnswer& answer) { answer.body = "<html>"; });
        add("empty", Served::PatchFile, "file-empty", [](ProbeAnswer& answer) {
            answer.body.clear();
            answer.length = 0;
            answer.received = 0;
        });
        const Spoil lengthless = [](ProbeAnswer& answer) {
            answer.length = -1;
        };
        QTest::newRow("without a length it is usable all the same")
            << lengthless << Served::PatchFile << "length-missing" << true;
    }
};

HALDEN_TEST_MAIN(tst_ProbeRules)
#include "tst_proberules.moc"
