#include "publisher/publication.h"

#include "publisher/names.h"
#include "publisher/removalplan.h"
#include "update/patchmanifest.h"

#include <QDir>
#include <QFile>

namespace {

/// Relative to the client folder, with "/".
QString pathInClient(const PatchManifestEntry& entry, const QString& name)
{
    const QString folder = QString(entry.pathOffset).replace(u'\\', u'/');
    const QString path = QDir::cleanPath(folder + u'/' + name);
    return path.startsWith(u'/') ? path.sliced(1) : path;
}

void takeFile(
    const PatchManifestEntry& entry, const QString& hash, const QString& kind, Publication& target)
{
    const QString path = pathInClient(entry, entry.name);
    const QString place = pathOnServer(kind, entry.urlOffset, entry.name);
    target.files.insert(path, { path, hash, QDir::cleanPath(place) });
}

} // namespace

Publication readPublication(const QString& manifestPath, const QString& kind)
{
    Publication publication;
    if (!QFile::exists(manifestPath))
        return publication;
    // An entry without a path offset means "Data", whatever the separator.
    const PatchManifest manifest(manifestPath, u'/');
    QString firstName;
    for (qint64 n = 1; n <= manifest.entryCount(); ++n) {
        const PatchManifestEntry entry = manifest.entry(n);
        const QString hash = manifest.hash(n);
        if (n == 1)
            firstName = entry.name;
        if (!entry.save)
            publication.removals.append(
                { pathInClient(entry, removesOnlyByPlates(entry) ? firstName : entry.name),
                  entry.dirOnly });
        else if (entry.dirOnly)
            publication.folders.insert(pathInClient(entry, entry.name));
        else if (!isNamePlate(entry, hash))
            takeFile(entry, hash, kind, publication);
    }
    return publication;
}
