#include "publisher/common/manifesttext.h"

#include <algorithm>

using namespace Qt::StringLiterals;

namespace Publisher {

namespace {

/// In quotes nothing but quotes and backslashes has a meaning, save an "@" in
/// front, which would announce a type.
void appendQuoted(QByteArray& text, const QString& value)
{
    text += value.startsWith(u'@') ? R"("@)" : R"(")";
    const QByteArray bytes = value.toUtf8();
    for (const char byte : bytes) {
        if (byte == '\\' || byte == '"')
            text += '\\';
        text += byte;
    }
    text += "\"\n";
}

void appendEntry(QByteArray& text, qsizetype n, const PatchManifestEntry& entry)
{
    const QByteArray key = "file" + QByteArray::number(n);
    text += key + '=';
    appendQuoted(text, entry.name);
    if (!entry.save)
        text += key + "-save=false\n";
    if (entry.dirOnly)
        text += key + "-dirOnly=true\n";
    text += key + "-pathOffset=";
    appendQuoted(text, entry.pathOffset);
    if (entry.action() != PatchAction::FileDownload)
        return;
    text += key + "-urlOffset=";
    appendQuoted(text, entry.urlOffset);
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
        expect(R"(")");
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

    PatchManifestEntry takeEntry(qsizetype n)
    {
        const QByteArray key = "file" + QByteArray::number(n);
        PatchManifestEntry entry{};
        expect(key + '=');
        entry.name = takeQuoted();
        entry.save = !take(key + "-save=false\n");
        entry.dirOnly = take(key + "-dirOnly=true\n");
        expect(key + "-pathOffset=");
        entry.pathOffset = takeQuoted();
        if (take(key + "-urlOffset="))
            entry.urlOffset = takeQuoted();
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

} // namespace

ManifestText::Writer::Writer(qsizetype entries)
    : written(head(entries))
{
}

void ManifestText::Writer::append(const PatchManifestEntry& entry)
{
    appendEntry(written, ++count, entry);
}

QByteArray ManifestText::Writer::text() const
{
    return written;
}

bool ManifestText::read(QByteArrayView text, const TakeEntry& take)
{
    Reader reader(text);
    reader.expect("[General]\nnumberOfFiles=");
    const qsizetype count = reader.takeNumber();
    QByteArray written = head(count);
    bool same = text.startsWith(written);
    for (qsizetype n = 1; n <= count && same && reader.isGood(); ++n) {
        const QByteArrayView rest = text.last(reader.left());
        const PatchManifestEntry entry = reader.takeEntry(n);
        written.clear();
        appendEntry(written, n, entry);
        same = rest.startsWith(written) && rest.size() - written.size() == reader.left();
        if (same)
            take(entry);
    }
    return same && reader.isGood() && reader.left() == 0;
}

} // namespace Publisher
