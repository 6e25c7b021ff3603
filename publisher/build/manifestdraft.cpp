#include "publisher/build/manifestdraft.h"

#include "publisher/common/manifesttext.h"

using namespace Qt::StringLiterals;

namespace Publisher {

namespace {

QString misread(const QString& what)
{
    return u"launchers would read %1 from the new manifest, so it has not gone live. See that the "
           "disk is well, and rename what has odd characters in its name"_s.arg(what);
}

} // namespace

QString ManifestDraft::pathOffset(const QString& folder, QChar separator)
{
    return QString(folder).replace(u'/', separator);
}

PatchManifestEntry ManifestDraft::folder(const QString& path, QChar separator)
{
    return { .save = true,
             .dirOnly = true,
             .pathOffset = pathOffset(path.section(u'/', 0, -2), separator),
             .urlOffset = {},
             .name = path.section(u'/', -1) };
}

PatchManifestEntry ManifestDraft::file(
    const QString& path, const QString& urlOffset, const QString& hash, QChar separator)
{
    return { .save = true,
             .dirOnly = false,
             .pathOffset = pathOffset(path.section(u'/', 0, -2), separator),
             .urlOffset = urlOffset,
             .name = path.section(u'/', -1),
             .hash = hash };
}

Problem ManifestDraft::misreading(QByteArrayView text, const QString& manifestPath)
{
    const PatchManifest manifest(manifestPath);
    qint64 n = 0;
    Problem difference;
    const bool isOwn = ManifestText::read(text, [&](const PatchManifestEntry& meant) {
        ++n;
        if (!difference && meant != manifest.entry(n))
            difference = misread(u"entry %1 (\"%2\") differently"_s.arg(n).arg(meant.name));
    });
    if (!isOwn)
        return misread(u"something else"_s);
    if (manifest.entryCount() != n)
        return misread(u"%1 entries instead of %2"_s.arg(manifest.entryCount()).arg(n));
    return difference;
}

} // namespace Publisher
