#pragma once

#include "publisher/common/finding.h"
#include "publisher/probe/probeanswer.h"

#include <QSet>
#include <QString>

#include <optional>

namespace Publisher {

struct PatchFile;

/// What a server sends against what should be served, a folder of this machine.
class TreeComparison {
public:
    /// Without a tree everything is as it should be.
    explicit TreeComparison(QString tree);

    bool hasTree() const;

    /// Needs the whole body. Patch files are not looked for when the tree does not
    /// have their manifest.
    std::optional<Finding> manifest(const QString& name, const ProbeAnswer& answer);
    /// Needs the body's hash.
    std::optional<Finding> launcherFile(const QString& name, const ProbeAnswer& answer) const;
    /// By their lengths.
    std::optional<Finding>
    patchFile(const PatchFile& file, const QUrl& address, const ProbeAnswer& answer) const;

private:
    QString inTree(const QString& pathOnServer) const;

    QString tree;
    QSet<QString> manifestsNotInTree;
};

} // namespace Publisher
