#include "publisher/report/shown.h"

#include <QRegularExpression>
#include <QStringDecoder>

using namespace Qt::StringLiterals;

namespace Publisher::Shown {

namespace {

constexpr qsizetype longest = 160;

QString code(QByteArrayView bytes)
{
    QString text;
    for (const char byte : bytes)
        text += u"\\x%1"_s.arg(
            static_cast<uint>(static_cast<unsigned char>(byte)), 2, 16, QChar(u'0'));
    return text;
}

/// Controls, and what turns the direction or cannot be seen.
bool isHarmless(char32_t character)
{
    const QChar::Category category = QChar::category(character);
    return category != QChar::Other_Control && category != QChar::Other_Format
        && category != QChar::Other_NotAssigned && category != QChar::Other_PrivateUse
        && category != QChar::Other_Surrogate && category != QChar::Separator_Line
        && category != QChar::Separator_Paragraph;
}

/// How many bytes the character has that begins there; 0 where none does.
qsizetype sizeOfCharacter(QByteArrayView bytes)
{
    for (qsizetype size = 1; size <= std::min<qsizetype>(4, bytes.size()); ++size) {
        if (bytes.first(size).isValidUtf8())
            return size;
    }
    return 0;
}

QString withCodes(QByteArrayView bytes)
{
    QString text;
    while (!bytes.isEmpty()) {
        const qsizetype size = sizeOfCharacter(bytes);
        const QByteArrayView first = bytes.first(std::max<qsizetype>(1, size));
        const QString character = QString::fromUtf8(first);
        const bool isShown
            = size > 0 && !character.isEmpty() && isHarmless(character.toUcs4().constFirst());
        text += isShown ? character : code(first);
        bytes = bytes.sliced(first.size());
    }
    return text;
}

} // namespace

QString path(std::string_view logged)
{
    static const QRegularExpression ipv4(uR"([0-9]{1,3}([.-][0-9]{1,3}){3})"_s);
    static const QRegularExpression ipv6(
        uR"((?<![0-9A-Fa-f:])([0-9A-Fa-f]{0,4}(:|%3[Aa])){2,7}[0-9A-Fa-f]{0,4})"_s);
    QString text = withCodes({ logged.data(), static_cast<qsizetype>(logged.size()) });
    text.replace(ipv4, u"[address]"_s).replace(ipv6, u"[address]"_s);
    if (text.size() > longest)
        text = text.first(longest) + u'\u2026';
    return text;
}

QString tag(std::uint64_t hash)
{
    constexpr int digits = 8;
    return u"%1"_s.arg(static_cast<quint32>(hash >> 32), digits, 16, QChar(u'0'));
}

} // namespace Publisher::Shown
