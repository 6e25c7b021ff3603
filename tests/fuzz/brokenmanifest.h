#pragma once

#include <QByteArray>
#include <QtGlobal>

/// Manifest number `index` of a series, the same for the same series and index.
/// Half of them are near to a sound one, the others further and further away.
QByteArray brokenManifest(quint32 series, quint32 index);
