#include "ui/mainwindow.h"

#include "app/constants.h"
#include "core/realmwalk.h"
#include "core/settingshandler.h"
#include "core/signalboolhelperclass.h"
#include "net/filedownloader.h"
#include "net/inithandler.h"
#include "net/referencetime.h"
#include "ui/clientflows.h"
#include "ui/progresspercent.h"
#include "ui/removeclientdialog.h"
#include "ui_mainwindow.h"
#include "update/updatingprocedures.h"

#include <QCoreApplication>
#include <QDebug>
#include <QDesktopServices>
#include <QDir>
#include <QFile>
#include <QTextStream>
#include <QUrl>

#include <algorithm>

using namespace Qt::StringLiterals;

namespace {

constexpr auto infoFileName = "launcher.info"_L1;

/// The information text as one run of HTML: line breaks are dropped and nothing
/// is put in their place. Empty when the file cannot be read.
QString readInfoText()
{
    QString text;
    QFile file(QCoreApplication::applicationDirPath() + QDir::separator() + infoFileName);
    if (file.open(QIODevice::ReadOnly | QIODevice::Text)) {
        QTextStream stream(&file);
        while (!stream.atEnd())
            text.append(stream.readLine());
    }
    return text;
}

// What outlives the window is made in functions of its own, so that the leak
// checker can tell it by name from what must not leak.

SignalBoolHelperClass* makeLifelongFlag()
{
    return new SignalBoolHelperClass;
}

/// Stays alive as long as libraries are missing.
InitHandler* makeInitHandler(QObject* progressReceiver)
{
    return new InitHandler(progressReceiver);
}

/// Deletes itself at its end, which a hand-over to the updater may cut off.
UpdatingProcedures* makeUpdateRun(MainWindow* window)
{
    return new UpdatingProcedures(window);
}

} // namespace

MainWindow::MainWindow(QWidget* parent)
    : QMainWindow(parent)
    , infoTextReady(makeLifelongFlag())
    , launcherUpdating(makeLifelongFlag())
    , clientUpdating(makeLifelongFlag())
    , ui(new Ui::MainWindow)
{
    // The list is shown three times in here, and parsed once for it.
    const RealmWalk walk;
    ui->setupUi(this);
    syncUI();
    connect(
        ui->comboBox_RealmSelector,
        SIGNAL(activated(int)), this, SLOT(realmSelectorActivated(int)));
    setStyleSheet(u"MainWindow { border-image: url(:/images/ressources/background.jpg)"
                  " 0 0 0 0 stretch stretch;}"_s);
    ui->label_Version->setText("Version: "_L1 + QCoreApplication::applicationVersion());
    ui->textBrowser_launcherInfo->hide();
    hideDownloadLabelAndProgressBar();
    connect(this, SIGNAL(update()), this, SLOT(initiateLUpdate()));
    runInit();
}

MainWindow::~MainWindow()
{
    delete ui;
}

void MainWindow::runInit()
{
    auto* handler = makeInitHandler(this);
    connect(handler, SIGNAL(clientInitComplete()), this, SLOT(initDownloadFinished()));
    handler->start();
    SettingsHandler::initSettings();
    syncUI();
}

bool MainWindow::initDownloadFinished()
{
    // The second connection of this pair is intended: every update() starts two
    // runs side by side.
    connect(this, SIGNAL(update()), this, SLOT(initiateLUpdate()));
    connect(launcherUpdating, SIGNAL(changedState()), this, SLOT(syncUI()));
    connect(clientUpdating, SIGNAL(changedState()), this, SLOT(syncUI()));
    connect(this, SIGNAL(update()), launcherUpdating, SLOT(setTrue()));
    connect(this, SIGNAL(update()), clientUpdating, SLOT(setTrue()));
    connect(infoTextReady, SIGNAL(changedState()), this, SLOT(showInfoText()));
    FileDownloader::download(
        true, this, infoTextReady, QUrl(launcherInfoUrl, QUrl::TolerantMode), fixedReferenceTime(),
        QCoreApplication::applicationDirPath(), infoFileName);
    syncUI();
    return true;
}

