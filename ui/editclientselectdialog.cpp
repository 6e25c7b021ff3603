#include "ui/editclientselectdialog.h"

#include "ui/realmnames.h"
#include "ui_editclientselectdialog.h"

editClientSelectDialog::editClientSelectDialog(QWidget* parent)
    : QDialog(parent)
    , ui(new Ui::editClientSelectDialog)
{
    ui->setupUi(this);
    showRealmNames(ui->comboBox_RemoveClient);
    connect(ui->comboBox_RemoveClient, SIGNAL(activated(int)), this, SLOT(comboBoxActivated(int)));
}

editClientSelectDialog::~editClientSelectDialog()
{
    delete ui;
}

int editClientSelectDialog::getSelectedIndex() const
{
    return selectedIndex;
}

void editClientSelectDialog::on_buttonBox_accepted()
{
    done(QDialog::Accepted);
}

void editClientSelectDialog::on_buttonBox_rejected()
{
    done(QDialog::Rejected);
}

void editClientSelectDialog::comboBoxActivated(int input)
{
    selectedIndex = input + 1;
}
