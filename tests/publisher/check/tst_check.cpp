#include "publisher/check/check.h"
#include "publisher/check/checkreading.h"
#include "publisher/common/finding.h"
#include "publisher/common/hashcache.h"
#include "tests/publisher/commandrun.h"
#include "tests/support/applicationfolder.h"
#include "tests/support/testmain.h"

#include <QDir>
#include <QJsonArray>
#include <QJsonObject>
#include <QSet>
#include <QSettings>
#include <QUrl>

using namespace TestSupport;
using namespace Publisher;

namespace {

// MD5 of "abc".
const QString hash = "900150983cd24fb0d6963f7d28e17f72";

QString key(int n)
{
    return "file" + QString::number(n);
}

/// An entry that creates the folder Data.
const QStringList dataFolder{ "file1=Data", "file1-dirOnly=true", "file1-pathOffset=" };

QStringList folder(int n, const QString& name, const QString& offset)
{
    return { key(n) + "=\"" + name + '"', key(n) + "-dirOnly=true",
             key(n) + "-pathOffset=\"" + offset + '"' };
}

QStringList
file(int n, const QString& name, const QString& offset = "Data", const QString& md5 = hash)
{
    return { key(n) + "=\"" + name + '"', key(n) + "-pathOffset=\"" + offset + '"',
             key(n) + "-hash=" + md5 };
}

QStringList
removal(int n, const QString& name, const QString& offset = "Data", bool dirOnly = false)
{
    QStringList rows{ key(n) + "-save=false", key(n) + "-pathOffset=\"" + offset + '"' };
    if (!name.isEmpty())
        rows.append(key(n) + "=\"" + name + '"');
    if (dirOnly)
        rows.append(key(n) + "-dirOnly=true");
    return rows;
}

QStringList folderRemoval(int n, const QString& name, const QString& offset)
{
    return removal(n, name, offset, true);
}

QStringList count(int entries)
{
    return { "numberOfFiles=" + QString::number(entries) };
}

CommandRun run(const QStringList& arguments)
{
    return CommandRun(QStringList{ "check" } + arguments);
}

/// "identifier@entry" of each finding.
QStringList found(const QJsonObject& json)
{
    QStringList all;
    const QJsonArray findings = json.value("findings").toArray();
    for (const QJsonValue value : findings) {
        const QJsonObject finding = value.toObject();
        all.append(
            finding.value("id").toString() + '@' + QString::number(finding.value("entry").toInt()));
    }
    return all;
}

} // namespace

/// What `check` finds in manifests, and what it leaves alone.
class tst_Check : public QObject {
    Q_OBJECT

private slots:
    void init()
    {
        ApplicationFolder::clear();
    }

    /// What lies outside must not look as if it lay in the client.
    void showsPathsThatLeadOut_data()
    {
        QTest::addColumn<QString>("separator");
        QTest::addColumn<QString>("offset");
        QTest::addColumn<QStringList>("paths");
        QTest::newRow("one folder up, Windows")
            << "\\"
            << R"(..\\out)" << QStringList({ R"(out\b.mpq)", R"(..\out\b.mpq)" });
        QTest::newRow("one folder up") << "/"
                                       << "../out" << QStringList({ "out/b.mpq", "../out/b.mpq" });
        QTest::newRow("three folders up")
            << "/"
            << "../../../out" << QStringList({ "../../out/b.mpq", "../out/b.mpq" });
        QTest::newRow("inside") << "/"
                                << "Data/../out" << QStringList({ "live/out/b.mpq", "out/b.mpq" });
    }

    void showsPathsThatLeadOut()
    {
        QFETCH(QString, separator);
        QFETCH(QString, offset);
        QFETCH(QStringList, paths);
        const QString path = ApplicationFolder::path("patch.ini");
        writeFile(path, (count(1) + file(1, "b.mpq", offset)).join('\n').toUtf8());
        const QJsonObject json
            = run({ "--json", "--realms", "1", "--separator", separator, path }).json;
        QStringList shown;
        const QJsonArray effects = json["manifests"][0]["effects"].toArray();
        for (const QJsonValue effect : effects)
            shown.append(effect["path"].toString());
        shown.removeDuplicates();
        QCOMPARE(shown, paths);
    }

