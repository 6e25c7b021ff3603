#include "tests/support/diskfaults.h"

namespace TestSupport {

FullDisk::FullDisk(const QString& folder)
    : filler(folder + "/filler")
{
    const QByteArray block(4096, 'x');
    if (!filler.open(QIODevice::WriteOnly | QIODevice::Unbuffered))
        qFatal("cannot fill %s", qPrintable(folder));
    while (filler.write(block) == block.size()) { }
}

FullDisk::~FullDisk()
{
    filler.remove();
}

} // namespace TestSupport
