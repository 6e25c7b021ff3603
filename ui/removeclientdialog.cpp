#include "ui/removeclientdialog.h"

#include "ui/realmnames.h"
#include "ui_removeclientdialog.h"

RemoveClientDialog::RemoveClientDialog(QWidget* parent)
    : QDialog(parent)
    , ui(new Ui::RemoveClientDialog)
{
    ui->setupUi(this);
    showRealmNames(ui->comboBox_RemoveClient);
    connect(ui->comboBox_RemoveClient, SIGNAL(activated(int)), this, SLOT(comboBoxActivated(int)));
}

RemoveClientDialog::~RemoveClientDialog()
{
    delete ui;
}

int RemoveClientDialog::getSelectedIndex() const
{
    return selectedIndex;
}

void RemoveClientDialog::on_buttonBox_accepted()
{
    done(QDialog::Accepted);
}

void RemoveClientDialog::on_buttonBox_rejected()
{
    done(QDialog::Rejected);
}

void RemoveClientDialog::comboBoxActivated(int input)
{
    selectedIndex = input + 1;
}
