#pragma once

#include "tests/support/logcapture.h"

#include <QObject>
#include <QString>
#include <QStringList>

#include <memory>

QT_BEGIN_NAMESPACE
class QWidget;
QT_END_NAMESPACE

namespace TestSupport {

using Form = std::shared_ptr<QWidget>;

/// Class names of the four forms, the main window's last.
QStringList formNames();
/// A column "form" and a row for each of them.
void addFormNames();
/// A new form, as its class makes it. The main window starts downloads, which
/// end without a server; keep its log away with a LogCapture.
Form makeForm(const QString& name);
/// A form's widget by object name, the form itself for its own name.
QWidget* widgetOf(const Form& form, const QString& name);

/// Tests of the forms, with an empty realm list and a version to show. The main window
/// talks meanwhile; its log is kept away.
class FormTest : public QObject {
    Q_OBJECT

protected slots:
    void init();
    void cleanup();

protected:
    std::unique_ptr<LogCapture> log;
};

// Texts that stand in more than one table.
inline constexpr auto testRealmToolTip
    = "<html><head/><body><p>Diese Funktion ermöglicht es einen Realm als TestRealm zu "
      "flaggen.<br/>Der über den Client Pfad hinterlegte Client wird dann mit TestRealmUpdates "
      "versorgt. ACHTUNG: niemals einen Client für einen  TestRealm und NormalenRealm "
      "hinterlegen.</p></body></html>";
inline constexpr auto selectorToolTip
    = "<html><head/><body><p>Select your Client/Realm Combination</p></body></html>";
inline constexpr auto selectorWhatsThis
    = "<html><head/><body><p>Selector for Client/Realm Combinations</p><p><br/></p></body></html>";

} // namespace TestSupport