void MainWindow::showInfoText()
{
    const QString text = readInfoText();
    if (!text.isEmpty()) {
        ui->textBrowser_launcherInfo->setHtml(text);
        ui->textBrowser_launcherInfo->setOpenExternalLinks(true);
        ui->textBrowser_launcherInfo->show();
    }
    syncUI();
    emit update();
}

void MainWindow::initiateLUpdate()
{
    auto* run = makeUpdateRun(this);
    connect(run, SIGNAL(launcherUpdateComplete()), launcherUpdating, SLOT(setFalse()));
    connect(run, SIGNAL(clientUpdateComplete()), clientUpdating, SLOT(setFalse()));
    run->downloadUpdater();
}

void MainWindow::syncUI()
{
    // While it lives the list is parsed once for all of the questions below.
    const RealmWalk walk;
    const int count = SettingsHandler::getClientCount();
    ui->comboBox_RealmSelector->clear();
    for (int i = 1, last = walk.last(); i <= last; ++i)
        ui->comboBox_RealmSelector->addItem(SettingsHandler::getRealmName(i));
    // Every number below 1 means none; the smallest one has no predecessor.
    ui->comboBox_RealmSelector->setCurrentIndex(
        std::max(SettingsHandler::getSelectedRealm(), 0) - 1);
    ui->comboBox_RealmSelector->setVisible(count >= 2);
    ui->pushButton_RemoveClient->setVisible(count != 0);
    ui->pushButton_StartWoW->setVisible(count != 0);

    const bool entriesChangeable = !launcherUpdating->state();
    ui->pushButton_RemoveClient->setEnabled(entriesChangeable);
    ui->pushButton_AddClient->setEnabled(entriesChangeable);
    ui->pushButton_EditClient->setEnabled(entriesChangeable);
    ui->comboBox_RealmSelector->setEnabled(entriesChangeable);
    ui->pushButton_StartWoW->setEnabled(!clientUpdating->state());

    // Nothing shows it again: the developer switch counts from the next start.
    if (!SettingsHandler::getDev())
        ui->pushButton_Start_patchless_WoW->hide();
}

void MainWindow::updateProgressBar(qint64 bytesSent, qint64 bytesTotal)
{
    if (const auto percent = progressPercent(bytesSent, bytesTotal))
        ui->progressBar_Downloads->setValue(*percent);
}

void MainWindow::setDownloadLabelAndProgressBar(QString name)
{
    ui->label_Download->setText("Current Download: "_L1 + name);
    ui->label_Download->show();
    ui->progressBar_Downloads->show();
}

void MainWindow::hideDownloadLabelAndProgressBar()
{
    ui->label_Download->hide();
    ui->progressBar_Downloads->hide();
}

void MainWindow::realmSelectorActivated(int index)
{
    SettingsHandler::setSelectedRealm(index + 1);
    writeRealmlist();
}

void MainWindow::on_pushButton_AddClient_clicked()
{
    runAddClientDialog(organizationName, organizationDomain);
    syncUI();
}

void MainWindow::on_pushButton_EditClient_clicked()
{
    runEditClientDialog();
    syncUI();
}

void MainWindow::on_pushButton_RemoveClient_clicked()
{
    RemoveClientDialog dialog(nullptr);
    if (dialog.exec() != QDialog::Accepted)
        return;
    SettingsHandler::removeClient(dialog.getSelectedIndex());
    syncUI();
}

void MainWindow::on_pushButton_Open_Client_clicked()
{
    const QString folder = SettingsHandler::getClientPath(SettingsHandler::getSelectedRealm());
    QDesktopServices::openUrl(QUrl(folder, QUrl::TolerantMode));
}

void MainWindow::on_pushButton_Open_SettingsFolder_clicked()
{
    QString folder = SettingsHandler::getSettingsPath();
    qDebug() << "test" << folder;
    QDesktopServices::openUrl(QUrl(folder.replace(u'\\', u'/')));
}
