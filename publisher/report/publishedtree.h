#pragma once

#include "publisher/common/problem.h"
#include "publisher/report/player.h"

#include <QHash>
#include <QList>
#include <QString>

#include <array>
#include <cstdint>
#include <optional>
#include <string_view>

namespace Publisher {

/// What a served folder and its history say about publications, for logs that say
/// less.
class PublishedTree {
public:
    struct Release {
        /// In the history; 0 for the manifest of a next publication and for launchers.
        int number = 0;
        /// Seconds since 1970.
        std::int64_t time = 0;
        std::int64_t size = 0;
        QString message = {};
    };

    [[nodiscard]] Problem read(const QString& folder);

    /// What was live then, or is dated so. None before the first publication that is
    /// known of.
    const Release* liveAt(Track track, std::int64_t time) const;
    /// The manifest of a next publication with this date.
    const Release* nextDated(std::int64_t date) const;

    /// Size of a patch file that a manifest names, also one of the history, by the
    /// target of its requests. 0 where it is not there any more; none where no
    /// manifest names it.
    std::optional<std::int64_t> sizeOfPatchFile(std::string_view target) const;

private:
    void readHistory(const QString& folder, Track track);
    void readLauncher(const QString& folder);
    void readNext(const QString& folder);
    void takeFiles(const QString& folder, const QString& manifest, Track track);

    std::array<QList<Release>, trackCount> releases;
    std::optional<Release> next;
    QHash<QString, std::int64_t> patchFiles;
};

} // namespace Publisher
