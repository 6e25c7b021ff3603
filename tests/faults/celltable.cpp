#include "tests/faults/celltable.h"

CellTable::CellTable()
    : file(qEnvironmentVariable("HALDEN_FAULT_CELLS"))
{
    if (!file.fileName().isEmpty() && !file.open(QIODevice::WriteOnly))
        qFatal("cannot write %s", qPrintable(file.fileName()));
}

void CellTable::add(const QString& fault, Target target, const QString& result)
{
    write(fault, target, result, QString());
}

void CellTable::leaveOut(const QString& fault, Target target, const QString& reason)
{
    write(fault, target, "–", reason);
}

void CellTable::write(
    const QString& fault, Target target, const QString& result, const QString& reason)
{
    if (!file.isOpen())
        return;
    const QStringList fields{ fault, Targets::name(target), result, reason };
    // At once, so that what was proved before a crash is not lost.
    if (file.write(fields.join('\t').toUtf8() + '\n') < 0 || !file.flush())
        qFatal("cannot write %s: %s", qPrintable(file.fileName()), qPrintable(file.errorString()));
}
