#pragma once

#include <QByteArrayView>
#include <QString>

namespace Publisher {

/// Why players' updaters would throw this program away, as the rest of a sentence
/// that begins with its name; empty when they would not. `head` is its beginning,
/// as much as `Updater::programHeadSize`, or all of it.
QString faultOfProgram(QByteArrayView head, qint64 size);

} // namespace Publisher
