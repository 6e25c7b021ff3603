#include "tests/support/applicationfolder.h"
#include "tests/support/realmsini.h"
#include "tests/support/testmain.h"
#include "tests/support/widgets.h"
#include "ui/editclientselectdialog.h"
#include "ui/removeclientdialog.h"

#include <QComboBox>
#include <QSignalSpy>

#include <memory>

using namespace TestSupport;

namespace {

/// One of the two dialogs and its chosen number.
struct Selection {
    std::unique_ptr<QDialog> dialog;
    std::function<int()> number;

    QComboBox* list() const
    {
        return child<QComboBox>(dialog.get(), "comboBox_RemoveClient");
    }
};

template <typename Dialog> Selection make(QWidget* parent)
{
    auto dialog = std::make_unique<Dialog>(parent);
    const Dialog* chosen = dialog.get();
    return { std::move(dialog), [chosen] {
                return chosen->getSelectedIndex();
            } };
}

Selection makeNamed(const QString& name, QWidget* parent = nullptr)
{
    return name == "remove" ? make<RemoveClientDialog>(parent)
                            : make<editClientSelectDialog>(parent);
}

Selection open(const QString& name)
{
    Selection selection = makeNamed(name);
    selection.dialog->open();
    if (!QTest::qWaitForWindowActive(selection.dialog.get()))
        qFatal("the dialog did not become active");
    return selection;
}

QStringList texts(const QComboBox* list)
{
    QStringList items;
    for (int i = 0; i < list->count(); ++i)
        items.append(list->itemText(i));
    return items;
}

QByteArray threeEntries()
{
    return realmsIniWith(
        { { .name = "Eins" }, { .name = "Zwei" }, { .name = "Drei" } }, "realmid=3\n");
}

void addDialogRows()
{
    QTest::addColumn<QString>("name");
    QTest::newRow("edit") << "edit";
    QTest::newRow("remove") << "remove";
}

} // namespace

/// The two dialogs that pick an entry; each test runs on both.
class tst_SelectionDialogs : public QObject {
    Q_OBJECT

private slots:
    void init()
    {
        ApplicationFolder::clear();
        failOnWarnings();
        writeRealmsIni(threeEntries());
    }

    void listsTheEntries_data()
    {
        QTest::addColumn<QString>("name");
        QTest::addColumn<QByteArray>("content");
        QTest::addColumn<QStringList>("items");
        for (const char* dialog : { "edit", "remove" }) {
            const auto row
                = [dialog](const char* tag, const QByteArray& content, const QStringList& items) {
                      QTest::addRow("%s: %s", dialog, tag) << QString(dialog) << content << items;
                  };
            row("three in entry order", threeEntries(), { "Eins", "Zwei", "Drei" });
            row("one", realmsIniWith({ { .name = "Halden" } }, ""), { "Halden" });
            row("none", realmsIniWith({}, ""), {});
            row("names alike", realmsIniWith({ { .name = "A" }, { .name = "A" } }, ""),
                { "A", "A" });
            row("a missing entry has no name", "[realms]\nsize=2\n2-realmName=B\n", { "", "B" });
            row("entries beyond the count", "[realms]\nsize=1\n1-realmName=A\n2-realmName=B\n",
                { "A" });
        }
    }

    void listsTheEntries()
    {
        QFETCH(QString, name);
        QFETCH(QByteArray, content);
        writeRealmsIni(content);
        QTEST(texts(makeNamed(name).list()), "items");
    }

    void itemsAreTextAlone_data()
    {
        addDialogRows();
    }

    void itemsAreTextAlone()
    {
        QFETCH(QString, name);
        const Selection selection = makeNamed(name);
        for (int i = 0; i < selection.list()->count(); ++i) {
            QVERIFY(selection.list()->itemIcon(i).isNull());
            QVERIFY(!selection.list()->itemData(i).isValid());
        }
        QCOMPARE(selection.list()->currentIndex(), 0);
    }

    void firstEntryIsChosenFromTheStart_data()
    {
        addDialogRows();
    }

    void firstEntryIsChosenFromTheStart()
    {
        QFETCH(QString, name);
        const Selection selection = open(name);
        QCOMPARE(selection.number(), 1);
        click(selection.dialog.get(), QDialogButtonBox::Ok);
        QCOMPARE(selection.number(), 1);
    }

