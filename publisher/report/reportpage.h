#pragma once

#include <QByteArray>

namespace Publisher {

struct Report;

/// The report as one page that needs nothing from elsewhere, neither scripts nor fonts.
QByteArray toPage(const Report& report);

} // namespace Publisher
