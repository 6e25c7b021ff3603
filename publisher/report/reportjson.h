#pragma once

#include <QJsonObject>

namespace Publisher {

struct Report;

/// The report for machines.
QJsonObject toJson(const Report& report);

} // namespace Publisher
