#include "net/referencetime.h"

QDateTime fixedReferenceTime()
{
    return { QDate(2000, 1, 1), QTime(10, 15, 0, 0) };
}

QDateTime referenceTimeOf(const QFileInfo& file)
{
    if (!file.exists())
        return fixedReferenceTime();
    return file.fileTime(QFileDevice::FileModificationTime).toUTC();
}