    void tellsWhatIsAskedForInstead_data()
    {
        QTest::addColumn<QString>("urlOffset");
        QTest::addColumn<QString>("name");
        QTest::addColumn<QString>("told");
        const QString nothing = "asks for nothing of the kind, ";
        QTest::newRow("cut") << "Data"
                             << "a#b" << nothing;
        QTest::newRow("percents after a folder's") << "a%23b"
                                                   << "100%.txt"
                                                   << "a%23b/100%.txt\", which is not where "
                                                      "\"a#b/100%.txt\" lies";
        QTest::newRow("percents that read as a code")
            << "Data"
            << "a%41"
            << "asks for \"wow-client-patch/live/Data/aA\", ";
        // Qt 6.4 takes such a folder out of an address, Qt 6.8 does not.
        const QUrl dotted("https://download.test/Data/.c/x");
        if (dotted.adjusted(QUrl::NormalizePathSegments).path() != "/Data/.c/x")
            QTest::newRow("folder of a dot and a letter")
                << "Data/.c"
                << "x"
                << "asks for \"wow-client-patch/live/Data//x\", ";
    }

    void tellsWhatIsAskedForInstead()
    {
        QFETCH(QString, urlOffset);
        QFETCH(QString, name);
        QFETCH(QString, told);
        const QStringList rows
            = count(1) + file(1, name, "") + QStringList{ "file1-urlOffset=\"" + urlOffset + '"' };
        const QJsonObject json = run({ "--json", manifest(rows) }).json;
        QCOMPARE(found(json), QStringList("url-changed@1"));
        const QString text = json["findings"][0]["text"].toString();
        QVERIFY2(text.contains(told), qPrintable(text));
    }

    void missingManifestNamesTheCommand()
    {
        QDir().mkpath(ApplicationFolder::path("server"));
        const CommandRun checked = run({ ApplicationFolder::path("server") });
        QVERIFY2(checked.text.contains("[manifest-missing]\n    "), qPrintable(checked.text));
        QVERIFY2(checked.text.contains("`halden-publish build`"), qPrintable(checked.text));
    }

    void whatIsMissingNamesTheCommand_data()
    {
        QTest::addColumn<FindingId>("id");
        QTest::addColumn<QString>("command");
        QTest::newRow("manifest") << FindingId::ManifestMissing << "`halden-publish build`";
        QTest::newRow("patch file") << FindingId::FileMissing << "`halden-publish build`";
        QTest::newRow("patch file in the tree")
            << FindingId::FileNotPublished << "`halden-publish build`";
        QTest::newRow("launcher") << FindingId::LauncherFileMissing
                                  << "`halden-publish build-launcher`";
    }

    void whatIsMissingNamesTheCommand()
    {
        QFETCH(FindingId, id);
        QFETCH(QString, command);
        const QString remedy = Finding{ id, {}, 0, {} }.remedy();
        QVERIFY2(remedy.contains(command), qPrintable(remedy));
    }

    void finds_data()
    {
        QTest::addColumn<QStringList>("rows");
        QTest::addColumn<QStringList>("options");
        QTest::addColumn<QStringList>("findings");
        addSoundRows();
        addReadingRows();
        addNumberingRows();
        addPathRows();
        addFolderRows();
        addHashRows();
        addRemovalRows();
    }

    void finds()
    {
        QFETCH(QStringList, rows);
        QFETCH(QStringList, options);
        QFETCH(QStringList, findings);
        const CommandRun checked = run(QStringList{ "--json", manifest(rows) } + options);
        QCOMPARE(found(checked.json), findings);
        QCOMPARE(checked.code, findings.isEmpty() ? ExitCode::Fine : ExitCode::Findings);
        QCOMPARE(checked.messages, QString());
    }

