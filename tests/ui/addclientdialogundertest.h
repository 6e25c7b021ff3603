#pragma once

#include <QString>
#include <QStringList>

#include <memory>

QT_BEGIN_NAMESPACE
class QLineEdit;
QT_END_NAMESPACE

class AddClientDialog;

namespace TestSupport {

using DialogPointer = std::unique_ptr<AddClientDialog>;

inline const QString nameField = "lineEdit_RealmName";
inline const QString hostField = "lineEdit_RealmURL";
inline const QString pathField = "lineEdit_RealmPath";
inline const QString generalLabel = "label_UserInteractionError_general";
inline const QString pathLabel = "label_UserInteractionError_path";

/// A dialog on the screen, active, with these values.
DialogPointer
open(const QString& name, const QString& host, const QString& path, bool test = false);
/// A dialog that OK would accept.
DialogPointer openComplete();

QLineEdit* field(const DialogPointer& dialog, const QString& name);
bool isShown(const DialogPointer& dialog, const QString& label);
/// What the dialog holds for a field, as its caller reads it.
QString valueOf(const DialogPointer& dialog, const QString& name);
/// Name, host and folder as the dialog's caller reads them.
QStringList values(const DialogPointer& dialog);
void pressOk(const DialogPointer& dialog);

/// The folder that a test uses as its game client.
QString clientFolder();
/// Makes what the letters say in the client folder: "w" for "wow.exe", "d" for
/// "Data", capitals for the wrong kind of thing under that name.
void makeFolderWith(const QString& contents);

} // namespace TestSupport
