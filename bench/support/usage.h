#pragma once

#include <QtGlobal>

namespace BenchSupport {

/// What this process holds at a moment.
struct Usage {
    qint64 threads = 0;
    qint64 descriptors = 0;
    /// Resident memory now, and the most there has been.
    qint64 residentKiB = 0;
    qint64 peakKiB = 0;

    static Usage now();
};

} // namespace BenchSupport