    void tree_data()
    {
        QTest::addColumn<QByteArray>("published");
        QTest::addColumn<QStringList>("findings");
        QTest::newRow("the right file") << QByteArray("abc") << QStringList();
        QTest::newRow("another file") << QByteArray("abd") << QStringList{ "hash-mismatch@2" };
        QTest::newRow("an empty file") << QByteArray("") << QStringList{ "file-empty@2" };
        QTest::newRow("no file") << QByteArray() << QStringList{ "file-not-published@2" };
    }

    void tree()
    {
        QFETCH(QByteArray, published);
        QFETCH(QStringList, findings);
        const QString path = manifest(
            count(2) + dataFolder + file(2, "ä, b.mpq") + QStringList{ "file2-urlOffset=a%20b" });
        const QString server = ApplicationFolder::path("server");
        if (!published.isNull())
            writeFile(server + "/wow-client-patch/live/a b/ä, b.mpq", published);
        QDir().mkpath(server);
        QCOMPARE(found(run({ "--json", "--tree", server, path }).json), findings);
        // The same through the server's folder as a whole.
        QFile::copy(path, server + "/patch.ini");
        QCOMPARE(found(run({ "--json", server }).json), findings);
    }

    /// Who has hashed the file before is believed while it looks the same.
    void knownFileIsNotRead()
    {
        const QString path = manifest(
            count(2) + dataFolder + file(2, "a.mpq") + QStringList{ "file2-urlOffset=a" });
        const QString server = ApplicationFolder::path("server");
        const QString published = server + "/wow-client-patch/live/a/a.mpq";
        writeFile(published, "else");
        const QString cacheFile = ApplicationFolder::path("cache/x.hashes");
        HashCache writing(cacheFile);
        writing.remember(published, FileFingerprint::of(published), hash);
        writing.save();
        const HashCache known(cacheFile);
        const auto findings = [&](const HashCache* cache) {
            return Check::inspect(path, "patch.ini", Kind::Live, {}, server, cache).findings;
        };
        QCOMPARE(findings(&known).size(), 0);
        QCOMPARE(findings(nullptr).size(), 1);
        writeFile(published, "something else");
        QCOMPARE(findings(&known).size(), 1);
    }

#ifndef Q_OS_WIN // a file cannot be closed for its own owner there
    void unreadableFileInTheTree()
    {
        const QString server = ApplicationFolder::path("server");
        const QString path = server + "/wow-client-patch/live/a";
        writeFile(path, "abc");
        QFile::setPermissions(path, {});
        const QString manifestPath = manifest(count(1) + file(1, "a", ""));
        QCOMPARE(
            found(run({ "--json", "--tree", server, manifestPath }).json),
            QStringList{ "file-not-published@1" });
    }
#endif

    void serverTreeWithoutManifest()
    {
        const QString server = ApplicationFolder::path("server");
        QDir().mkpath(server);
        const CommandRun checked = run({ "--json", server });
        QCOMPARE(found(checked.json), QStringList{ "manifest-missing@0" });
        QCOMPARE(checked.code, ExitCode::Findings);
    }

    void serverTreeWithBothManifests()
    {
        const QString server = ApplicationFolder::path("server");
        const QByteArray rows = (count(1) + dataFolder).join('\n').toUtf8();
        writeFile(server + "/patch.ini", rows);
        writeFile(server + "/patchTest.ini", rows);
        const QJsonArray manifests = run({ "--json", server }).json.value("manifests").toArray();
        QCOMPARE(manifests.size(), 2);
        QCOMPARE(manifests.at(0).toObject().value("kind").toString(), QString("live"));
        QCOMPARE(manifests.at(1).toObject().value("kind").toString(), QString("test"));
    }

    /// Accepted findings are shown and do not count.
    void acceptedFindings()
    {
        const QString path = manifest(count(1) + dataFolder + QStringList{ "oddity=1" });
        const CommandRun checked = run({ "--json", "--accept", "key-unknown", path });
        QCOMPARE(found(checked.json), QStringList{ "key-unknown@0" });
        QCOMPARE(checked.code, ExitCode::Fine);
        const CommandRun text = run({ "--accept", "key-unknown", path });
        QVERIFY2(text.text.contains("no findings, 1 accepted"), qPrintable(text.text));
    }

