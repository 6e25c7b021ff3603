// The main window's dealings with the game client: the realm list file and the
// two start buttons.

#include "core/settingshandler.h"
#include "ui/mainwindow.h"

#include <QDir>
#include <QFile>
#include <QProcess>

using namespace Qt::StringLiterals;

namespace {

QString realmlistPath(int n)
{
    const QChar separator = QDir::separator();
    return SettingsHandler::getClientPath(n) + separator + "Data"_L1 + separator
        + SettingsHandler::getLanguage(n) + separator + "realmlist.wtf"_L1;
}

/// Starts a program of the selected client and forgets it. Without a working
/// directory the game inherits the launcher's own, which is intended.
void startFromSelectedClient(QLatin1StringView program)
{
    const QString folder = SettingsHandler::getClientPath(SettingsHandler::getSelectedRealm());
    QProcess::startDetached(folder + QDir::separator() + program, {}, QString(), nullptr);
}

} // namespace

void MainWindow::writeRealmlist()
{
    const int n = SettingsHandler::getSelectedRealm();
    const QByteArray line = "set realmlist " + SettingsHandler::getRealmHost(n).toUtf8();
    const QString path = realmlistPath(n);
    QFile::remove(path);
    QFile file(path);
    // A client without the language folder is left alone without a word.
    if (!file.open(QIODevice::ReadWrite))
        return;
    file.write(line);
    file.flush();
    file.close();
}

void MainWindow::on_pushButton_StartWoW_clicked()
{
    startFromSelectedClient("patched_wow.exe"_L1);
}

void MainWindow::on_pushButton_Start_patchless_WoW_clicked()
{
    startFromSelectedClient("wow.exe"_L1);
}
