#include "app/constants.h"
#include "core/settingshandler.h"
#include "tests/support/applicationfolder.h"
#include "tests/support/realmsini.h"
#include "tests/support/testmain.h"

#include <QFileInfo>
#include <QRegularExpression>

#include <climits>

using namespace TestSupport;

using Values = QMap<QString, QByteArray>;

namespace {

RealmEntry entryNamed(const QByteArray& name)
{
    return { .name = name,
             .host = "host-" + name,
             .path = "/games/" + name,
             .testRealm = "true",
             .language = "enUS" };
}

/// `count` entries named "A", "B", ..., each unlike the others in every field
/// but the mark and the language.
QList<RealmEntry> entries(int count)
{
    QList<RealmEntry> list;
    for (int i = 0; i < count; ++i)
        list.append(entryNamed(QByteArray(1, static_cast<char>('A' + i))));
    return list;
}

void writeStore(int count, int selected)
{
    writeRealmsIni(realmsIniWith(entries(count), "realmid=" + QByteArray::number(selected) + '\n'));
}

void putEntry(Values* values, int n, const RealmEntry& entry)
{
    const QString prefix = "realms/" + QString::number(n) + '-';
    values->insert(prefix + "realmName", entry.name);
    values->insert(prefix + "realmHost", entry.host);
    values->insert(prefix + "clientPath", entry.path);
    values->insert(prefix + "testRealm", entry.testRealm);
    values->insert(prefix + "language", entry.language);
}

/// What the file must hold: these entries, this selection, nothing else.
Values storeOf(const QList<RealmEntry>& list, int selected)
{
    Values values{ { "realms/size", QByteArray::number(list.size()) },
                   { "selected_realm/realmid", QByteArray::number(selected) } };
    for (int i = 0; i < list.size(); ++i)
        putEntry(&values, i + 1, list.at(i));
    return values;
}

/// The list without the entry that removing number n hits. A number past the
/// end hits the last one; those behind the gap lose their language.
QList<RealmEntry> without(QList<RealmEntry> list, int n)
{
    const qsizetype hit = qMin<qsizetype>(n, list.size()) - 1;
    list.removeAt(hit);
    for (qsizetype i = hit; i < list.size(); ++i)
        list[i].language = "deDE";
    return list;
}

int selectionWithout(int selected, int n, qsizetype countAfterwards)
{
    if (selected == n)
        return countAfterwards > 0 ? 1 : 0;
    return selected < n ? selected : selected - 1;
}

} // namespace

/// Adding, writing and removing whole entries.
class tst_SettingsEntries : public QObject {
    Q_OBJECT

private slots:
    void init()
    {
        ApplicationFolder::clear();
        QTest::failOnWarning(QRegularExpression(".*"));
    }

    void addAppends_data()
    {
        QTest::addColumn<int>("count");
        QTest::addColumn<int>("selected");
        QTest::addColumn<int>("selectedAfterwards");
        QTest::newRow("first entry becomes selected") << 0 << 0 << 1;
        QTest::newRow("first entry, stray selection") << 0 << 5 << 1;
        QTest::newRow("second entry") << 1 << 1 << 1;
        QTest::newRow("second entry, nothing selected") << 1 << 0 << 0;
        QTest::newRow("fourth entry") << 3 << 2 << 2;
        QTest::newRow("tenth entry") << 9 << 9 << 9;
    }

    void addAppends()
    {
        QFETCH(int, count);
        QFETCH(int, selected);
        QFETCH(int, selectedAfterwards);
        writeStore(count, selected);
        SettingsHandler::addClient("New", "new.test", "/new", true);
        const RealmEntry added{
            .name = "New", .host = "new.test", .path = "/new", .testRealm = "true"
        };
        QCOMPARE(realmsIniValues(), storeOf(entries(count) << added, selectedAfterwards));
    }

    void addWritesTheMarkAsText_data()
    {
        QTest::addColumn<bool>("testRealm");
        QTest::addColumn<QByteArray>("text");
        QTest::newRow("test realm") << true << QByteArray("true");
        QTest::newRow("ordinary realm") << false << QByteArray("false");
    }

    void addWritesTheMarkAsText()
    {
        QFETCH(bool, testRealm);
        writeStore(0, 0);
        SettingsHandler::addClient("A", "logon.test", "/games", testRealm);
        QTEST(realmsIniValues().value("realms/1-testRealm"), "text");
        QCOMPARE(SettingsHandler::getTestRealm(1), testRealm);
    }

    void addLeavesTheSelectionUnwrittenFromTheSecondEntryOn()
    {
        writeRealmsIni(realmsIniWith(entries(1), ""));
        SettingsHandler::addClient("B", "logon.test", "/games", false);
        QVERIFY(!realmsIniValues().contains("selected_realm/realmid"));
    }

    void addReplacesWhatIsLeftUnderItsNumber()
    {
        writeRealmsIni("[realms]\nsize=0\n1-realmName=Old\n1-language=frFR\n1-testRealm=true\n");
        SettingsHandler::addClient("New", "new.test", "/new", false);
        const RealmEntry added{ .name = "New", .host = "new.test", .path = "/new" };
        QCOMPARE(realmsIniValues(), storeOf({ added }, 1));
    }

