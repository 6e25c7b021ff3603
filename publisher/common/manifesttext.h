#pragma once

#include "update/patchmanifest.h"

#include <QByteArray>
#include <QList>

#include <functional>

namespace Publisher {

/// The text of the manifests that this program writes.
namespace ManifestText {

using TakeEntry = std::function<void(const PatchManifestEntry&)>;

/// The same entries give the same bytes.
QByteArray write(const QList<PatchManifestEntry>& entries);
/// Hands over the entries that give these very bytes. False for any other text,
/// which only the settings layer can tell the meaning of; it takes ten times as
/// long and several times the memory.
bool read(QByteArrayView text, const TakeEntry& take);

} // namespace ManifestText

} // namespace Publisher
