#include "publisher/common/publication.h"

#include "publisher/common/manifesttext.h"
#include "publisher/common/placeholder.h"

#include <QDir>
#include <QFile>

namespace Publisher {

namespace {

/// For manifests written by hand.
void readAsLaunchersDo(const QString& manifestPath, const ManifestText::TakeEntry& take)
{
    // An entry without a path offset means "Data", whatever the separator.
    const PatchManifest manifest(manifestPath, u'/');
    for (qint64 n = 1; n <= manifest.entryCount(); ++n)
        take(manifest.entry(n));
}

/// Relative to the client folder, with "/".
QString pathInClient(const PatchManifestEntry& entry, const QString& name)
{
    const QString folder = QString(entry.pathOffset).replace(u'\\', u'/');
    const QString path = QDir::cleanPath(folder + u'/' + name);
    return path.startsWith(u'/') ? path.sliced(1) : path;
}

/// Makes a publication of the entries as they come.
class Reader {
public:
    explicit Reader(Kind manifestKind)
        : kind(manifestKind)
    {
    }

    void take(const PatchManifestEntry& entry)
    {
        if (++count == 1)
            firstName = entry.name;
        if (!entry.save)
            publication.removals.append(
                { pathInClient(entry, removesOnlyByPlaceholders(entry) ? firstName : entry.name),
                  entry.dirOnly });
        else if (entry.dirOnly)
            publication.folders.insert(pathInClient(entry, entry.name));
        else if (!isPlaceholder(entry))
            takeFile(entry);
    }

    Publication publication;

private:
    void takeFile(const PatchManifestEntry& entry)
    {
        const QString path = pathInClient(entry, entry.name);
        const QString place = ServerLayout::askedPath(kind, entry);
        publication.files.insert(path, { path, entry.hash, QDir::cleanPath(place) });
    }

    Kind kind;
    QString firstName;
    qint64 count = 0;
};

} // namespace

Publication readPublication(const QString& manifestPath, Kind kind)
{
    QFile manifest(manifestPath);
    if (!manifest.open(QIODevice::ReadOnly))
        return {};
    Reader own(kind);
    if (ManifestText::read(manifest.readAll(), [&](const auto& entry) { own.take(entry); }))
        return own.publication;
    Reader foreign(kind);
    readAsLaunchersDo(manifestPath, [&](const auto& entry) { foreign.take(entry); });
    return foreign.publication;
}

} // namespace Publisher
