#pragma once

#include "publisher/check/manifestcontent.h"
#include "publisher/common/finding.h"
#include "publisher/common/serverlayout.h"

#include <QList>
#include <QString>

namespace Publisher {

/// A manifest under inspection.
struct CheckedManifest {
    /// What the findings call it, "patch.ini" as a rule.
    QString subject;
    QString path;
    Kind kind = Kind::Live;
    ManifestContent content;

    Finding finding(FindingId id, qint64 entry, const QString& text) const;
};

/// For whom the manifests are inspected.
struct CheckedPlayers {
    /// Players may have this many realm entries at most.
    int realms = 16;
    QChar separator = u'\\';
};

} // namespace Publisher
