#include "tests/ui/addclientdialogundertest.h"

#include "tests/support/applicationfolder.h"
#include "tests/support/widgets.h"
#include "ui/addclientdialog.h"

#include <QDir>
#include <QLabel>
#include <QLineEdit>
#include <QTest>

namespace TestSupport {

DialogPointer open(const QString& name, const QString& host, const QString& path, bool test)
{
    auto dialog = std::make_unique<AddClientDialog>(name, host, path, test, nullptr);
    dialog->open();
    if (!QTest::qWaitForWindowActive(dialog.get()))
        qFatal("the dialog did not become active");
    return dialog;
}

DialogPointer openComplete()
{
    return open("Halden", "logon.test", makeClientFolder(clientFolder()));
}

QLineEdit* field(const DialogPointer& dialog, const QString& name)
{
    return child<QLineEdit>(dialog.get(), name);
}

bool isShown(const DialogPointer& dialog, const QString& label)
{
    return child<QLabel>(dialog.get(), label)->isVisible();
}

QString valueOf(const DialogPointer& dialog, const QString& name)
{
    if (name == nameField)
        return dialog->getRealmName();
    return name == hostField ? dialog->getRealmHost() : dialog->getClientPath();
}

QStringList values(const DialogPointer& dialog)
{
    return { dialog->getRealmName(), dialog->getRealmHost(), dialog->getClientPath() };
}

void pressOk(const DialogPointer& dialog)
{
    click(dialog.get(), QDialogButtonBox::Ok);
}

QString clientFolder()
{
    return ApplicationFolder::path("client");
}

void makeFolderWith(const QString& contents)
{
    QDir().mkpath(clientFolder());
    if (contents.contains('w'))
        writeFile(clientFolder() + "/wow.exe", "MZ");
    if (contents.contains('W'))
        QDir().mkpath(clientFolder() + "/wow.exe");
    if (contents.contains('d'))
        QDir().mkpath(clientFolder() + "/Data");
    if (contents.contains('D'))
        writeFile(clientFolder() + "/Data", "not a folder");
}

} // namespace TestSupport
