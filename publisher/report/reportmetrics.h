#pragma once

#include <QByteArray>

namespace Publisher {

struct Report;

/// The figures as the node exporter for Prometheus reads them from a file.
QByteArray toMetrics(const Report& report);

} // namespace Publisher
