#pragma once

#include <QObject>

/// A boolean that announces every write to it. Stages that run asynchronously
/// hand over through such flags: whoever ends sets one, whoever waits is
/// connected to its signals.
class SignalBoolHelperClass : public QObject {
    Q_OBJECT

public:
    /// Starts false and has no parent: the creator owns it.
    SignalBoolHelperClass();

    bool state() const;

signals:
    /// Every write, before the signal that names the new value.
    void changedState();
    void changedToFalse();
    void changedToTrue();

public slots:
    /// Both emit even when the value stays the same: listeners count on being
    /// run again. `state()` already returns the new value inside them.
    void setTrue();
    void setFalse();

private:
    bool value = false;
};
