#include "publisher/check/manifestcontent.h"

#include <algorithm>

namespace Publisher {

qint64 ManifestContent::count() const
{
    return entries.size();
}

const PatchManifestEntry& ManifestContent::entry(qint64 n) const
{
    return entries.at(n - 1);
}

QString ManifestContent::name(qint64 n) const
{
    return n <= count() ? entry(n).name : furtherNames.value(n);
}

ManifestContent ManifestContent::read(const QString& path, QChar separator, int realms)
{
    const PatchManifest manifest(path, separator);
    ManifestContent content;
    // Beyond the last key all numbers are alike, and nothing comes of them.
    const qint64 beyond = manifest.lastNumberedEntry() + 1;
    const PatchManifestEntry vacant = manifest.entry(beyond);
    const qint64 last = std::min(manifest.entryCount(), beyond);
    qint64 vacantNumbers = 0;
    for (qint64 n = 1; n <= last && vacantNumbers <= mostVacantNumbers; ++n) {
        content.entries.append(manifest.entry(n));
        if (content.entries.constLast() == vacant)
            ++vacantNumbers;
    }
    for (qint64 n = content.count() + 1; n <= realms; ++n)
        content.furtherNames.insert(n, manifest.name(n));
    return content;
}

} // namespace Publisher
