#include "publisher/build/manifestdraft.h"

using namespace Qt::StringLiterals;

namespace Publisher {

namespace {

QString misread(const QString& what)
{
    return u"launchers would read %1 from the new manifest, so it has not gone live. See that the "
           "disk is well, and rename what has odd characters in its name"_s.arg(what);
}

} // namespace

QString pathOffsetOf(const QString& folder, QChar separator)
{
    return QString(folder).replace(u'/', separator);
}

PatchManifestEntry ManifestDraft::folder(const QString& path, QChar separator)
{
    return { .save = true,
             .dirOnly = true,
             .pathOffset = pathOffsetOf(path.section(u'/', 0, -2), separator),
             .urlOffset = {},
             .name = path.section(u'/', -1) };
}

PatchManifestEntry ManifestDraft::file(
    const QString& path, const QString& urlOffset, const QString& hash, QChar separator)
{
    return { .save = true,
             .dirOnly = false,
             .pathOffset = pathOffsetOf(path.section(u'/', 0, -2), separator),
             .urlOffset = urlOffset,
             .name = path.section(u'/', -1),
             .hash = hash };
}

QString ManifestDraft::differenceTo(const QString& manifestPath) const
{
    const PatchManifest manifest(manifestPath);
    if (manifest.entryCount() != entries.size())
        return misread(
            u"%1 entries instead of %2"_s.arg(manifest.entryCount()).arg(entries.size()));
    for (qsizetype i = 0; i < entries.size(); ++i) {
        const PatchManifestEntry& meant = entries.at(i);
        if (meant != manifest.entry(i + 1))
            return misread(u"entry %1 (\"%2\") differently"_s.arg(i + 1).arg(meant.name));
    }
    return {};
}

} // namespace Publisher
