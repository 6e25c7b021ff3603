#include "app/constants.h"
#include "core/processend.h"
#include "ui/mainwindow.h"

#include <QApplication>

namespace {

int runWindow()
{
    MainWindow window;
    window.show();
    return QApplication::exec();
}

} // namespace

int main(int argc, char* argv[])
{
    const QApplication application(argc, argv);
    QCoreApplication::setOrganizationName(QStringLiteral("Tarnwick"));
    QCoreApplication::setOrganizationDomain(QStringLiteral(HALDEN_WEB_DOMAIN));
    QCoreApplication::setApplicationName(QStringLiteral("Launcher"));
    QCoreApplication::setApplicationVersion(launcherVersion);
    endProcess(runWindow());
}
