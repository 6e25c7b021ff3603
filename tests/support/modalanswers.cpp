#include "tests/support/modalanswers.h"

#include <QApplication>
#include <QDialog>
#include <QEvent>
#include <QPointer>
#include <QTest>

#include <utility>

namespace TestSupport {

ModalAnswers::ModalAnswers(QList<Answer> answers)
    : pending(std::move(answers))
{
    qApp->installEventFilter(this);
}

int ModalAnswers::opened() const
{
    return count;
}

bool ModalAnswers::allGiven() const
{
    return pending.isEmpty();
}

bool ModalAnswers::eventFilter(QObject* watched, QEvent* event)
{
    auto* dialog = qobject_cast<QDialog*>(watched);
    if (dialog && event->type() == QEvent::Show && dialog->isModal()) {
        // Not before the dialog's event loop runs: that is when a player can act.
        QMetaObject::invokeMethod(
            this, [this, shown = QPointer(dialog)] { answer(shown); }, Qt::QueuedConnection);
    }
    return false;
}

void ModalAnswers::answer(QDialog* dialog)
{
    ++count;
    if (!dialog) {
        QTest::qFail("A dialog closed before it was answered", __FILE__, __LINE__);
        return;
    }
    if (pending.isEmpty()) {
        QTest::qFail(qPrintable("Unexpected dialog: " + dialog->windowTitle()), __FILE__, __LINE__);
        dialog->reject();
        return;
    }
    // Focus moves in the active window only, and fields count on its moves.
    if (!QTest::qWaitForWindowActive(dialog))
        QTest::qFail("The dialog did not become active", __FILE__, __LINE__);
    const QPointer<QDialog> answered(dialog);
    pending.takeFirst()(dialog);
    QDialog* const stillThere = answered.data();
    if (stillThere != nullptr && stillThere->isVisible()) {
        QTest::qFail("The answer left the dialog open", __FILE__, __LINE__);
        stillThere->reject();
    }
}

} // namespace TestSupport
