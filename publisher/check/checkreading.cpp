#include "publisher/check/checkreading.h"

#include "publisher/common/webpage.h"
#include "update/patchmanifest.h"

#include <QFile>
#include <QRegularExpression>
#include <QSet>
#include <QSettings>
#include <QStringDecoder>

using namespace Qt::StringLiterals;

namespace Publisher {

namespace {

constexpr qsizetype longestQuotation = 80;

/// A line "key=value" as a reader of the file sees it.
struct Line {
    int number;
    QString section;
    QString key;
    QString text;
};

struct Text {
    QList<Line> lines;
    /// Numbers of the lines that are neither key, section, comment nor empty.
    QList<qint64> strangers;
    bool isUtf8 = true;
};

QString quoted(const QString& text)
{
    const QString shown
        = text.size() > longestQuotation ? text.left(longestQuotation) + u'…' : text;
    return u'"' + shown + u'"';
}

QString decoded(const QByteArray& bytes, bool& isUtf8)
{
    QStringDecoder decoder(QStringDecoder::Utf8);
    QString text = decoder(bytes);
    isUtf8 = isUtf8 && !decoder.hasError() && !bytes.contains('\0');
    return text;
}

void takeLine(Text& text, QString& section, const QString& line, int number)
{
    if (line.isEmpty() || line.startsWith(u';'))
        return;
    if (line.startsWith(u'[')) {
        section = line.mid(1, line.indexOf(u']') - 1).trimmed();
        return;
    }
    const qsizetype equals = line.indexOf(u'=');
    if (equals < 0)
        text.strangers.append(number);
    else
        text.lines.append(
            { number, section, line.left(equals).trimmed(), line.mid(equals + 1).trimmed() });
}

Text readText(const QByteArray& bytes)
{
    static const QRegularExpression lineEnd(u"\r\n|\n|\r"_s);
    Text text;
    const QString content = decoded(bytes, text.isUtf8);
    QString section;
    int number = 0;
    const QStringList lines = content.split(lineEnd);
    for (const QString& line : lines)
        takeLine(text, section, line.trimmed(), ++number);
    return text;
}

bool isTopLevel(const QString& section)
{
    return section.isEmpty() || section.compare("General"_L1, Qt::CaseInsensitive) == 0;
}

bool isManifestKey(const QString& key)
{
    static const QRegularExpression known(
        u"^(numberOfFiles|file[1-9][0-9]*(-(save|dirOnly|pathOffset|urlOffset|hash))?)$"_s);
    return known.match(key).hasMatch();
}

bool isBooleanKey(const QString& key)
{
    return key.endsWith("-save"_L1) || key.endsWith("-dirOnly"_L1);
}

QString escaped(QString text)
{
    return text.replace(u'\\', R"(\\)"_L1).replace(u'"', R"(\")"_L1);
}

bool isHexDigit(QChar character)
{
    return character.unicode() < 0x80
        && QByteArray("0123456789abcdefABCDEF").contains(character.toLatin1());
}

/// As older versions of the settings layer write what is not ASCII.
QString hexEscaped(const QString& value)
{
    QString text;
    bool afterEscape = false;
    for (const QChar character : value) {
        const bool plain = character.unicode() > 0x1f && character.unicode() < 0x7f;
        if (plain && !(afterEscape && isHexDigit(character))) {
            text += escaped(character);
            afterEscape = false;
        } else {
            text += R"(\x)"_L1 + QString::number(character.unicode(), 16);
            afterEscape = true;
        }
    }
    return text;
}

/// Whether a character of the text, outside quotes, is `wanted`.
bool hasOutsideQuotes(const QString& text, QChar wanted)
{
    bool inQuotes = false;
    for (qsizetype i = 0; i < text.size(); ++i) {
        if (text[i] == u'\\')
            ++i;
        else if (text[i] == u'"')
            inQuotes = !inQuotes;
        else if (text[i] == wanted && !inQuotes)
            return true;
    }
    return false;
}

/// Why a text is not read as it stands.
QString reason(const QString& text)
{
    if (hasOutsideQuotes(text, u';'))
        return u"what follows a semicolon is a comment"_s;
    if (text.endsWith(u'\\') && !text.endsWith(R"(\\)"_L1))
        return u"a backslash at the end of a line joins the next line to it"_s;
    if (hasOutsideQuotes(text, u','))
        return u"an unquoted comma makes a list, and a list reads as nothing"_s;
    if (text.contains(u'\\'))
        return u"a backslash begins an escape, so it and often the letter after it are lost"_s;
    if (text.startsWith(u'@'))
        return u"an @ at the beginning marks a value of a special type"_s;
    if (text.contains(u'"'))
        return u"quotes must stand around the whole value"_s;
    return u"the line is not taken as it stands"_s;
}

class Comparison {
public:
    Comparison(const QString& manifestPath, QString manifestName)
        : settings(manifestPath, QSettings::IniFormat)
        , subject(std::move(manifestName))
    {
    }

