#include "core/signalboolhelperclass.h"

SignalBoolHelperClass::SignalBoolHelperClass()
    : QObject(nullptr)
{
}

bool SignalBoolHelperClass::state() const
{
    return value;
}

void SignalBoolHelperClass::setTrue()
{
    value = true;
    emit changedState();
    emit changedToTrue();
}

void SignalBoolHelperClass::setFalse()
{
    value = false;
    emit changedState();
    emit changedToFalse();
}
