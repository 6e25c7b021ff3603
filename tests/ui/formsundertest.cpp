#include "tests/ui/formsundertest.h"

#include "tests/support/applicationfolder.h"
#include "tests/support/realmsini.h"
#include "tests/support/widgets.h"
#include "ui/addclientdialog.h"
#include "ui/editclientselectdialog.h"
#include "ui/mainwindow.h"
#include "ui/removeclientdialog.h"

#include <QCoreApplication>
#include <QTest>

namespace TestSupport {

QStringList formNames()
{
    return { "AddClientDialog", "editClientSelectDialog", "RemoveClientDialog", "MainWindow" };
}

void addFormNames()
{
    QTest::addColumn<QString>("form");
    const QStringList names = formNames();
    for (const QString& name : names)
        QTest::newRow(qPrintable(name)) << name;
}

Form makeForm(const QString& name)
{
    if (name == "AddClientDialog")
        return std::make_shared<AddClientDialog>("", "", "", false, nullptr);
    if (name == "editClientSelectDialog")
        return std::make_shared<editClientSelectDialog>(nullptr);
    if (name == "RemoveClientDialog")
        return std::make_shared<RemoveClientDialog>(nullptr);
    return std::make_shared<MainWindow>(nullptr);
}

QWidget* widgetOf(const Form& form, const QString& name)
{
    return form->objectName() == name ? form.get() : child<QWidget>(form.get(), name);
}

void FormTest::init()
{
    log = std::make_unique<LogCapture>();
    ApplicationFolder::clear();
    writeRealmsIni(realmsIniWith({}, "dev=true\n"));
    QCoreApplication::setApplicationVersion("1.2.3-test");
}

void FormTest::cleanup()
{
    log.reset();
}

} // namespace TestSupport
