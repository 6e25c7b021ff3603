#pragma once

#include <QByteArray>
#include <QMap>

namespace BenchSupport {

/// Every QObject that is alive in this process, from the call of begin() on.
/// Keeps its books outside the heap, so that heap figures stay the launcher's.
class ObjectCensus {
public:
    ObjectCensus() = delete;

    static void begin();
    /// Number of living objects by class.
    static QMap<QByteArray, qint64> byClass();
};

} // namespace BenchSupport
