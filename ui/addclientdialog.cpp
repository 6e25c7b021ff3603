#include "ui/addclientdialog.h"

#include "core/settingshandler.h"
#include "ui_addclientdialog.h"

#include <QDir>
#include <QFile>
#include <QFileDialog>

#include <utility>

using namespace Qt::StringLiterals;

AddClientDialog::AddClientDialog(
    QString name, QString host, QString folder, bool isTestRealm, QWidget* parent)
    : QDialog(parent)
    , ui(new Ui::AddClientDialog)
    , realmName(std::move(name))
    , realmHost(std::move(host))
    , clientPath(std::move(folder))
{
    ui->setupUi(this);
    ui->lineEdit_RealmName->setText(realmName);
    ui->lineEdit_RealmURL->setText(realmHost);
    ui->lineEdit_RealmPath->setText(clientPath);
    // Outside developer mode the mark is dropped on purpose: the member stays
    // false, so an entry saved here is no test realm any more.
    if (SettingsHandler::getDev())
        ui->checkBox_TestRealm->setChecked(isTestRealm);
    else
        ui->checkBox_TestRealm->hide();
    ui->label_UserInteractionError_general->hide();
    ui->label_UserInteractionError_path->hide();
}

AddClientDialog::~AddClientDialog()
{
    delete ui;
}

QString AddClientDialog::getRealmName() const
{
    return realmName;
}

QString AddClientDialog::getRealmHost() const
{
    return realmHost;
}

QString AddClientDialog::getClientPath() const
{
    return clientPath;
}

bool AddClientDialog::getTestRealm() const
{
    return testRealm;
}

bool AddClientDialog::checkClientPath(QString path) const
{
    return QFile::exists(path + QDir::separator() + "wow.exe"_L1)
        && QFile::exists(path + QDir::separator() + "Data"_L1 + QDir::separator());
}

bool AddClientDialog::inputIsComplete() const
{
    return !realmHost.isEmpty() && !realmName.isEmpty() && checkClientPath(clientPath);
}

void AddClientDialog::on_buttonBox_rejected()
{
    done(QDialog::Rejected);
}

void AddClientDialog::on_buttonBox_accepted()
{
    if (inputIsComplete())
        done(QDialog::Accepted);
    else
        ui->label_UserInteractionError_general->show();
}

void AddClientDialog::on_pushButton_SelectPath_clicked()
{
    QFileDialog chooser(this);
    chooser.setFileMode(QFileDialog::Directory);
    chooser.setOption(QFileDialog::DontUseNativeDialog, true);
    if (chooser.exec() == QDialog::Accepted)
        clientPath = chooser.selectedFiles().constFirst();
    ui->lineEdit_RealmPath->setText(clientPath);
    pathValid = checkClientPath(clientPath);
    ui->label_UserInteractionError_path->setVisible(!pathValid);
}

void AddClientDialog::on_lineEdit_RealmName_editingFinished()
{
    realmName = ui->lineEdit_RealmName->text();
}

void AddClientDialog::on_lineEdit_RealmURL_editingFinished()
{
    realmHost = ui->lineEdit_RealmURL->text();
}

void AddClientDialog::on_checkBox_TestRealm_stateChanged(int arg1)
{
    testRealm = arg1 != 0;
}

void AddClientDialog::on_lineEdit_RealmPath_editingFinished()
{
    clientPath = ui->lineEdit_RealmPath->text();
}
