#pragma once

#include "publisher/common/finding.h"
#include "publisher/common/record.h"
#include "publisher/probe/probeanswer.h"

#include <QList>
#include <QString>

#include <optional>

namespace Publisher {

struct PatchFile;

/// What a server sends against what has been published, by its record. Dates do not
/// count: servers that are pushed to have their own.
class RecordComparison {
public:
    /// Without a record everything is as it should be.
    explicit RecordComparison(std::optional<Record> record);

    bool hasRecord() const;
    bool knows(const QString& name) const;

    /// A manifest or a program; needs the body's hashes.
    std::optional<Finding> file(const QString& name, const ProbeAnswer& answer) const;
    /// By its length, and by its SHA-256 where the answer has it.
    std::optional<Finding> patchFile(const PatchFile& file, const ProbeAnswer& answer) const;
    /// What the manifest as it is served does not name, and the record does.
    QList<Finding> dropped(const QString& manifest, const QList<PatchFile>& served) const;

private:
    std::optional<Record> record;
};

} // namespace Publisher
