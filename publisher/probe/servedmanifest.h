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
    /// Of the manifest, where it is not the kind's usual one.
    QString ownManifest = {};

    /// What names it, as findings speak of it.
    QString manifest() const;
    /// Where launchers ask for it.
    QUrl address(const QUrl& baseUrl) const;
};

/// A manifest as it came from a server.
struct ServedManifest {
    QList<Finding> findings;
    QList<PatchFile> files;
    /// Why it could not be looked at, as a sentence; empty when it could.
    QString error;

    /// `name` is what the manifest is called on the server.
    static ServedManifest read(Kind kind, const QString& name, const QByteArray& text);
};

} // namespace Publisher
