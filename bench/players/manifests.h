#pragma once

#include "update/patchmanifest.h"

#include <QByteArray>
#include <QHash>
#include <QList>
#include <QTemporaryDir>

#include <memory>

namespace Players {

using Entries = std::shared_ptr<const QList<PatchManifestEntry>>;

/// Manifests as the launcher's own code reads them, each text once for all players.
class Manifests {
public:
    Entries entries(const QByteArray& text);

private:
    QTemporaryDir folder;
    QHash<QByteArray, Entries> known;
};

} // namespace Players
