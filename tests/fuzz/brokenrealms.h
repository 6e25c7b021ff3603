#pragma once

#include <QByteArray>
#include <QtGlobal>

/// Realm list number `index` of a series, the same for the same series and index.
QByteArray brokenRealms(quint32 series, quint32 index);
