#include "publisher/manifestdraft.h"

using namespace Qt::StringLiterals;

namespace {

/// In quotes nothing but quotes and backslashes has a meaning, save an "@" in
/// front, which would announce a type.
QString quoted(const QString& value)
{
    QString text = value;
    text.replace(u'\\', R"(\\)"_L1).replace(u'"', R"(\")"_L1);
    return (text.startsWith(u'@') ? R"("@)"_L1 : R"(")"_L1) + text + u'"';
}

void appendEntry(QString& text, qsizetype n, const ManifestDraft::Entry& entry)
{
    const QString key = "file"_L1 + QString::number(n);
    text += key + u'=' + quoted(entry.content.name) + u'\n';
    if (!entry.content.save)
        text += key + "-save=false\n"_L1;
    if (entry.content.dirOnly)
        text += key + "-dirOnly=true\n"_L1;
    text += key + "-pathOffset="_L1 + quoted(entry.content.pathOffset) + u'\n';
    if (entry.content.action() != PatchAction::FileDownload)
        return;
    text += key + "-urlOffset="_L1 + quoted(entry.content.urlOffset) + u'\n';
    text += key + "-hash="_L1 + quoted(entry.hash) + u'\n';
}

bool isSame(const PatchManifestEntry& one, const PatchManifestEntry& other)
{
    return one.save == other.save && one.dirOnly == other.dirOnly
        && one.pathOffset == other.pathOffset && one.urlOffset == other.urlOffset
        && one.name == other.name;
}

} // namespace

QString pathOffsetOf(const QString& folder, QChar separator)
{
    return QString(folder).replace(u'/', separator);
}

ManifestDraft::Entry ManifestDraft::folder(const QString& path, QChar separator)
{
    return { { .save = true,
               .dirOnly = true,
               .pathOffset = pathOffsetOf(path.section(u'/', 0, -2), separator),
               .urlOffset = {},
               .name = path.section(u'/', -1) },
             {} };
}

ManifestDraft::Entry ManifestDraft::file(
    const QString& path, const QString& urlOffset, const QString& hash, QChar separator)
{
    return { { .save = true,
               .dirOnly = false,
               .pathOffset = pathOffsetOf(path.section(u'/', 0, -2), separator),
               .urlOffset = urlOffset,
               .name = path.section(u'/', -1) },
             hash };
}

QByteArray ManifestDraft::toIni() const
{
    QString text = u"[General]\nnumberOfFiles=%1\n"_s.arg(entries.size());
    for (qsizetype i = 0; i < entries.size(); ++i)
        appendEntry(text, i + 1, entries.at(i));
    return text.toUtf8();
}

QString ManifestDraft::differenceTo(const QString& manifestPath) const
{
    const PatchManifest manifest(manifestPath);
    if (manifest.entryCount() != entries.size())
        return u"launchers would read %1 entries instead of %2"_s.arg(manifest.entryCount())
            .arg(entries.size());
    for (qsizetype i = 0; i < entries.size(); ++i) {
        const Entry& meant = entries.at(i);
        if (!isSame(meant.content, manifest.entry(i + 1)) || meant.hash != manifest.hash(i + 1))
            return u"launchers would read entry %1 (\"%2\") differently"_s.arg(i + 1).arg(
                meant.content.name);
    }
    return {};
}
