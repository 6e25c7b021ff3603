#pragma once

#include <QDialog>
#include <QString>

QT_BEGIN_NAMESPACE
namespace Ui {
class AddClientDialog;
}
QT_END_NAMESPACE

/// The form of one client/realm entry. It stores nothing: the caller reads the
/// values after an Accepted result. The values follow the line edits when
/// editing finishes, and OK checks the values.
class AddClientDialog : public QDialog {
    Q_OBJECT

public:
    /// Outside developer mode `testRealm` counts for nothing: the check box is
    /// hidden and getTestRealm() stays false.
    AddClientDialog(
        QString realmName, QString realmHost, QString clientPath, bool testRealm, QWidget* parent);
    ~AddClientDialog() override;

    QString getRealmName() const;
    QString getRealmHost() const;
    QString getClientPath() const;
    bool getTestRealm() const;

    /// Whether a folder holds a game client: "wow.exe" and "Data".
    bool checkClientPath(QString path) const;

private slots:
    void on_buttonBox_rejected();
    void on_buttonBox_accepted();
    void on_pushButton_SelectPath_clicked();
    void on_lineEdit_RealmName_editingFinished();
    void on_lineEdit_RealmURL_editingFinished();
    void on_checkBox_TestRealm_stateChanged(int arg1);
    void on_lineEdit_RealmPath_editingFinished();

private:
    bool inputIsComplete() const;

    Ui::AddClientDialog* ui;
    QString realmName;
    QString realmHost;
    QString clientPath;
    bool testRealm = false;
    /// Result of the folder button's last check; nothing reads it.
    bool pathValid = false;
};
