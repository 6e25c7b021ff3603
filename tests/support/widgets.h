#pragma once

#include <QDialogButtonBox>
#include <QObject>
#include <QString>

QT_BEGIN_NAMESPACE
class QComboBox;
class QLineEdit;
QT_END_NAMESPACE

namespace TestSupport {

/// The widget of this class and object name; ends the process if there is none,
/// for no test can go on without its widget.
template <typename Widget> Widget* child(const QObject* parent, const QString& name)
{
    auto* found = parent->findChild<Widget*>(name);
    if (!found)
        qFatal("there is no widget %s", qPrintable(name));
    return found;
}

/// For `init()`: a warning fails the test, but for those with which the offscreen
/// platform meets pop-up lists and choosers.
void failOnWarnings();

// What a player does, with mouse and keyboard events.

/// Left click on the middle of the widget of this name.
void click(const QObject* parent, const QString& name);
/// Left click on a button of the dialog's own "buttonBox".
void click(const QObject* dialog, QDialogButtonBox::StandardButton button);
/// Clicks into the line edit, replaces what stands there and stays in it.
void type(QLineEdit* edit, const QString& text);
/// Opens the list with the mouse and chooses a row with the keyboard.
void pick(QComboBox* list, int row);

/// Folder that passes for a game client: "wow.exe" and "Data". Returns `path`.
QString makeClientFolder(const QString& path);

} // namespace TestSupport
