#pragma once

#include <QList>
#include <QObject>

#include <functional>

QT_BEGIN_NAMESPACE
class QDialog;
QT_END_NAMESPACE

namespace TestSupport {

/// Plays the player at modal dialogs: the first answer is run on the first
/// dialog that opens while this object lives, the second on the second, and so
/// on, inside the dialog's own event loop. An answer must close its dialog. One
/// that does not, and a dialog for which there is no answer, fail the test and
/// are rejected, so that no test waits for ever.
class ModalAnswers : public QObject {
    Q_OBJECT

public:
    using Answer = std::function<void(QDialog*)>;

    explicit ModalAnswers(QList<Answer> answers = {});

    /// Number of dialogs that have opened.
    int opened() const;
    /// Whether every answer has been given.
    bool allGiven() const;

protected:
    bool eventFilter(QObject* watched, QEvent* event) override;

private:
    void answer(QDialog* dialog);

    QList<Answer> pending;
    int count = 0;
};

} // namespace TestSupport
