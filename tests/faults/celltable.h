#pragma once

#include "tests/faults/target.h"

#include <QFile>

/// Writes the cells of the reliability table that a test program has proved, one
/// a line, into the file that CTest names; docs/reliability.md is made of them.
/// Started by hand, without that file, it writes nothing.
class CellTable {
public:
    /// Begins the file anew.
    CellTable();

    /// A cell, once its row has passed.
    void add(const QString& fault, Target target, const QString& result);
    /// A cell that cannot be: the reason stands below the table.
    void leaveOut(const QString& fault, Target target, const QString& reason);

private:
    void write(const QString& fault, Target target, const QString& result, const QString& reason);

    QFile file;
};
