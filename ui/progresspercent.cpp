#include "ui/progresspercent.h"

namespace {

/// The low 32 bits, as the signed number they stand for.
qint32 truncated(qint64 value)
{
    return static_cast<qint32>(static_cast<quint32>(static_cast<quint64>(value)));
}

} // namespace

std::optional<int> progressPercent(qint64 bytesSent, qint64 bytesTotal)
{
    const qint32 total = truncated(bytesTotal);
    if (bytesTotal <= 0 || total == 0)
        return std::nullopt;
    const auto sent = static_cast<quint32>(truncated(bytesSent == 0 ? 1 : bytesSent));
    const auto hundredfold = static_cast<qint32>(sent * 100U);
    // The one quotient that does not fit: the smallest number by minus one.
    if (total == -1)
        return static_cast<qint32>(0U - static_cast<quint32>(hundredfold));
    return hundredfold / total;
}
