#pragma once

#include <QByteArray>
#include <QString>
#include <QtGlobal>

#include <cerrno>

namespace TestSupport {

/// Whether /small is a disk of its own. A container that is itself the tests'
/// room has none; filling what is there instead would fill the machine's disk.
inline bool hasSmallDisk()
{
    return qgetenv("HALDEN_ROOM") != "container";
}

/// How this system says that a disk is full.
inline QString diskFullText()
{
#ifdef Q_OS_WIN
    constexpr int full = 112; // ERROR_DISK_FULL
#else
    constexpr int full = ENOSPC;
#endif
    return qt_error_string(full);
}

} // namespace TestSupport

/// Leaves the test function out, by name, where there is no small disk.
#define HALDEN_NEEDS_SMALL_DISK()                                                                  \
    if (!TestSupport::hasSmallDisk())                                                              \
    QSKIP("needs a small disk of its own")
