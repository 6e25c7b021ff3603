// Manifests against `check`, which inspects them and rehearses what they bring about.

#include "publisher/check/check.h"
#include "tests/fuzz/target.h"

#include <QDir>
#include <QFile>

using namespace Qt::StringLiterals;
using namespace Publisher;

namespace {

/// A tree of published files that the kept inputs name: one as it should be, one
/// that is empty, and a folder in the place of another.
class PublishedTree {
public:
    PublishedTree()
    {
        const QString folder = path() + u'/' + ServerLayout::kindFolder(Kind::Test) + "/Data"_L1;
        if (!QDir().mkpath(folder + "/folder.MPQ"_L1))
            qFatal("cannot make %s", qPrintable(folder));
        write(folder + "/patch-h.MPQ"_L1, "patch");
        write(folder + "/empty.MPQ"_L1, {});
    }

    QString path() const
    {
        return place.path();
    }

private:
    static void write(const QString& path, const QByteArray& content)
    {
        QFile file(path);
        if (!file.open(QIODevice::WriteOnly) || file.write(content) != content.size())
            qFatal("cannot write %s", qPrintable(path));
    }

    QTemporaryDir place;
};

/// Inspects it, and has all that is found put into words.
void inspect(const QString& path, Kind kind, const CheckedPlayers& players, const QString& tree)
{
    const QString name = ServerLayout::manifestName(kind);
    const Inspection inspection = Check::inspect(path, name, kind, players, tree);
    for (const Finding& finding : inspection.findings) {
        if (Findings::toText(finding).isEmpty())
            qFatal("a finding without words");
    }
}

/// Rehearsing thousands of entries tells no more than rehearsing a few, and takes
/// its time.
bool isLong(const QString& path)
{
    constexpr qint64 mostEntries = 500;
    return PatchManifest(path).lastNumberedEntry() > mostEntries;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    static const PublishedTree tree;
    const Fuzz::InputFile manifest(Fuzz::toBytes(data, size));
    if (isLong(manifest.path()))
        return 0;
    inspect(manifest.path(), Kind::Live, { .realms = 3, .separator = u'\\' }, {});
    inspect(manifest.path(), Kind::Test, { .realms = 1, .separator = u'/' }, tree.path());
    return 0;
}
