#include "tests/support/applicationfolder.h"
#include "tests/support/logcapture.h"
#include "tests/support/realmsini.h"
#include "tests/support/testmain.h"
#include "tests/support/widgets.h"
#include "tests/ui/formsundertest.h"
#include "ui/mainwindow.h"

#include <QDialogButtonBox>
#include <QIcon>

#include <memory>

using namespace TestSupport;

namespace {

const QColor gold(255, 215, 0, 255);
const QColor grey(120, 120, 120, 255);

/// A property, or "fontSize", "fontWeight" and "className".
QVariant valueOf(const QWidget* widget, const QString& property)
{
    if (property == "className")
        return QString(widget->metaObject()->className());
    if (property == "fontSize")
        return widget->font().pointSize();
    if (property == "fontWeight")
        return widget->font().weight();
    const QVariant value = widget->property(property.toUtf8());
    // Rows hold enumerators and flags as numbers.
    return value.metaType().flags() & QMetaType::IsEnumeration ? value.toInt() : value;
}

void columns()
{
    QTest::addColumn<QString>("form");
    QTest::addColumn<QString>("widget");
    QTest::addColumn<QString>("property");
    QTest::addColumn<QVariant>("value");
}

void row(const QString& form, const QString& widget, const QString& property, const QVariant& value)
{
    QTest::newRow(qPrintable(form + ' ' + widget + ' ' + property))
        << form << widget << property << value;
}

void placed(const QString& form, const QString& widget, const QString& type, const QRect& geometry)
{
    row(form, widget, "className", type);
    row(form, widget, "geometry", geometry);
}

void addAddClientDialogRows()
{
    const QString form = "AddClientDialog";
    placed(form, "buttonBox", "QDialogButtonBox", { 50, 350, 341, 32 });
    placed(form, "label_RealmName", "QLabel", { 50, 40, 100, 50 });
    placed(form, "label_RealmURL", "QLabel", { 50, 110, 100, 50 });
    placed(form, "lineEdit_RealmName", "QLineEdit", { 170, 40, 200, 50 });
    placed(form, "lineEdit_RealmURL", "QLineEdit", { 170, 110, 200, 50 });
    placed(form, "label_ClientPath", "QLabel", { 50, 180, 100, 50 });
    placed(form, "pushButton_SelectPath", "QPushButton", { 170, 229, 200, 31 });
    placed(form, "label_UserInteractionError_general", "QLabel", { 50, 320, 341, 31 });
    placed(form, "checkBox_TestRealm", "QCheckBox", { 170, 260, 201, 17 });
    placed(form, "label_UserInteractionError_path", "QLabel", { 50, 290, 341, 31 });
    placed(form, "lineEdit_RealmPath", "QLineEdit", { 170, 179, 200, 41 });
    row(form, "label_RealmName", "text", "Realm Name :");
    row(form, "label_RealmURL", "text", "Realm URL :");
    row(form, "label_ClientPath", "text", "Client Pfad: ");
    row(form, "pushButton_SelectPath", "text", "Wähle Pfad");
    row(form, "label_UserInteractionError_general", "text",
        "Bitte überprüfen Sie, dass sie alle Felder ausgefüllt haben");
    row(form, "label_UserInteractionError_path", "text", "Bitte wählen Sie einen WoW Order aus!");
    row(form, "checkBox_TestRealm", "text", "TestRealm");
    row(form, "checkBox_TestRealm", "toolTip", testRealmToolTip);
    row(form, "checkBox_TestRealm", "tristate", false);
    for (const char* label : { "label_RealmName", "label_RealmURL", "label_ClientPath" })
        row(form, label, "fontSize", 12);
    row(form, form, "windowTitle", "Halden Launcher Client hinzufügen");
    row(form, form, "size", QSize(428, 407));
}

void addSelectionDialogRows(const QString& form, const QString& text)
{
    placed(form, "buttonBox", "QDialogButtonBox", { 30, 240, 341, 32 });
    placed(form, "label_RemoveClient", "QLabel", { 0, 0, 400, 50 });
    placed(form, "comboBox_RemoveClient", "QComboBox", { 100, 100, 200, 50 });
    row(form, "label_RemoveClient", "text", text);
    row(form, "label_RemoveClient", "fontSize", 12);
    row(form, "label_RemoveClient", "fontWeight", 700);
    row(form, "label_RemoveClient", "layoutDirection", Qt::LeftToRight);
    row(form, "label_RemoveClient", "alignment", int(Qt::AlignCenter));
    row(form, "comboBox_RemoveClient", "fontSize", 12);
    row(form, form, "windowTitle", "Halden Launcher Entferne Client");
    row(form, form, "size", QSize(400, 300));
}

void addButtonBoxRows(const QString& form)
{
    row(form, "buttonBox", "orientation", Qt::Horizontal);
    row(form, "buttonBox", "standardButtons", int(QDialogButtonBox::Ok | QDialogButtonBox::Cancel));
}

void addMainWindowButtonRow(const QString& widget, const QRect& geometry, const QString& text)
{
    placed("MainWindow", widget, "QPushButton", geometry);
    row("MainWindow", widget, "text", text);
}

void addMainWindowWidgetRows()
{
    const QString form = "MainWindow";
    addMainWindowButtonRow("pushButton_StartWoW", { 830, 530, 340, 30 }, "Start WoW");
    addMainWindowButtonRow("pushButton_EditClient", { 945, 600, 110, 30 }, "Client editieren");
    addMainWindowButtonRow("pushButton_RemoveClient", { 1060, 600, 110, 30 }, "Client entfernen");
    addMainWindowButtonRow("pushButton_AddClient", { 830, 600, 110, 30 }, "Client hinzufügen");
    addMainWindowButtonRow("pushButton_Open_Client", { 830, 635, 340, 30 }, "Open Client Folder");
    addMainWindowButtonRow(
        "pushButton_Open_SettingsFolder", { 830, 670, 340, 30 }, "Open Settings Folder");
    addMainWindowButtonRow(
        "pushButton_Start_patchless_WoW", { 830, 565, 340, 31 }, "Start patchless WoW.exe");
    placed(form, "comboBox_RealmSelector", "QComboBox", { 830, 490, 341, 31 });
    row(form, "comboBox_RealmSelector", "toolTip", selectorToolTip);
    row(form, "comboBox_RealmSelector", "whatsThis", selectorWhatsThis);
    row(form, "comboBox_RealmSelector", "styleSheet", "::down-arrow { top: 10px;\nleft: 10px;\n}");
    placed(form, "label_Version", "QLabel", { 30, 680, 221, 20 });
    row(form, "label_Version", "text", "Version: 1.2.3-test");
    row(form, "label_Version", "fontSize", 12);
    row(form, "label_Version", "fontWeight", 700);
    placed(form, "progressBar_Downloads", "QProgressBar", { 30, 650, 661, 23 });
    row(form, "progressBar_Downloads", "value", 0);
    placed(form, "label_Download", "QLabel", { 30, 630, 611, 20 });
    row(form, "label_Download", "fontSize", 11);
    row(form, "label_Download", "fontWeight", 700);
    row(form, "label_Download", "alignment", int(Qt::AlignLeft | Qt::AlignVCenter));
    placed(form, "textBrowser_launcherInfo", "QTextBrowser", { 30, 200, 311, 391 });
}

void addMainWindowRows()
{
    const QString form = "MainWindow";
    row(form, "centralwidget", "className", "QWidget");
    row(form, "centralwidget", "styleSheet", "");
    row(form, form, "windowTitle", "Halden Launcher");
    row(form, form, "windowModality", Qt::WindowModal);
    row(form, form, "size", QSize(1178, 707));
    row(form, form, "minimumSize", QSize(900, 600));
    row(form, form, "maximumSize", QSize(1600, 900));
    row(form, form, "sizePolicy",
        QSizePolicy(QSizePolicy::MinimumExpanding, QSizePolicy::MinimumExpanding));
    row(form, form, "styleSheet",
        "MainWindow { border-image: url(:/images/ressources/background.jpg)"
        " 0 0 0 0 stretch stretch;}");
}

} // namespace

