#include "tests/support/applicationfolder.h"
#include "tests/support/logcapture.h"
#include "tests/support/realmsini.h"
#include "tests/support/testmain.h"
#include "tests/support/widgets.h"
#include "tests/ui/formsundertest.h"
#include "ui/mainwindow.h"

#include <QLayout>
#include <QTranslator>

#include <memory>

using namespace TestSupport;

namespace {

/// Notes every text that is looked up, as "context: text".
class RecordingTranslator : public QTranslator {
    Q_OBJECT

public:
    QString translate(const char* context, const char* source, const char*, int) const override
    {
        lookedUp.append(QString::fromUtf8(context) + ": " + QString::fromUtf8(source));
        return QString::fromUtf8(source);
    }
    bool isEmpty() const override
    {
        return false;
    }

    mutable QStringList lookedUp;
};

/// Names of the widgets that a form has placed, in the order of creation. The
/// toolkit's own helpers have names that begin with "qt_" or none.
QStringList childNames(const QWidget* parent)
{
    QStringList names;
    const auto children = parent->findChildren<QWidget*>(Qt::FindDirectChildrenOnly);
    for (const QWidget* widget : children) {
        if (!widget->objectName().isEmpty() && !widget->objectName().startsWith("qt_"))
            names.append(widget->objectName());
    }
    return names;
}

bool anyWidget(const QWidget*)
{
    return true;
}

bool tabStop(const QWidget* widget)
{
    return (widget->focusPolicy() & Qt::TabFocus) != 0;
}

/// Names of `first` and its siblings in the order of the focus chain, as far as
/// they pass the filter.
QStringList focusChain(const QWidget* first, bool (*filter)(const QWidget*))
{
    QStringList names;
    const QWidget* widget = first;
    do {
        if (widget->parentWidget() == first->parentWidget() && filter(widget))
            names.append(widget->objectName());
        widget = widget->nextInFocusChain();
    } while (widget != first);
    return names;
}

QString layoutOf(const QWidget* widget)
{
    return widget->layout() ? widget->layout()->metaObject()->className() : "";
}

QByteArray generatedForm(const QString& name)
{
    return readFile(QStringLiteral(HALDEN_TEST_FORM_HEADERS) + "/ui_" + name.toLower() + ".h");
}

} // namespace

/// How the forms are put together: order, focus, connections, translation.
class tst_FormStructure : public FormTest {
    Q_OBJECT

private slots:
    /// A form keeps the name of a widget that has one.
    void formsRespectAnObjectName_data()
    {
        addFormNames();
    }

    void formsRespectAnObjectName()
    {
        QFETCH(QString, form);
        QVERIFY2(
            generatedForm(form).contains(
                "if (" + form.toUtf8() + "->objectName().isEmpty())\n            " + form.toUtf8()
                + "->setObjectName(\"" + form.toUtf8() + "\");"),
            "the object name must be set only if it is empty");
    }

    void widgetsAreCreatedInOrder_data()
    {
        QTest::addColumn<QString>("form");
        QTest::addColumn<QStringList>("names");
        QTest::newRow("add") << "AddClientDialog"
                             << QStringList{ "buttonBox",
                                             "label_RealmName",
                                             "label_RealmURL",
                                             "lineEdit_RealmName",
                                             "lineEdit_RealmURL",
                                             "label_ClientPath",
                                             "pushButton_SelectPath",
                                             "label_UserInteractionError_general",
                                             "checkBox_TestRealm",
                                             "label_UserInteractionError_path",
                                             "lineEdit_RealmPath" };
        const QStringList selection{ "buttonBox", "label_RemoveClient", "comboBox_RemoveClient" };
        QTest::newRow("edit") << "editClientSelectDialog" << selection;
        QTest::newRow("remove") << "RemoveClientDialog" << selection;
        QTest::newRow("main window") << "MainWindow" << QStringList{ "centralwidget" };
    }

    void widgetsAreCreatedInOrder()
    {
        QFETCH(QString, form);
        QTEST(childNames(makeForm(form).get()), "names");
    }

    void everythingInTheWindowStandsOnItsCentralWidget()
    {
        const auto window = std::make_unique<MainWindow>();
        const QStringList names{ "pushButton_StartWoW",
                                 "comboBox_RealmSelector",
                                 "label_Version",
                                 "progressBar_Downloads",
                                 "label_Download",
                                 "pushButton_EditClient",
                                 "pushButton_RemoveClient",
                                 "pushButton_AddClient",
                                 "textBrowser_launcherInfo",
                                 "pushButton_Open_Client",
                                 "pushButton_Open_SettingsFolder",
                                 "pushButton_Start_patchless_WoW" };
        QCOMPARE(window->centralWidget()->objectName(), "centralwidget");
        QCOMPARE(childNames(window->centralWidget()), names);
    }

    void focusFollowsTheOrderOfCreation_data()
    {
        QTest::addColumn<QString>("form");
        for (const QString& name : formNames().mid(0, 3))
            QTest::newRow(qPrintable(name)) << name;
    }

    void focusFollowsTheOrderOfCreation()
    {
        QFETCH(QString, form);
        const Form dialog = makeForm(form);
        const auto* buttons = child<QWidget>(dialog.get(), "buttonBox");
        QCOMPARE(focusChain(buttons, anyWidget), childNames(dialog.get()));
    }

