#pragma once

#include <QDialog>

QT_BEGIN_NAMESPACE
namespace Ui {
class RemoveClientDialog;
}
QT_END_NAMESPACE

/// Lets the player pick the entry to remove.
class RemoveClientDialog : public QDialog {
    Q_OBJECT

public:
    explicit RemoveClientDialog(QWidget* parent);
    ~RemoveClientDialog() override;

    /// Number of the entry picked last; the first one, which the list shows,
    /// when the player has picked none.
    int getSelectedIndex() const;

private slots:
    void on_buttonBox_accepted();
    void on_buttonBox_rejected();
    void comboBoxActivated(int input);

private:
    Ui::RemoveClientDialog* ui;
    int selectedIndex = 1;
};
