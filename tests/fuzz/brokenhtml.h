#pragma once

#include <QByteArray>
#include <QtGlobal>

/// Information text number `index` of a series, the same for the same series and
/// index.
QByteArray brokenHtml(quint32 series, quint32 index);