    void usage_data()
    {
        QTest::addColumn<QStringList>("arguments");
        QTest::addColumn<ExitCode>("code");
        QTest::newRow("nothing to check") << QStringList() << ExitCode::Usage;
        QTest::newRow("no realms") << QStringList{ "--realms", "0", "x" } << ExitCode::Usage;
        QTest::newRow("too many realms")
            << QStringList{ "--realms", "101", "x" } << ExitCode::Usage;
        QTest::newRow("odd separator") << QStringList{ "--separator", ":", "x" } << ExitCode::Usage;
        QTest::newRow("odd kind") << QStringList{ "--kind", "both", "x" } << ExitCode::Usage;
        QTest::newRow("unknown finding")
            << QStringList{ "--accept", "all", "x" } << ExitCode::Usage;
        QTest::newRow("no such manifest") << QStringList{ "/nowhere/x" } << ExitCode::InputOutput;
        QTest::newRow("no such tree")
            << QStringList{ "--tree", "/nowhere", "/nowhere/x" } << ExitCode::InputOutput;
    }

    void usage()
    {
        QFETCH(QStringList, arguments);
        QFETCH(ExitCode, code);
        const CommandRun refused = run(arguments);
        QCOMPARE(refused.code, code);
        QVERIFY2(!refused.messages.isEmpty(), "the refusal must say why");
    }

    /// People see the entry, the sentence, the identifier and the remedy.
    void textOfAFinding()
    {
        const CommandRun checked
            = run({ manifest(count(2) + dataFolder + file(2, "a.mpq", "Data", "")) });
        QVERIFY2(
            checked.text.contains("patch.ini, entry 2: \"a.mpq\" has no hash"),
            qPrintable(checked.text));
        QVERIFY2(
            checked.text.contains("[hash-missing]\n    Set the hash"), qPrintable(checked.text));
        QVERIFY2(checked.text.contains("\n1 finding\n"), qPrintable(checked.text));
    }

    /// What a run will do stands in the report, removals included.
    void effects()
    {
        const QJsonObject json = run({ "--json", "--realms", "1",
                                       manifest(
                                           count(3) + removal(1, "old.mpq") + folder(2, "Data", "")
                                           + file(3, "a.mpq")) })
                                     .json;
        QStringList effects;
        const QJsonArray all
            = json.value("manifests").toArray().at(0).toObject().value("effects").toArray();
        for (const QJsonValue value : all) {
            const QJsonObject effect = value.toObject();
            effects.append(
                effect.value("action").toString() + ' ' + effect.value("path").toString());
        }
        QCOMPARE(
            effects,
            QStringList({ "remove-file Data\\old.mpq", "create-cache-folder live\\Data",
                          "fetch live\\Data\\a.mpq", "remove-file Data\\old.mpq",
                          "create-folder Data", "install Data\\a.mpq" }));
    }

    /// What is rehearsed once for several realm entries would come out the same for
    /// each of them.
    void realmEntriesThatAreAlike_data()
    {
        QTest::addColumn<QStringList>("rows");
        QTest::addColumn<QList<int>>("like");
        QTest::newRow("no removal") << dataFolder + file(2, "a.mpq") << QList<int>{ 1, 1, 1, 1 };
        QTest::newRow("placeholders") << file(1, "x", "halden-vacant", "")
                + file(2, "x", "halden-vacant", "") + removal(3, "halden-vacant")
                                      << QList<int>{ 1, 1, 3, 4 };
        QTest::newRow("aimed at a realm")
            << dataFolder + removal(2, "Data") + file(3, "Data") << QList<int>{ 1, 2, 1, 4 };
        QTest::newRow("other names") << file(1, "a") + file(2, "b") + file(3, "a") + file(4, "b")
                + removal(5, "c") << QList<int>{ 1, 2, 1, 2 };
        QTest::newRow("into another client")
            << dataFolder + file(2, "a.mpq", "..\\\\client 2") << QList<int>{ 1, 2, 3, 4 };
    }

