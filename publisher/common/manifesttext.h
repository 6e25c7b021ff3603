#pragma once

#include "update/patchmanifest.h"

#include <QByteArray>

#include <functional>

/// The text of the manifests that this program writes.
namespace Publisher::ManifestText {

using TakeEntry = std::function<void(const PatchManifestEntry&)>;

/// Writes entries one by one: all of them at once would take several times the
/// memory of their text. The same entries give the same bytes.
class Writer {
public:
    /// As many entries will follow.
    explicit Writer(qsizetype entries);

    void append(const PatchManifestEntry& entry);
    QByteArray text() const;

private:
    QByteArray written;
    qsizetype count = 0;
};

/// Hands over the entries that give these very bytes. False for any other text,
/// which only the settings layer can tell the meaning of; it takes ten times as
/// long and several times the memory.
bool read(QByteArrayView text, const TakeEntry& take);

} // namespace Publisher::ManifestText
