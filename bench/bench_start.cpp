// The launcher's entry point up to its first picture; see FirstPaint.

#include "app/constants.h"
#include "bench/support/firstpaint.h"
#include "core/processend.h"
#include "ui/mainwindow.h"

#include <QApplication>

namespace {

int showWindow()
{
    MainWindow window;
    const BenchSupport::FirstPaint firstPaint(&window);
    window.show();
    return QApplication::exec();
}

} // namespace

int main(int argc, char* argv[])
{
    const QApplication application(argc, argv);
    QCoreApplication::setOrganizationName(organizationName);
    QCoreApplication::setOrganizationDomain(organizationDomain);
    QCoreApplication::setApplicationName(QStringLiteral("Launcher"));
    QCoreApplication::setApplicationVersion(launcherVersion);
    endProcess(showWindow());
}
