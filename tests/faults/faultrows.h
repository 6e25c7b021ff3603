#pragma once

#include "tests/faults/target.h"

#include <QString>

// Results of cells, as FaultyEvening::play() puts them into words.

inline const QString keptThenWhole = QStringLiteral("kept, then whole");
inline const QString whole = QStringLiteral("whole");
inline const QString keptForGood = QStringLiteral("kept for good");

/// What becomes of something that was taken for the whole file: nothing tells
/// the launcher of it but the hash of a patch file. The information text and the
/// launcher come anew with every start, the others with their next edition.
QString wrongContent(Target target);

/// Name of a test row, "FAULT, TARGET".
QByteArray rowName(const QString& fault, Target target);