    void writeChangesFiveKeysOnly_data()
    {
        QTest::addColumn<int>("n");
        QTest::newRow("an entry") << 2;
        QTest::newRow("one past the end") << 4;
        QTest::newRow("far past the end") << 70;
        QTest::newRow("entry 0") << 0;
    }

    void writeChangesFiveKeysOnly()
    {
        QFETCH(int, n);
        writeStore(3, 3);
        SettingsHandler::writeClient(n, "New", "new.test", "/new", false, "frFR");
        Values expected = storeOf(entries(3), 3);
        putEntry(
            &expected, n,
            { .name = "New", .host = "new.test", .path = "/new", .language = "frFR" });
        QCOMPARE(realmsIniValues(), expected);
    }

    void writeCreatesNoCount()
    {
        writeRealmsIni("\n");
        SettingsHandler::writeClient(1, "New", "new.test", "/new", false, "frFR");
        QCOMPARE(realmsIniValues().size(), 5);
        QCOMPARE(SettingsHandler::getClientCount(), 0);
        QCOMPARE(SettingsHandler::getRealmName(1), "New");
    }

    void removingKeysKeepsTheRest_data()
    {
        QTest::addColumn<int>("n");
        QTest::newRow("first") << 1;
        QTest::newRow("with a neighbour of two digits") << 2;
        QTest::newRow("last") << 12;
        QTest::newRow("past the end") << 13;
    }

    void removingKeysKeepsTheRest()
    {
        QFETCH(int, n);
        writeStore(12, 2);
        Values expected = realmsIniValues();
        for (const char* field :
             { "realmName", "realmHost", "clientPath", "testRealm", "language" })
            expected.remove("realms/" + QString::number(n) + '-' + field);
        SettingsHandler::removeClientKeys(n);
        QCOMPARE(realmsIniValues(), expected);
    }

    void removingKeysKeepsForeignOnes()
    {
        writeRealmsIni("[realms]\n1-realmName=A\n1-remark=mine\n1-realmNames=B\n");
        SettingsHandler::removeClientKeys(1);
        const Values expected{ { "realms/1-remark", "mine" }, { "realms/1-realmNames", "B" } };
        QCOMPARE(realmsIniValues(), expected);
    }

    void removeClosesTheGap_data()
    {
        QTest::addColumn<int>("count");
        QTest::addColumn<int>("n");
        QTest::addColumn<int>("selected");
        QTest::addColumn<QStringList>("names");
        QTest::addColumn<int>("selectedAfterwards");
        const auto row = [](const char* tag, int count, int n, int selected,
                            const QStringList& names, int selectedAfterwards) {
            QTest::newRow(tag) << count << n << selected << names << selectedAfterwards;
        };
        row("2 of 4, later one selected", 4, 2, 4, { "A", "C", "D" }, 3);
        row("2 of 4, earlier one selected", 4, 2, 1, { "A", "C", "D" }, 1);
        row("2 of 4, itself selected", 4, 2, 2, { "A", "C", "D" }, 1);
        row("2 of 4, nothing selected", 4, 2, 0, { "A", "C", "D" }, 0);
        row("first, itself selected", 3, 1, 1, { "B", "C" }, 1);
        row("first, next one selected", 3, 1, 2, { "B", "C" }, 1);
        row("last, itself selected", 3, 3, 3, { "A", "B" }, 1);
        row("last, earlier one selected", 3, 3, 2, { "A", "B" }, 2);
        row("only entry", 1, 1, 1, {}, 0);
        row("only entry, nothing selected", 1, 1, 0, {}, 0);
        row("past the end removes the last", 3, 7, 1, { "A", "B" }, 1);
        row("past the end, last one selected", 3, 7, 3, { "A", "B" }, 3);
        row("past the end, same stray selection", 3, 7, 7, { "A", "B" }, 1);
        row("past the end, later stray selection", 3, 7, 8, { "A", "B" }, 7);
        row("past the only entry", 1, 2, 1, {}, 1);
        row("past the only entry, same stray selection", 1, 2, 2, {}, 0);
    }

    void removeClosesTheGap()
    {
        QFETCH(int, count);
        QFETCH(int, n);
        QFETCH(int, selected);
        writeStore(count, selected);
        SettingsHandler::removeClient(n);
        QTEST(storedRealmNames(), "names");
        QTEST(SettingsHandler::getSelectedRealm(), "selectedAfterwards");
        QCOMPARE(realmsIniValues().value("realms/size"), QByteArray::number(count - 1));
    }

    void removeMatchesTheModel_data()
    {
        QTest::addColumn<int>("count");
        QTest::addColumn<int>("n");
        for (int count = 1; count <= 5; ++count) {
            for (int n = 1; n <= count + 2; ++n)
                QTest::addRow("%d of %d", n, count) << count << n;
        }
    }

