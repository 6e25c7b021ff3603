#include "core/signalboolhelperclass.h"
#include "net/filedownloader.h"
#include "net/inithandler.h"
#include "tests/support/testmain.h"
#include "ui/addclientdialog.h"
#include "ui/editclientselectdialog.h"
#include "ui/mainwindow.h"
#include "ui/removeclientdialog.h"
#include "update/updatingprocedures.h"

#include <QMetaMethod>
#include <QMetaObject>

using MetaObjectPointer = const QMetaObject*;
Q_DECLARE_METATYPE(MetaObjectPointer)

namespace {

QString kindOf(const QMetaMethod& method)
{
    switch (method.methodType()) {
    case QMetaMethod::Signal:
        return "signal";
    case QMetaMethod::Slot:
        return "slot";
    default:
        return "neither signal nor slot";
    }
}

QString parametersOf(const QMetaMethod& method)
{
    QStringList parameters;
    const QList<QByteArray> types = method.parameterTypes();
    const QList<QByteArray> names = method.parameterNames();
    for (qsizetype i = 0; i < types.size(); ++i)
        parameters.append(QString::fromUtf8(types.at(i) + ' ' + names.at(i)).trimmed());
    return parameters.join(", ");
}

/// Kind, return type, name and parameters: "slot void show(int row)".
QString describe(const QMetaMethod& method)
{
    return kindOf(method) + ' ' + method.typeName() + ' ' + method.name() + '('
        + parametersOf(method) + ')';
}

QStringList ownMethods(const QMetaObject* type)
{
    QStringList methods;
    for (int i = type->methodOffset(); i < type->methodCount(); ++i)
        methods.append(describe(type->method(i)));
    return methods;
}

void newRow(const QMetaObject& type, const char* name, const char* base, QStringList methods)
{
    QTest::newRow(name) << &type << QString(name) << QString(base) << methods;
}

const QStringList selectionDialogMethods{
    "slot void on_buttonBox_accepted()",
    "slot void on_buttonBox_rejected()",
    "slot void comboBoxActivated(int input)",
};

void addDialogRows()
{
    newRow(
        AddClientDialog::staticMetaObject, "AddClientDialog", "QDialog",
        { "slot void on_buttonBox_rejected()", "slot void on_buttonBox_accepted()",
          "slot void on_pushButton_SelectPath_clicked()",
          "slot void on_lineEdit_RealmName_editingFinished()",
          "slot void on_lineEdit_RealmURL_editingFinished()",
          "slot void on_checkBox_TestRealm_stateChanged(int arg1)",
          "slot void on_lineEdit_RealmPath_editingFinished()" });
    newRow(
        editClientSelectDialog::staticMetaObject, "editClientSelectDialog", "QDialog",
        selectionDialogMethods);
    newRow(
        RemoveClientDialog::staticMetaObject, "RemoveClientDialog", "QDialog",
        selectionDialogMethods);
}

void addMainWindowRow()
{
    newRow(
        MainWindow::staticMetaObject, "MainWindow", "QMainWindow",
        { "signal void update()", "signal void init()",
          // What the meta-object system calls qint64.
          "slot void updateProgressBar(qlonglong bytesSent, qlonglong bytesTotal)",
          "slot void syncUI()", "slot bool initDownloadFinished()",
          "slot void on_pushButton_StartWoW_clicked()",
          "slot void on_pushButton_AddClient_clicked()",
          "slot void on_pushButton_RemoveClient_clicked()", "slot void realmSelectorActivated(int)",
          "slot void initiateLUpdate()", "slot void setDownloadLabelAndProgressBar(QString)",
          "slot void hideDownloadLabelAndProgressBar()",
          "slot void on_pushButton_EditClient_clicked()", "slot void runInit()",
          "slot void showInfoText()", "slot void on_pushButton_Open_Client_clicked()",
          "slot void on_pushButton_Open_SettingsFolder_clicked()",
          "slot void on_pushButton_Start_patchless_WoW_clicked()" });
}

void addDownloadRows()
{
    newRow(
        FileDownloader::staticMetaObject, "FileDownloader", "QObject",
        { "signal void downloaded(QByteArray, QString, QString)", "signal void fileWriteFinished()",
          "signal void filePreWriteFinished(QString, QString)", "signal void notModiefied()",
          "signal void downloadStarted(QString)", "slot void fileDownloaded(QNetworkReply* pReply)",
          "slot void writeFile(QByteArray data, QString path, QString filename)",
          "slot void renameFile(QString path, QString filename)", "slot void setStateToTrue()",
          "slot void setStateToFalse()" });
    newRow(
        InitHandler::staticMetaObject, "InitHandler", "QObject",
        { "signal void clientInitComplete()", "slot void getLibs()" });
}

} // namespace

