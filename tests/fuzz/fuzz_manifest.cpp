// Feeds broken manifests to the launcher's reading code and to `check`.

#include "publisher/check/check.h"
#include "tests/fuzz/brokenmanifest.h"
#include "tests/fuzz/fuzzloop.h"

#include <QCoreApplication>
#include <QFile>
#include <QTemporaryDir>

#include <algorithm>

using namespace Qt::StringLiterals;
using namespace Publisher;

namespace {

/// Everything that the launcher asks a manifest for, and builds from it.
void readAsLauncher(const QString& path, QChar separator)
{
    // The numbers between are handled alike, and walking them all is slow.
    constexpr qint64 mostEntries = 2'000;
    const PatchManifest manifest(path, separator);
    const PatchLayout layout(u"/settings"_s, u"/cache"_s, separator);
    const qint64 count = std::min(manifest.entryCount(), mostEntries);
    for (qint64 n = 0; n <= count; ++n) {
        const PatchManifestEntry entry = manifest.entry(n);
        layout.cachedFolder(u"live"_s, entry);
        layout.reconciledFolder(u"/client"_s, u"live"_s, entry);
        PatchLayout::patchFile(u"https://server/"_s, u"live"_s, entry).toString();
    }
}

qsizetype inspect(const QString& path, quint32 index)
{
    CheckedPlayers players;
    players.realms = 1 + static_cast<int>(index % 4);
    players.separator = index % 2 == 0 ? u'\\' : u'/';
    readAsLauncher(path, players.separator);
    const Inspection inspection = Check::inspect(
        path, u"patch.ini"_s, index % 3 == 0 ? Kind::Test : Kind::Live, players,
        index % 5 == 0 ? u"/"_s : QString());
    qsizetype characters = 0;
    for (const Finding& finding : inspection.findings)
        characters += Findings::toText(finding).size();
    return characters;
}

/// Every input has a path of its own: the settings layer keeps what it has read
/// by path.
void feed(const QString& folder, const QByteArray& content, quint32 index)
{
    const QString path = folder + u'/' + QString::number(index) + ".ini"_L1;
    QFile file(path);
    if (!file.open(QIODevice::WriteOnly) || file.write(content) != content.size())
        qFatal("cannot write %s", qPrintable(path));
    file.close();
    inspect(path, index);
    file.remove();
}

} // namespace

int main(int argc, char* argv[])
{
    const QCoreApplication application(argc, argv);
    const QTemporaryDir folder;
    return runFuzzer(
        { u"manifest"_s, brokenManifest, [&folder](const QByteArray& input, quint32 index) {
             feed(folder.path(), input, index);
         } });
}
