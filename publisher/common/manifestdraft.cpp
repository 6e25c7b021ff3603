#include "publisher/common/manifestdraft.h"

#include <algorithm>

using namespace Qt::StringLiterals;

namespace Publisher {

namespace {

/// In quotes nothing but quotes and backslashes has a meaning, save an "@" in
/// front, which would announce a type.
void appendQuoted(QByteArray& text, const QString& value)
{
    text += value.startsWith(u'@') ? "\"@" : "\"";
    const QByteArray bytes = value.toUtf8();
    for (const char byte : bytes) {
        if (byte == '\\' || byte == '"')
            text += '\\';
        text += byte;
    }
    text += "\"\n";
}

void appendEntry(QByteArray& text, qsizetype n, const ManifestDraft::Entry& entry)
{
    const QByteArray key = "file" + QByteArray::number(n);
    text += key + '=';
    appendQuoted(text, entry.content.name);
    if (!entry.content.save)
        text += key + "-save=false\n";
    if (entry.content.dirOnly)
        text += key + "-dirOnly=true\n";
    text += key + "-pathOffset=";
    appendQuoted(text, entry.content.pathOffset);
    if (entry.content.action() != PatchAction::FileDownload)
        return;
    text += key + "-urlOffset=";
    appendQuoted(text, entry.content.urlOffset);
    text += key + "-hash=";
    appendQuoted(text, entry.hash);
}

QByteArray head(qsizetype count)
{
    return "[General]\nnumberOfFiles=" + QByteArray::number(count) + '\n';
}

/// Reads what appendEntry() has written. What it makes of other texts is no
/// matter, as long as it comes to an end: the caller compares.
class Reader {
public:
    explicit Reader(QByteArrayView text)
        : rest(text)
    {
    }

    bool take(QByteArrayView wanted)
    {
        if (!rest.startsWith(wanted))
            return false;
        rest = rest.sliced(wanted.size());
        return true;
    }

    void expect(QByteArrayView wanted)
    {
        good = take(wanted) && good;
    }

    qsizetype takeNumber()
    {
        const qsizetype digits = rest.indexOf('\n');
        const qsizetype number
            = rest.first(std::max<qsizetype>(digits, 0)).toByteArray().toLongLong();
        rest = rest.sliced(std::max<qsizetype>(digits, 0));
        expect("\n");
        return number;
    }

    QString takeQuoted()
    {
        expect("\"");
        take("@");
        QByteArray value;
        qsizetype i = 0;
        for (; i < rest.size() && rest[i] != '"'; ++i) {
            if (rest[i] == '\\' && i + 1 < rest.size())
                ++i;
            value += rest[i];
        }
        rest = rest.sliced(i);
        expect("\"\n");
        return QString::fromUtf8(value);
    }

    ManifestDraft::Entry takeEntry(qsizetype n)
    {
        const QByteArray key = "file" + QByteArray::number(n);
        ManifestDraft::Entry entry{};
        expect(key + '=');
        entry.content.name = takeQuoted();
        entry.content.save = !take(key + "-save=false\n");
        entry.content.dirOnly = take(key + "-dirOnly=true\n");
        expect(key + "-pathOffset=");
        entry.content.pathOffset = takeQuoted();
        if (take(key + "-urlOffset="))
            entry.content.urlOffset = takeQuoted();
        if (take(key + "-hash="))
            entry.hash = takeQuoted();
        return entry;
    }

    /// Whether everything so far was as expected.
    bool isGood() const
    {
        return good;
    }

    qsizetype left() const
    {
        return rest.size();
    }

private:
    QByteArrayView rest;
    bool good = true;
};

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
    QByteArray text = head(entries.size());
    for (qsizetype i = 0; i < entries.size(); ++i)
        appendEntry(text, i + 1, entries.at(i));
    return text;
}

bool ManifestDraft::readIni(QByteArrayView text, const std::function<void(const Entry&)>& take)
{
    Reader reader(text);
    reader.expect("[General]\nnumberOfFiles=");
    const qsizetype count = reader.takeNumber();
    QByteArray written = head(count);
    bool same = text.startsWith(written);
    for (qsizetype n = 1; n <= count && same && reader.isGood(); ++n) {
        const QByteArrayView rest = text.last(reader.left());
        const Entry entry = reader.takeEntry(n);
        written.clear();
        appendEntry(written, n, entry);
        same = rest.startsWith(written) && rest.size() - written.size() == reader.left();
        if (same)
            take(entry);
    }
    return same && reader.isGood() && reader.left() == 0;
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

} // namespace Publisher