/// Connections are made by signature throughout, so names, order and parameters
/// of signals and slots are as much of an interface as any function.
class tst_MetaObjects : public QObject {
    Q_OBJECT

private slots:
    void declaresItsSignalsAndSlots_data()
    {
        QTest::addColumn<MetaObjectPointer>("type");
        QTest::addColumn<QString>("className");
        QTest::addColumn<QString>("baseName");
        QTest::addColumn<QStringList>("methods");
        newRow(
            SignalBoolHelperClass::staticMetaObject, "SignalBoolHelperClass", "QObject",
            { "signal void changedState()", "signal void changedToFalse()",
              "signal void changedToTrue()", "slot void setTrue()", "slot void setFalse()" });
        addMainWindowRow();
        addDialogRows();
        addDownloadRows();
        newRow(
            UpdatingProcedures::staticMetaObject, "UpdatingProcedures", "QObject",
            { "signal void launcherUpdateComplete()", "signal void clientDownloadComplete()",
              "signal void clientUpdateComplete()", "slot void replaceLauncher()",
              "slot void updatePatchIni()", "slot void downloadNextFile()",
              "slot void copyPatchedFilesIntoClient()" });
    }

    void declaresItsSignalsAndSlots()
    {
        QFETCH(MetaObjectPointer, type);
        QTEST(QString(type->className()), "className");
        QTEST(QString(type->superClass()->className()), "baseName");
        QTEST(ownMethods(type), "methods");
    }

    void declaresNothingElse_data()
    {
        declaresItsSignalsAndSlots_data();
    }

    void declaresNothingElse()
    {
        QFETCH(MetaObjectPointer, type);
        QCOMPARE(type->propertyCount(), type->superClass()->propertyCount());
        QCOMPARE(type->enumeratorCount(), type->superClass()->enumeratorCount());
        QCOMPARE(type->constructorCount(), 0);
    }

    void downloaderKeepsItsSlotsPrivate()
    {
        const QMetaObject& type = FileDownloader::staticMetaObject;
        for (int i = type.methodOffset(); i < type.methodCount(); ++i) {
            const QMetaMethod method = type.method(i);
            const bool isSlot = method.methodType() == QMetaMethod::Slot;
            QVERIFY2(
                method.access() == (isSlot ? QMetaMethod::Private : QMetaMethod::Public),
                qPrintable("wrong access: " + describe(method)));
        }
    }

    void othersMayCallTheirSlots_data()
    {
        QTest::addColumn<MetaObjectPointer>("type");
        QTest::newRow("flag") << &SignalBoolHelperClass::staticMetaObject;
        QTest::newRow("TLS library check") << &InitHandler::staticMetaObject;
        QTest::newRow("main window") << &MainWindow::staticMetaObject;
        QTest::newRow("update run") << &UpdatingProcedures::staticMetaObject;
    }

    void othersMayCallTheirSlots()
    {
        QFETCH(MetaObjectPointer, type);
        for (int i = type->methodOffset(); i < type->methodCount(); ++i) {
            const QMetaMethod method = type->method(i);
            QVERIFY2(
                method.access() == QMetaMethod::Public,
                qPrintable("not public: " + describe(method)));
        }
    }
};

HALDEN_TEST_MAIN(tst_MetaObjects)
#include "tst_metaobjects.moc"
