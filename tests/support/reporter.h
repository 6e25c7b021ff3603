#pragma once

#include <QList>
#include <QString>
#include <QStringList>

namespace TestSupport {

/// Puts a program at `path` that adds to the file `report` what it was started
/// like, and ends. The two lie in folders that exist.
void placeReporter(const QString& path, const QString& report);

/// The starts that have been reported, in order: the program's own path, its
/// working folder and its arguments, paths with slashes.
QList<QStringList> reportedStarts(const QString& report);

/// Whether a program of this file name is running.
bool isRunning(const QString& fileName);

} // namespace TestSupport