    /// Every key of the file, for every selection.
    void removeMatchesTheModel()
    {
        QFETCH(int, count);
        QFETCH(int, n);
        const QList<RealmEntry> left = without(entries(count), n);
        for (int selected = 0; selected <= count + 3; ++selected) {
            writeStore(count, selected);
            SettingsHandler::removeClient(n);
            QCOMPARE(realmsIniValues(), storeOf(left, selectionWithout(selected, n, left.size())));
        }
    }

    void movedEntriesLoseTheLanguageSetByHand()
    {
        writeStore(4, 1);
        SettingsHandler::removeClient(2);
        QCOMPARE(SettingsHandler::getLanguage(1), "enUS");
        QCOMPARE(SettingsHandler::getLanguage(2), "deDE");
        QCOMPARE(SettingsHandler::getLanguage(3), "deDE");
    }

    void missingValuesOfAMovedEntryBecomeDefaults()
    {
        writeRealmsIni(
            "[realms]\nsize=3\n1-realmName=A\n3-realmName=C\n\n[selected_realm]\nrealmid=1\n");
        SettingsHandler::removeClient(1);
        const RealmEntry empty{
            .name = "", .host = HALDEN_DEFAULT_REALM_HOST, .path = "", .language = "deDE"
        };
        RealmEntry moved = empty;
        moved.name = "C";
        QCOMPARE(realmsIniValues(), storeOf({ empty, moved }, 1));
    }

    void removingWritesASelectionOnlyWhenItChanges()
    {
        writeRealmsIni(realmsIniWith(entries(2), ""));
        SettingsHandler::removeClient(2);
        QVERIFY(!realmsIniValues().contains("selected_realm/realmid"));
    }

    void removingNothing_data()
    {
        QTest::addColumn<int>("count");
        QTest::addColumn<int>("n");
        QTest::newRow("entry 0") << 3 << 0;
        QTest::newRow("entry -1") << 3 << -1;
        QTest::newRow("smallest number") << 3 << INT_MIN;
        QTest::newRow("empty store, entry 0") << 0 << 0;
        QTest::newRow("empty store, smallest number") << 0 << INT_MIN;
    }

    void removingNothing()
    {
        QFETCH(int, count);
        QFETCH(int, n);
        writeStore(count, count);
        const QByteArray before = readFile(realmsIniPath());
        SettingsHandler::removeClient(n);
        QCOMPARE(readFile(realmsIniPath()), before);
    }

    void removingFromAnEmptyStoreCountsOneLess_data()
    {
        QTest::addColumn<int>("n");
        QTest::addColumn<int>("selected");
        QTest::addColumn<int>("selectedAfterwards");
        QTest::newRow("nothing selected") << 1 << 0 << 0;
        QTest::newRow("stray selection") << 1 << 1 << 0;
        QTest::newRow("later stray selection") << 1 << 3 << 2;
        QTest::newRow("far past the end") << INT_MAX << 1 << 1;
    }

    void removingFromAnEmptyStoreCountsOneLess()
    {
        QFETCH(int, n);
        QFETCH(int, selected);
        QFETCH(int, selectedAfterwards);
        writeStore(0, selected);
        SettingsHandler::removeClient(n);
        const Values expected{ { "realms/size", "-1" },
                               { "selected_realm/realmid",
                                 QByteArray::number(selectedAfterwards) } };
        QCOMPARE(realmsIniValues(), expected);
    }

    void removingFromNoFile()
    {
        SettingsHandler::removeClientKeys(1);
        QVERIFY(!QFileInfo::exists(ApplicationFolder::path("Settings")));
        SettingsHandler::removeClient(1);
        const Values expected{ { "realms/size", "-1" } };
        QCOMPARE(realmsIniValues(), expected);
    }

    /// Each step as it stands, however many entries there are.
    void entriesBeyondAThousand()
    {
        QList<RealmEntry> many;
        for (int n = 1; n <= 1'001; ++n)
            many.append({ "Realm " + QByteArray::number(n) });
        writeRealmsIni(realmsIniWith(many, "realmid=1001\n"));
        SettingsHandler::addClient("added", "logon.test", "/games/wow", false);
        many.append({ "added" });
        QCOMPARE(realmsIniValues(), storeOf(many, 1'001));
        SettingsHandler::removeClient(1'000);
        many.removeAt(999);
        QCOMPARE(realmsIniValues(), storeOf(many, 1'000));
        SettingsHandler::removeClient(1);
        many.removeFirst();
        QCOMPARE(realmsIniValues(), storeOf(many, 999));
    }

    void entriesComeAndGo()
    {
        writeRealmsIni("\n");
        for (const char* name : { "A", "B", "C" })
            SettingsHandler::addClient(name, "logon.test", "/games", false);
        SettingsHandler::removeClient(1);
        SettingsHandler::addClient("D", "logon.test", "/games", false);
        QCOMPARE(storedRealmNames(), QStringList({ "B", "C", "D" }));
        for (int i = 0; i < 3; ++i)
            SettingsHandler::removeClient(1);
        const Values expected{ { "realms/size", "0" }, { "selected_realm/realmid", "0" } };
        QCOMPARE(realmsIniValues(), expected);
    }
};

HALDEN_TEST_MAIN(tst_SettingsEntries)
#include "tst_settingsentries.moc"
