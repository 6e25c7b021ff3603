#include "publisher/check/check.h"

#include "publisher/check/checkentries.h"
#include "publisher/check/checkpublished.h"
#include "publisher/check/checkreading.h"

#include <algorithm>

namespace Publisher {

namespace {

QList<Finding> findingsOf(
    const CheckedManifest& manifest, const RehearsedRun& run, const CheckedPlayers& players,
    const QString& tree, const HashCache* known)
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
        found += CheckPublished::findings(manifest, tree, known);
    std::stable_sort(found.begin(), found.end(), [](const Finding& a, const Finding& b) {
        return a.entry < b.entry;
    });
    return found;
}

} // namespace

Inspection Check::inspect(
    const QString& path, const QString& subject, Kind kind, const CheckedPlayers& players,
    const QString& tree, const HashCache* known)
{
    Inspection inspection;
    inspection.manifest
        = { subject, path, kind, ManifestContent::read(path, players.separator, players.realms) };
    inspection.run = CheckEffects::firstRun(inspection.manifest, players);
    inspection.findings = findingsOf(inspection.manifest, inspection.run, players, tree, known);
    return inspection;
}

} // namespace Publisher