    void buttonBoxLeadsTheFocusChain()
    {
        const Form dialog = makeForm("AddClientDialog");
        QCOMPARE(dialog->nextInFocusChain()->objectName(), "buttonBox");
    }

    void tabOrderOfTheWindow()
    {
        const auto window = std::make_unique<MainWindow>();
        const QStringList chain
            = focusChain(child<QWidget>(window.get(), "pushButton_StartWoW"), tabStop);
        const QStringList wanted{ "pushButton_StartWoW", "comboBox_RealmSelector",
                                  "pushButton_AddClient", "pushButton_EditClient",
                                  "pushButton_RemoveClient" };
        QCOMPARE(chain.first(5), wanted);
    }

    void noFormHasALayout_data()
    {
        QTest::addColumn<QString>("form");
        QTest::addColumn<QString>("container");
        for (const QString& name : formNames().mid(0, 3))
            QTest::newRow(qPrintable(name)) << name << name;
        QTest::newRow("central widget") << "MainWindow"
                                        << "centralwidget";
    }

    void noFormHasALayout()
    {
        QFETCH(QString, form);
        QFETCH(QString, container);
        const Form window = makeForm(form);
        QCOMPARE(layoutOf(widgetOf(window, container)), "");
    }

    void textsAreTranslatedInTheFormsContext_data()
    {
        QTest::addColumn<QString>("form");
        QTest::addColumn<QStringList>("texts");
        QTest::newRow("add") << "AddClientDialog"
                             << QStringList{
                                    "Halden Launcher Client hinzufügen",
                                    "Realm Name :",
                                    "Realm URL :",
                                    "Client Pfad: ",
                                    "Wähle Pfad",
                                    "Bitte überprüfen Sie, dass sie alle Felder ausgefüllt haben",
                                    testRealmToolTip,
                                    "TestRealm",
                                    "Bitte wählen Sie einen WoW Order aus!"
                                };
        QTest::newRow("edit") << "editClientSelectDialog"
                              << QStringList{ "Halden Launcher Entferne Client",
                                              "Wähle den Client aus der editiert werden soll" };
        QTest::newRow("remove") << "RemoveClientDialog"
                                << QStringList{ "Halden Launcher Entferne Client",
                                                "Wähle den Client aus der Entfernt werden soll" };
        QTest::newRow("main window") << "MainWindow" << QStringList{ "Halden Launcher",
                                                                     "Start WoW",
                                                                     selectorToolTip,
                                                                     selectorWhatsThis,
                                                                     "Version:",
                                                                     "Current Download: ",
                                                                     "Client editieren",
                                                                     "Client entfernen",
                                                                     "Client hinzufügen",
                                                                     "Open Client Folder",
                                                                     "Open Settings Folder",
                                                                     "Start patchless WoW.exe" };
    }

    void textsAreTranslatedInTheFormsContext()
    {
        QFETCH(QString, form);
        QFETCH(QStringList, texts);
        RecordingTranslator translator;
        QVERIFY(QCoreApplication::installTranslator(&translator));
        makeForm(form).reset();
        QCoreApplication::removeTranslator(&translator);
        QStringList lookedUp = translator.lookedUp.filter(form + ": ");
        lookedUp.replaceInStrings(form + ": ", "");
        QCOMPARE(lookedUp, texts);
    }

    void bindsTheSlotsByName_data()
    {
        addFormNames();
    }

    void bindsTheSlotsByName()
    {
        QFETCH(QString, form);
        const QByteArray header = generatedForm(form);
        const QByteArray call = "QMetaObject::connectSlotsByName(" + form.toUtf8() + ");";
        QCOMPARE(header.count(call), 1);
        QVERIFY2(
            header.lastIndexOf("QObject::connect(") < header.indexOf(call),
            "the form ends with the binding by name");
    }

    void connectsBySignature_data()
    {
        QTest::addColumn<QString>("form");
        QTest::addColumn<QList<QByteArray>>("connections");
        const auto selection = [](const QByteArray& name) {
            return QList<QByteArray>{
                "QObject::connect(buttonBox, SIGNAL(accepted()), " + name + ", SLOT(accept()));",
                "QObject::connect(buttonBox, SIGNAL(rejected()), " + name + ", SLOT(reject()));"
            };
        };
        QTest::newRow("add") << "AddClientDialog" << QList<QByteArray>();
        QTest::newRow("edit") << "editClientSelectDialog" << selection("editClientSelectDialog");
        QTest::newRow("remove") << "RemoveClientDialog" << selection("RemoveClientDialog");
        QTest::newRow("main window") << "MainWindow" << QList<QByteArray>();
    }

    void connectsBySignature()
    {
        QFETCH(QString, form);
        QList<QByteArray> found;
        for (const QByteArray& line : generatedForm(form).split('\n')) {
            if (line.contains("QObject::connect("))
                found.append(line.trimmed());
        }
        QTEST(found, "connections");
    }

private:
    /// The window under construction tells of its start-up, which is not what is
    /// looked at here.
};

HALDEN_TEST_MAIN(tst_FormStructure)
#include "tst_formstructure.moc"
