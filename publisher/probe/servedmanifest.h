#pragma once

#include "publisher/common/finding.h"
#include "publisher/common/serverlayout.h"
#include "update/patchmanifest.h"

#include <QByteArray>
#include <QList>
#include <QString>
#include <QUrl>

namespace Publisher {

/// A file that a manifest lets launchers download.
struct PatchFile {
    Kind kind = Kind::Live;
    /// The entry's number.
    qint64 number = 0;
    PatchManifestEntry entry;

    /// Where launchers ask for it.
    QUrl address(const QUrl& baseUrl) const;
};

/// A manifest as it came from a server.
struct ServedManifest {
    QList<Finding> findings;
    QList<PatchFile> files;
    /// Why it could not be looked at, as a sentence; empty when it could.
    QString error;

    static ServedManifest read(Kind kind, const QByteArray& text);
};

} // namespace Publisher
