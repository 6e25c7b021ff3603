#pragma once

#include <QtGlobal>

#include <optional>

/// Percentage that the progress bar is given for a transfer, nothing when it is
/// to stay as it is (a total that is not positive, or whose low 32 bits are
/// zero). Computed in 32 bits, which wraps above 21,474,836 bytes: the bar is
/// known to jump during large files, and it is left so.
std::optional<int> progressPercent(qint64 bytesSent, qint64 bytesTotal);