    void realmEntriesThatAreAlike()
    {
        QFETCH(QStringList, rows);
        CheckedPlayers players;
        players.realms = 4;
        const Inspection inspection
            = Check::inspect(manifest(count(5) + rows), "patch.ini", Kind::Live, players, {});
        QTEST(inspection.run.likeRealm, "like");
    }

    /// Whatever the settings layer writes, it also reads as it was meant.
    void ownWritingIsSound_data()
    {
        QTest::addColumn<QString>("value");
        for (const QString value :
             { "plain", "", " blanks ", "a,b", "a;b", "Data\\deDE\\", "@at", "@Invalid()", "100%",
               "Größe 😀", "a\"b", "#1", "a=b", "[x]", "\\x41" })
            QTest::newRow(qPrintable('"' + value + '"')) << value;
    }

    void ownWritingIsSound()
    {
        QFETCH(QString, value);
        const QString path = ApplicationFolder::path("written.ini");
        {
            QSettings settings(path, QSettings::IniFormat);
            settings.setValue("file1", value);
        }
        const QList<Finding> findings = CheckReading::findings(path, "written.ini");
        QVERIFY2(findings.isEmpty(), qPrintable(findings.isEmpty() ? "" : findings.first().text));
    }

    void identifiersAreUnique()
    {
        QSet<QString> identifiers;
        for (const auto& [identifier, remedy] : Findings::all()) {
            QVERIFY2(!identifiers.contains(identifier), qPrintable(identifier));
            QVERIFY2(!remedy.isEmpty(), qPrintable(identifier));
            identifiers.insert(identifier);
        }
    }

    void numberLists_data()
    {
        QTest::addColumn<QList<qint64>>("numbers");
        QTest::addColumn<QString>("text");
        QTest::newRow("none") << QList<qint64>{} << "";
        QTest::newRow("one") << QList<qint64>{ 4 } << "4";
        QTest::newRow("two") << QList<qint64>{ 1, 2 } << "1 and 2";
        QTest::newRow("a range") << QList<qint64>{ 2, 3, 4 } << "2 to 4";
        QTest::newRow("mixed") << QList<qint64>{ 1, 3, 4, 5, 9 } << "1, 3 to 5 and 9";
    }

    void numberLists()
    {
        QFETCH(QList<qint64>, numbers);
        QTEST(Findings::numberList(numbers), "text");
    }

private:
    static void
    add(const char* name, const QStringList& rows, const QStringList& findings,
        const QStringList& options = {})
    {
        QTest::newRow(name) << rows << options << findings;
    }

    static void addSoundRows()
    {
        add("nothing at all", count(0), {});
        add("folder and file", count(2) + dataFolder + file(2, "a.mpq"), {});
        add("file in the client folder itself", count(1) + file(1, "a.exe", ""), {});
        add("offset of one dot", count(1) + file(1, "a.exe", "."), {});
        add("default offset",
            count(2) + dataFolder + QStringList{ "file2=a", "file2-hash=" + hash }, {});
        add("comments and a section", QStringList{ "; patch 7", "[General]" } + count(0), {});
        add("backslashes on Windows",
            count(2) + folder(1, "deDE", "Data\\\\") + file(2, "a.mpq", "Data\\\\deDE\\\\"), {});
        add("a name that needs care", count(1) + file(1, "ä, b; c = 100% @.mpq", ""), {});
    }

