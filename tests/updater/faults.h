#pragma once

#include "tests/support/diskfaults.h"

#include <QByteArray>
#include <QString>

using TestSupport::FullDisk;
using TestSupport::ReadOnlyFolder;

/// Holds the lock of a folder as a working updater does.
class LockHolder {
public:
    explicit LockHolder(const QString& folder);
    ~LockHolder();
    LockHolder(const LockHolder&) = delete;
    LockHolder& operator=(const LockHolder&) = delete;

private:
    int descriptor;
};

/// A program for a processor that no machine of this kind has.
QByteArray foreignProgram();

/// A program with good headers that the system does not start: it does not say
/// which loader it wants.
QByteArray unstartableProgram();
