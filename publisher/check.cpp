#include "publisher/check.h"

#include "publisher/checkreading.h"

#include <algorithm>

namespace Check {

CheckedManifest read(
    const QString& path, const QString& subject, const QString& kind, const CheckedPlayers& players)
{
    return { subject, path, kind, ManifestContent::read(path, players.separator, players.realms) };
}

QList<Finding> findings(
    const CheckedManifest& manifest, const CheckedPlayers& players, const RehearsedRun& run,
    const QString& tree)
{
    QList<Finding> found = CheckReading::findings(manifest.path, manifest.subject);
    const bool unreadable = std::any_of(found.cbegin(), found.cend(), [](const Finding& finding) {
        return finding.id == FindingId::ManifestMissing;
    });
    if (unreadable)
        return found;
    found += CheckEntries::findings(manifest, players);
    found += CheckEffects::findings(manifest, players, run);
    if (!tree.isEmpty())
        found += CheckPublished::findings(manifest, tree);
    std::stable_sort(found.begin(), found.end(), [](const Finding& a, const Finding& b) {
        return a.entry < b.entry;
    });
    return found;
}

} // namespace Check