    void compare(const Line& line)
    {
        const QString place = "line "_L1 + QString::number(line.number) + ", "_L1;
        if (!isTopLevel(line.section))
            inSection(place, line);
        else if (!isManifestKey(line.key))
            add(FindingId::KeyUnknown, line.key,
                place + quoted(line.key) + ": the launcher reads no such key."_L1);
        else if (seen.contains(line.key))
            add(FindingId::KeyRepeated, line.key,
                place + quoted(line.key) + " stands in the file twice; only one counts."_L1);
        else
            compareValue(place, line);
        seen.insert(line.key);
    }

    QList<Finding> found;

private:
    void add(FindingId id, const QString& key, const QString& text)
    {
        found.append({ id, subject, PatchManifest::entryOfKey(key), text });
    }

    void inSection(const QString& place, const Line& line)
    {
        if (isManifestKey(line.key))
            add(FindingId::KeyInSection, line.key,
                place + quoted(line.key) + " stands in the section ["_L1 + line.section
                    + "], where the launcher does not look."_L1);
    }

    void compareValue(const QString& place, const Line& line)
    {
        if (!settings.contains(line.key)) {
            add(FindingId::ValueMisread, line.key,
                place + quoted(line.key)
                    + ": the launcher does not see this line, since an earlier one swallows it."_L1);
            return;
        }
        const QString value = settings.value(line.key).toString();
        if (!CheckReading::saysWhatIsRead(line.text, value))
            add(FindingId::ValueMisread, line.key,
                place + quoted(line.key) + " stands there as "_L1 + quoted(line.text)
                    + ", but the launcher reads "_L1 + quoted(value) + ": "_L1 + reason(line.text)
                    + u'.');
        else if (isBooleanKey(line.key))
            checkBoolean(place, line.key, value);
    }

    void checkBoolean(const QString& place, const QString& key, const QString& value)
    {
        static const QSet<QString> plain{ u"true"_s, u"false"_s, u"1"_s, u"0"_s };
        if (plain.contains(value.toLower()))
            return;
        const QString read = QVariant(value).toBool() ? u"true"_s : u"false"_s;
        add(FindingId::BooleanMisread, key,
            place + quoted(key) + " is "_L1 + quoted(value) + ", which the launcher reads as "_L1
                + read + u'.');
    }

    QSettings settings;
    QString subject;
    QSet<QString> seen;
};

Finding malformed(const QString& subject, const QString& text)
{
    return { FindingId::ManifestMalformed, subject, 0, text };
}

} // namespace

namespace CheckReading {

QList<Finding> findings(const QString& manifestPath, const QString& subject)
{
    QFile file(manifestPath);
    if (!file.open(QIODevice::ReadOnly))
        return { { FindingId::ManifestMissing, subject, 0,
                   u"The manifest is not there; players keep the one they have."_s } };
    const QByteArray content = file.readAll();
    if (isWebPage(content))
        return { malformed(subject, u"This is a web page, not a manifest."_s) };
    const Text text = readText(content);
    if (!text.isUtf8)
        return { malformed(
            subject, u"The text is not UTF-8; the launcher would read other names from it."_s) };

    Comparison comparison(manifestPath, subject);
    for (const Line& line : text.lines)
        comparison.compare(line);
    if (!text.strangers.isEmpty())
        comparison.found.append(malformed(
            subject,
            u"The launcher makes nothing of line %1: a line is \"key=value\", and a comment begins "
            "with a semicolon."_s.arg(Findings::numberList(text.strangers))));
    return comparison.found;
}

bool saysWhatIsRead(const QString& text, const QString& value)
{
    const QString doubled = value.startsWith(u'@') ? u'@' + value : value;
    for (const QString& meant : { value, doubled }) {
        const QString plain = escaped(meant);
        const QString hexadecimal = hexEscaped(meant);
        for (const QString& spelling : { meant, plain, hexadecimal }) {
            if (text == spelling || text == u'"' + spelling + u'"')
                return true;
        }
    }
    return false;
}

} // namespace CheckReading

} // namespace Publisher
