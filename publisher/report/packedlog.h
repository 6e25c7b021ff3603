#pragma once

#include "publisher/report/logsource.h"

#include <QByteArrayView>

#include <memory>

/// Unpacks what a file holds, several packed texts behind one another included.
namespace Publisher::PackedLog {

/// Of as many bytes as tell the kind.
inline constexpr qsizetype sizeOfAMark = 4;
bool isGzip(QByteArrayView beginning);
bool isZstandard(QByteArrayView beginning);

/// None where this program was built without.
std::unique_ptr<LogSource> gzip(std::unique_ptr<LogSource> packed);
std::unique_ptr<LogSource> zstandard(std::unique_ptr<LogSource> packed);

} // namespace Publisher::PackedLog