    static void addReadingRows()
    {
        const QStringList sound = count(2) + dataFolder;
        const auto named = [&](const QString& text) {
            return sound + QStringList{ "file2=" + text, "file2-hash=" + hash };
        };
        add("unquoted comma", named("a,b.mpq"), { "value-misread@2", "name-missing@2" });
        add("unquoted semicolon", named("a;b.mpq"), { "value-misread@2" });
        add("single backslash", named("patch\\deDE"), { "value-misread@2" });
        add("stray quotes", named("\"a\"b.mpq"), { "value-misread@2" });
        add("special type", named("@Invalid()"), { "value-misread@2", "name-missing@2" });
        add("backslash at the end swallows the next line",
            count(2) + dataFolder
                + QStringList{ "file2=a.mpq", "file2-pathOffset=Data\\", "file2-hash=" + hash },
            { "value-misread@2", "value-misread@2", "hash-missing@2" });
        add("yes is no boolean... and no is true",
            sound + file(2, "a.mpq") + QStringList{ "file2-save=no" }, { "boolean-misread@2" });
#ifndef Q_OS_WIN // where the toolkit tells no capitals in keys
        add("misspelt key", sound + file(2, "a.mpq") + QStringList{ "file2-Hash=x" },
            { "key-unknown@2" });
#endif
        add("padded number", sound + file(2, "a.mpq") + QStringList{ "file02=x" },
            { "key-unknown@2" });
        add("key in a section",
            sound + file(2, "a.mpq") + QStringList{ "[more]", "file2-save=true" },
            { "key-in-section@2" });
        add("repeated key", sound + file(2, "a.mpq") + QStringList{ "file2-hash=" + hash },
            { "key-repeated@2" });
        add("hash sign for a comment", sound + file(2, "a.mpq") + QStringList{ "# new" },
            { "manifest-malformed@0" });
        add("a web page", { "<!DOCTYPE html>", "<p>numberOfFiles=0" },
            { "manifest-malformed@0", "count-missing@0" });
    }

