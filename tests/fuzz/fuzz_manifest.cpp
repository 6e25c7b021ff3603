// Manifests against the launcher's reading code.

#include "tests/fuzz/target.h"
#include "update/patchlayout.h"

#include <QUrl>

#include <algorithm>

using namespace Qt::StringLiterals;

namespace {

/// Everything that the launcher asks a manifest for, and builds from it.
void readAsLauncher(const QString& path, QChar separator)
{
    // The numbers between are handled alike, and walking them all is slow.
    constexpr qint64 mostEntries = 500;
    const PatchManifest manifest(path, separator);
    const PatchLayout layout(u"/settings"_s, u"/cache"_s, separator);
    const qint64 count = std::min(manifest.entryCount(), mostEntries);
    for (qint64 n = 0; n <= count; ++n) {
        const PatchManifestEntry entry = manifest.entry(n);
        layout.cachedFolder(u"live"_s, entry);
        layout.cachedFileFolder(u"live"_s, entry);
        layout.reconciledFolder(u"/client"_s, u"live"_s, entry);
        layout.inClient(u"/client"_s, entry.pathOffset, entry.name);
        PatchLayout::installFolder(u"/client"_s, entry);
        PatchLayout::patchFile(u"https://server/"_s, u"live"_s, entry).toString();
    }
    // Whoever walks the manifest by its keys must come to each of them.
    if (manifest.lastNumberedEntry() < 0)
        qFatal("an entry has a negative number");
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    const Fuzz::InputFile manifest(Fuzz::toBytes(data, size));
    readAsLauncher(manifest.path(), u'\\');
    readAsLauncher(manifest.path(), u'/');
    return 0;
}
