#include "publisher/build/traffic.h"

#include "publisher/common/progress.h"

using namespace Qt::StringLiterals;

namespace Publisher {

namespace {

// Each fetches every file for itself.
constexpr qint64 runsOfAStart = 2;

} // namespace

void Traffic::add(qint64 size, bool isUnchanged)
{
    bytesInAll += runsOfAStart * size;
    bytesToUpdate += isUnchanged ? 0 : runsOfAStart * size;
}

QString Traffic::sentence() const
{
    return u"A player who is up to date fetches %1, a new one %2: every file twice, since a start "
           "makes two update runs."_s.arg(humanSize(bytesToUpdate), humanSize(bytesInAll));
}

} // namespace Publisher
