#include "publisher/common/webpage.h"

#include <QByteArray>

#include <algorithm>

namespace Publisher {

bool isWebPage(QByteArrayView content)
{
    constexpr qsizetype beginning = 1024;
    const QByteArray start
        = content.first(std::min(beginning, content.size())).toByteArray().trimmed().toLower();
    return start.startsWith("<!doctype html") || start.startsWith("<html");
}

} // namespace Publisher
