#pragma once

#include "publisher/common/filefingerprint.h"
#include "publisher/common/finding.h"

#include <QList>
#include <QString>
#include <QStringList>

namespace Publisher {

struct SourceFile {
    /// Relative to the source, with "/".
    QString path;
    qint64 size = 0;
    /// As it was seen.
    FileFingerprint fingerprint = {};
};

/// What lies in a folder that is laid out as the client folder. Folders and
/// files are in the order of their paths' characters, the same on every machine;
/// a folder stands before what is in it.
struct SourceTree {
    QStringList folders;
    QList<SourceFile> files;
    /// Files that nobody means to publish, going by their names.
    QStringList passedOver;
    /// Everything that keeps the tree from being published.
    QList<Finding> refusals;

    static SourceTree scan(const QString& root);
    /// Whether the tree has this file or folder, or something below it, for a
    /// disk that does not tell upper from lower case.
    bool reaches(const QString& path) const;
};

} // namespace Publisher
