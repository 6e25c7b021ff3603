#include "tests/fuzz/mutator.h"

namespace {

// What the settings layer treats in a way of its own, and what paths and
// addresses do not bear.
const QList<QByteArray> morsels{
    "\\",
    "\\\\",
    "\"",
    ";",
    ",",
    "@",
    "@@",
    "@Invalid()",
    "@ByteArray(",
    "@Variant(",
    "@Rect(1 2 3)",
    "@Point(9)",
    "@Size(1 1)",
    ")",
    "\\x41",
    "\\xffff",
    "\\xd800",
    "\\0",
    "\\777",
    "\\n",
    "%",
    "%25",
    "%U0041",
    "[General]",
    "[%General]",
    "[",
    "]",
    "=",
    "#",
    "?",
    "..",
    "/",
    "//",
    "C:\\",
    " ",
    "\t",
    "\xef\xbb\xbf",
    "\xc3\x28",
    "\xff\xfe",
    "\xf0\x9f\x98\x80",
    "true",
    "false",
    "0",
    "-1",
    "2147483647",
    "99999999999999999999",
    "nul",
    "a.mpq",
    "Data",
    "live",
    "d41d8cd98f00b204e9800998ecf8427e",
};

} // namespace

Mutator::Mutator(quint32 series, quint32 index)
{
    std::seed_seq seeds{ series, index };
    random.seed(seeds);
}

int Mutator::below(int bound)
{
    return static_cast<int>(random() % static_cast<unsigned>(bound));
}

QByteArray Mutator::oneOf(const QList<QByteArray>& choices)
{
    return choices.at(below(static_cast<int>(choices.size())));
}

QByteArray Mutator::oddValue()
{
    QByteArray text;
    const int pieces = below(4);
    for (int i = 0; i < pieces; ++i)
        text += oneOf(morsels);
    return below(3) == 0 ? '"' + text + '"' : text;
}

void Mutator::damageAtWill(QByteArray& text)
{
    const int damages = below(2) == 0 ? below(3) : below(40);
    for (int i = 0; i < damages; ++i)
        damage(text);
}

void Mutator::damage(QByteArray& text)
{
    const qsizetype at = below(static_cast<int>(text.size()) + 1);
    switch (below(6)) {
    case 0:
        text.insert(at, oneOf(morsels));
        break;
    case 1:
        text.remove(at, below(20));
        break;
    case 2:
        text.insert(at, static_cast<char>(below(256)));
        break;
    case 3:
        text.insert(at, text.mid(below(static_cast<int>(text.size()) + 1), below(200)));
        break;
    case 4:
        if (at < text.size())
            text[at] = static_cast<char>(text[at] ^ (1 << below(8)));
        break;
    default:
        text.insert(at, serialised());
        break;
    }
}

/// The beginning of a value in the toolkit's own binary form.
QByteArray Mutator::serialised()
{
    QByteArray bytes = oneOf({ "@Variant(", "@DateTime(", "@ByteArray(" });
    const int length = below(24);
    for (int i = 0; i < length; ++i)
        bytes += "\\x" + QByteArray::number(below(3) ? below(32) : below(256), 16);
    return bytes + (below(8) ? ")" : "");
}