    static void addNumberingRows()
    {
        add("no count", dataFolder, { "count-missing@0" });
        add("a count in words", dataFolder + QStringList{ "numberOfFiles=one" },
            { "count-misread@0" });
        add("count too small", count(1) + dataFolder + file(2, "a.mpq"), { "count-too-small@0" });
        add("count too large", count(3) + dataFolder + file(2, "a.mpq"), { "count-too-large@0" });
        add("far too large", count(2'000'000'000) + dataFolder, { "count-too-large@0" });
        add("gap", count(3) + dataFolder + file(3, "a.mpq"), { "numbering-gap@2" });
        add("no name", count(2) + dataFolder + QStringList{ "file2-hash=" + hash },
            { "name-missing@2" });
    }

    static void addPathRows()
    {
        add("folder in the name", count(2) + dataFolder + file(2, "b/a.mpq"),
            { "name-not-one-component@2" });
        add("a file where every client has a folder", count(1) + file(1, "Data", ""),
            { "target-conflict@1" });
        add("out of the client", count(1) + file(1, "a", "../x"),
            { "path-escapes@1", "folder-missing@1" });
        add("detour", count(2) + dataFolder + file(2, "a", "Data/../Data"), { "path-dotted@2" });
        add("absolute", count(2) + dataFolder + file(2, "a", "/Data"), { "absolute-path@2" });
        add("drive", count(1) + file(1, "a", "C:/x"),
            { "absolute-path@1", "name-not-for-windows@1", "folder-missing@1" });
        add("backslash for others", count(1) + file(1, "a", "Data\\\\x"),
            { "separator-foreign@1", "folder-missing@1" }, { "--separator", "/" });
        add("device name", count(1) + file(1, "aux.mpq", ""), { "name-not-for-windows@1" });
        add("letter that Windows lacks", count(1) + file(1, "a:b", ""),
            { "name-not-for-windows@1" });
        add("dot at the end", count(1) + file(1, "a.", ""), { "name-not-for-windows@1" });
        add("device of a rare kind", count(1) + file(1, "conin$.mpq", ""),
            { "name-not-for-windows@1" });
        add("no room for a running download", count(1) + file(1, QString(252, 'x'), ""),
            { "name-not-for-windows@1" });
        add("a long name", count(1) + file(1, QString(251, 'x'), ""), {});
        add("names of Windows are no matter elsewhere", count(1) + file(1, "aux", ""), {},
            { "--separator", "/" });
        add("address cut at #", count(1) + file(1, "a#b", ""), { "url-changed@1" });
        add("address decoded", count(1) + file(1, "a%41", ""), { "url-changed@1" });
        add("encoded url offset",
            count(1) + file(1, "a", "") + QStringList{ "file1-urlOffset=a%23b" }, {});
        add("backslash in the url offset",
            count(1) + file(1, "a", "") + QStringList{ "file1-urlOffset=\"a\\\\b\"" },
            { "url-changed@1" });
        add("one target twice", count(2) + file(1, "a", "") + file(2, "A", ""),
            { "duplicate-target@2" });
        add("case tells elsewhere", count(2) + file(1, "a", "") + file(2, "A", ""), {},
            { "--separator", "/" });
        add("file and folder", count(2) + file(1, "a", "") + folder(2, "a", ""),
            { "target-conflict@2" });
    }

    static void addFolderRows()
    {
        add("no folder entry", count(1) + file(1, "a", "Fonts"), { "folder-missing@1" });
        add("not even for Data", count(1) + file(1, "a", "Data"), { "folder-missing@1" });
        add("folder after its file", count(2) + file(1, "a", "Fonts") + folder(2, "Fonts", ""),
            { "folder-too-late@1" });
        add("parent comes with the child", count(2) + folder(1, "deDE", "Data") + file(2, "a"), {});
        add("file in a file", count(2) + file(1, "a", "") + file(2, "b", "a"),
            { "file-as-folder@2" });
    }

    static void addHashRows()
    {
        add("no hash", count(1) + file(1, "a", "", ""), { "hash-missing@1" });
        add("upper case", count(1) + file(1, "a", "", hash.toUpper()), { "hash-uppercase@1" });
        add("too short", count(1) + file(1, "a", "", hash.left(31)), { "hash-malformed@1" });
        add("hash of nothing", count(1) + file(1, "a", "", "d41d8cd98f00b204e9800998ecf8427e"),
            { "file-empty@1" });
    }

    static void addRemovalRows()
    {
        const QStringList one{ "--realms", "1" };
        const QStringList two{ "--realms", "2" };
        add("removal for one realm", count(1) + removal(1, "old"), {}, one);
        add("second realm keeps it", count(2) + removal(1, "old", "") + file(2, "a", ""),
            { "removal-never-effective@1" }, two);
        add("the other name goes instead", count(2) + removal(1, "old", "Fonts") + file(2, "a", ""),
            { "removal-never-effective@1", "removal-hits-other-name@1" }, two);
        add("both realms by one name", count(2) + removal(1, "old") + removal(2, "old", "Fonts"),
            { "removal-from-root@2" }, two);
        add("put back later", count(2) + removal(1, "a", "") + file(2, "a", ""),
            { "removal-never-effective@1" }, one);
        add("just installed", count(2) + file(1, "a", "") + removal(2, "a", ""),
            { "removal-hits-installed-file@2", "removal-from-root@2" }, one);
        add("just installed below a folder",
            count(3) + folder(1, "x", "") + file(2, "a", "x") + folderRemoval(3, "x", ""),
            { "removal-hits-installed-file@3", "removal-from-root@3" }, one);
        add("name missing for the second realm", count(1) + folderRemoval(1, "old", "Fonts"),
            { "removal-empties-folder@1" }, two);
        add("own name missing", count(1) + folderRemoval(1, "", "Fonts"),
            { "name-missing@1", "removal-empties-folder@1" }, one);
        add("folder by the realm's number", count(1) + folderRemoval(1, "old", "Fonts"), {}, one);
        add("placeholders",
            count(4) + file(1, "old", "halden-vacant", "") + file(2, "old", "halden-vacant", "")
                + removal(3, "halden-vacant") + folderRemoval(4, "halden-vacant", "Fonts"),
            {}, two);
        add("too few placeholders",
            count(3) + file(1, "old", "halden-vacant", "") + removal(2, "halden-vacant")
                + folderRemoval(3, "halden-vacant", "Fonts"),
            { "removal-never-effective@2", "removal-hits-other-name@2", "removal-never-effective@3",
              "removal-hits-other-name@3" },
            two);
    }

    static QString manifest(const QStringList& rows)
    {
        // A path of its own each time: the settings layer keeps what it has read.
        static int written = 0;
        QString path
            = ApplicationFolder::path("manifests/" + QString::number(++written) + "/patch.ini");
        writeFile(path, rows.join('\n').toUtf8() + '\n');
        return path;
    }
};

HALDEN_TEST_MAIN(tst_Check)
#include "tst_check.moc"