/// How the forms look to the player. The main window is looked at after its
/// construction, with the version and the style sheet that it sets itself.
class tst_Forms : public FormTest {
    Q_OBJECT

private slots:
    void properties_data()
    {
        columns();
        addAddClientDialogRows();
        addSelectionDialogRows(
            "editClientSelectDialog", "Wähle den Client aus der editiert werden soll");
        addSelectionDialogRows(
            "RemoveClientDialog", "Wähle den Client aus der Entfernt werden soll");
        for (const char* dialog :
             { "AddClientDialog", "editClientSelectDialog", "RemoveClientDialog" }) {
            addButtonBoxRows(dialog);
        }
        addMainWindowRows();
        addMainWindowWidgetRows();
    }

    void properties()
    {
        QFETCH(QString, form);
        QFETCH(QString, widget);
        QFETCH(QString, property);
        const Form window = makeForm(form);
        QTEST(valueOf(widgetOf(window, widget), property), "value");
    }

    void formsAreNamedAfterTheirClass_data()
    {
        addFormNames();
    }

    void formsAreNamedAfterTheirClass()
    {
        QFETCH(QString, form);
        const Form window = makeForm(form);
        QCOMPARE(window->objectName(), form);
        QCOMPARE(window->metaObject()->className(), form.toUtf8());
    }

