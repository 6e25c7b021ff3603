#pragma once

#include <QMainWindow>
#include <QString>

class SignalBoolHelperClass;

QT_BEGIN_NAMESPACE
namespace Ui {
class MainWindow;
}
QT_END_NAMESPACE

/// The launcher's only main window and the conductor of start-up: it checks the
/// TLS libraries, fetches and shows the information text, starts the update
/// chain and keeps the buttons enabled or disabled while updates run.
///
/// Connections pile up on purpose: every run of initDownloadFinished() adds its
/// own, and none is ever removed, so one update() starts at least two runs.
class MainWindow : public QMainWindow {
    Q_OBJECT

public:
    /// Start-up happens here. May run the modal first-start dialog and with it
    /// an event loop, in which downloads already go on.
    explicit MainWindow(QWidget* parent = nullptr);
    ~MainWindow() override;

    /// Writes the selected entry's host into its client's realm list file.
    void writeRealmlist();

signals:
    /// Starts the update chain. It hides the widget's slot of the same name on
    /// purpose: a call meant as a repaint would start an update run.
    void update();
    /// Never emitted.
    void init();

public slots:
    /// Of the download that is being shown; see progressPercent().
    void updateProgressBar(qint64 bytesSent, qint64 bytesTotal);
    /// Brings selector and buttons in line with the store and the flags.
    void syncUI();
    /// Wires the flags and fetches the information text; always returns true.
    bool initDownloadFinished();
    void on_pushButton_StartWoW_clicked();
    void on_pushButton_AddClient_clicked();
    void on_pushButton_RemoveClient_clicked();
    void realmSelectorActivated(int);
    /// Creates and starts one update run.
    void initiateLUpdate();
    void setDownloadLabelAndProgressBar(QString);
    void hideDownloadLabelAndProgressBar();
    void on_pushButton_EditClient_clicked();
    /// Repeats the start-up check; reachable through the meta-object only.
    void runInit();
    /// Shows "launcher.info" if there is any, then emits update().
    void showInfoText();
    void on_pushButton_Open_Client_clicked();
    void on_pushButton_Open_SettingsFolder_clicked();
    void on_pushButton_Start_patchless_WoW_clicked();

private:
    // The flags are never deleted: downloads and runs that outlive the window
    // still write them.
    SignalBoolHelperClass* infoTextReady;
    SignalBoolHelperClass* launcherUpdating;
    SignalBoolHelperClass* clientUpdating;
    Ui::MainWindow* ui;
};
