#pragma once

#include <QDialog>

QT_BEGIN_NAMESPACE
namespace Ui {
class editClientSelectDialog;
}
QT_END_NAMESPACE

/// Lets the player pick the entry to edit. Shares the remove dialog's window title
/// and widget names on purpose.
class editClientSelectDialog : public QDialog {
    Q_OBJECT

public:
    explicit editClientSelectDialog(QWidget* parent);
    ~editClientSelectDialog() override;

    /// Number of the entry picked last; the first one, which the list shows,
    /// when the player has picked none.
    int getSelectedIndex() const;

private slots:
    void on_buttonBox_accepted();
    void on_buttonBox_rejected();
    void comboBoxActivated(int input);

private:
    Ui::editClientSelectDialog* ui;
    int selectedIndex = 1;
};
