#include "publisher/publication.h"

#include "publisher/names.h"
#include "publisher/removalplan.h"
#include "update/patchmanifest.h"

#include <QDir>
#include <QFile>

QHash<QString, PublishedFile> readPublication(const QString& manifestPath, const QString& kind)
{
    QHash<QString, PublishedFile> files;
    if (!QFile::exists(manifestPath))
        return files;
    // An entry without a path offset means "Data", whatever the separator.
    const PatchManifest manifest(manifestPath, u'/');
    for (qint64 n = 1; n <= manifest.entryCount(); ++n) {
        const PatchManifestEntry entry = manifest.entry(n);
        const QString hash = manifest.hash(n);
        if (entry.action() != PatchAction::FileDownload || isNamePlate(entry, hash))
            continue;
        const QString folder = QString(entry.pathOffset).replace(u'\\', u'/');
        const QString path = QDir::cleanPath(folder + u'/' + entry.name);
        const QString clean = path.startsWith(u'/') ? path.sliced(1) : path;
        const QString place = pathOnServer(kind, entry.urlOffset, entry.name);
        files.insert(clean, { clean, hash, QDir::cleanPath(place) });
    }
    return files;
}