    void goldPalette_data()
    {
        QTest::addColumn<QString>("widget");
        QTest::addColumn<QPalette::ColorGroup>("group");
        QTest::addColumn<QColor>("colour");
        for (const char* widget : { "label_Version", "progressBar_Downloads", "label_Download" }) {
            const QString name = widget;
            QTest::newRow(qPrintable(name + " active")) << name << QPalette::Active << gold;
            QTest::newRow(qPrintable(name + " inactive")) << name << QPalette::Inactive << gold;
            QTest::newRow(qPrintable(name + " disabled")) << name << QPalette::Disabled << grey;
        }
    }

    void goldPalette()
    {
        QFETCH(QString, widget);
        QFETCH(QPalette::ColorGroup, group);
        const auto window = std::make_unique<MainWindow>();
        const QPalette palette = child<QWidget>(window.get(), widget)->palette();
        QVERIFY(palette.isBrushSet(group, QPalette::WindowText));
        QCOMPARE(palette.brush(group, QPalette::WindowText).style(), Qt::SolidPattern);
        QTEST(palette.color(group, QPalette::WindowText), "colour");
    }

    /// The colours are for these three: other labels keep the style's own.
    void otherWidgetsKeepTheirPalette()
    {
        const auto window = std::make_unique<MainWindow>();
        for (const char* name :
             { "pushButton_StartWoW", "comboBox_RealmSelector", "textBrowser_launcherInfo" }) {
            const QPalette palette = child<QWidget>(window.get(), name)->palette();
            QVERIFY2(palette.color(QPalette::Active, QPalette::WindowText) != gold, name);
        }
    }

    void fontsAreOtherwiseTheDefault_data()
    {
        QTest::addColumn<QString>("form");
        QTest::addColumn<QString>("widget");
        QTest::newRow("line edit") << "AddClientDialog"
                                   << "lineEdit_RealmName";
        QTest::newRow("folder button") << "AddClientDialog"
                                       << "pushButton_SelectPath";
        QTest::newRow("error label") << "AddClientDialog"
                                     << "label_UserInteractionError_path";
        QTest::newRow("check box") << "AddClientDialog"
                                   << "checkBox_TestRealm";
        QTest::newRow("start button") << "MainWindow"
                                      << "pushButton_StartWoW";
        QTest::newRow("selector") << "MainWindow"
                                  << "comboBox_RealmSelector";
    }

    void fontsAreOtherwiseTheDefault()
    {
        QFETCH(QString, form);
        QFETCH(QString, widget);
        const Form window = makeForm(form);
        QCOMPARE(widgetOf(window, widget)->font().pointSize(), QApplication::font().pointSize());
    }

    void windowBearsTheLogo()
    {
        const auto window = std::make_unique<MainWindow>();
        const QIcon logo(":/icons/Halden-Logo.ico");
        QVERIFY(!logo.pixmap(32).isNull());
        QCOMPARE(window->windowIcon().pixmap(32).toImage(), logo.pixmap(32).toImage());
    }

private:
    /// The window under construction tells of its start-up, which is not what is
    /// looked at here.
};

HALDEN_TEST_MAIN(tst_Forms)
#include "tst_forms.moc"
