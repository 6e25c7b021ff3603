#pragma once

#include <QByteArrayView>

namespace Publisher {

/// Whether a content begins like a web page, which a server may send in place of a
/// file that it does not have.
bool isWebPage(QByteArrayView content);

} // namespace Publisher
