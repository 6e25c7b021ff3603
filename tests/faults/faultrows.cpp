#include "tests/faults/faultrows.h"

QString wrongContent(Target target)
{
    if (target == Target::Updater || target == Target::Manifest)
        return "as sent, whole when published anew";
    return "as sent, then whole";
}

QByteArray rowName(const QString& fault, Target target)
{
    return (fault + ", " + Targets::name(target)).toUtf8();
}