    void pickingAnItemChoosesItsEntry_data()
    {
        QTest::addColumn<QString>("name");
        QTest::addColumn<QList<int>>("rows");
        QTest::addColumn<int>("number");
        for (const char* dialog : { "edit", "remove" }) {
            const auto row = [dialog](const char* tag, const QList<int>& rows, int number) {
                QTest::addRow("%s: %s", dialog, tag) << QString(dialog) << rows << number;
            };
            row("first, which is shown already", { 0 }, 1);
            row("second", { 1 }, 2);
            row("last is the count", { 2 }, 3);
            row("there and back", { 2, 0 }, 1);
            row("same one twice", { 1, 1 }, 2);
        }
    }

    void pickingAnItemChoosesItsEntry()
    {
        QFETCH(QString, name);
        QFETCH(QList<int>, rows);
        const Selection selection = open(name);
        QSignalSpy activated(selection.list(), &QComboBox::activated);
        for (const int row : rows)
            pick(selection.list(), row);
        QCOMPARE(activated.size(), rows.size());
        QTEST(selection.number(), "number");
    }

    void arrowKeysChooseToo_data()
    {
        addDialogRows();
    }

    void arrowKeysChooseToo()
    {
        QFETCH(QString, name);
        const Selection selection = open(name);
        selection.list()->setFocus();
        QTest::keyClick(selection.list(), Qt::Key_Down);
        QTest::keyClick(selection.list(), Qt::Key_Down);
        QCOMPARE(selection.number(), 3);
    }

    void onlyThePlayersChoiceCounts_data()
    {
        addDialogRows();
    }

    void onlyThePlayersChoiceCounts()
    {
        QFETCH(QString, name);
        const Selection selection = open(name);
        selection.list()->setCurrentIndex(2);
        QCOMPARE(selection.number(), 1);
    }

    void choosingLeavesTheDialogOpen_data()
    {
        addDialogRows();
    }

    void choosingLeavesTheDialogOpen()
    {
        QFETCH(QString, name);
        const Selection selection = open(name);
        pick(selection.list(), 2);
        QVERIFY(selection.dialog->isVisible());
        QCOMPARE(readFile(realmsIniPath()), threeEntries());
    }

    void closes_data()
    {
        QTest::addColumn<QString>("name");
        QTest::addColumn<QDialogButtonBox::StandardButton>("button");
        QTest::addColumn<int>("result");
        for (const char* dialog : { "edit", "remove" }) {
            QTest::addRow("%s: OK", dialog)
                << QString(dialog) << QDialogButtonBox::Ok << int(QDialog::Accepted);
            QTest::addRow("%s: Cancel", dialog)
                << QString(dialog) << QDialogButtonBox::Cancel << int(QDialog::Rejected);
        }
    }

    /// The form's own connection and the slot bound by name each end the dialog.
    void closes()
    {
        QFETCH(QString, name);
        QFETCH(QDialogButtonBox::StandardButton, button);
        QFETCH(int, result);
        const Selection selection = open(name);
        QSignalSpy finished(selection.dialog.get(), &QDialog::finished);
        selection.dialog->setResult(-1);
        pick(selection.list(), 1);
        click(selection.dialog.get(), button);
        QVERIFY(!selection.dialog->isVisible());
        QCOMPARE(selection.dialog->result(), result);
        QCOMPARE(finished, QList<QVariantList>({ { result }, { result } }));
        QCOMPARE(selection.number(), 2);
    }

    void closesByKey_data()
    {
        QTest::addColumn<QString>("name");
        QTest::addColumn<Qt::Key>("key");
        QTest::addColumn<int>("result");
        for (const char* dialog : { "edit", "remove" }) {
            QTest::addRow("%s: Return", dialog)
                << QString(dialog) << Qt::Key_Return << int(QDialog::Accepted);
            QTest::addRow("%s: Escape", dialog)
                << QString(dialog) << Qt::Key_Escape << int(QDialog::Rejected);
        }
    }

    void closesByKey()
    {
        QFETCH(QString, name);
        QFETCH(Qt::Key, key);
        const Selection selection = open(name);
        selection.dialog->setResult(-1);
        QTest::keyClick(selection.dialog.get(), key);
        QVERIFY(!selection.dialog->isVisible());
        QTEST(selection.dialog->result(), "result");
    }

    void belongsToItsParent_data()
    {
        addDialogRows();
    }

    void belongsToItsParent()
    {
        QFETCH(QString, name);
        QWidget parent;
        const Selection selection = makeNamed(name, &parent);
        QCOMPARE(selection.dialog->parentWidget(), &parent);
        QCOMPARE(selection.dialog->windowType(), Qt::Dialog);
    }
};

HALDEN_TEST_MAIN(tst_SelectionDialogs)
#include "tst_selectiondialogs.moc"
