#include "tests/fuzz/brokenhtml.h"

#include "tests/fuzz/mutator.h"

namespace {

QByteArray number(Mutator& chance)
{
    return chance.oneOf({ "0", "1", "-1", "7", "100", "100%", "32767", "65536", "1e9", "x", "" });
}

QByteArray attribute(Mutator& chance)
{
    const QByteArray name = chance.oneOf(
        { "width", "height", "border", "cellpadding", "cellspacing", "size", "start", "color",
          "bgcolor", "align", "dir", "href", "src", "name", "style", "class" });
    const QByteArray value = chance.below(2) == 0
        ? number(chance)
        : chance.oneOf({ "#ff0000", "javascript:1", "file:///etc/passwd", "http://x/", "data:,x",
                         "right", "rtl", "color:red;font-size:40pt", "margin:-9px;padding:1em",
                         "background:url(x)", "float:left;display:none", "text-indent:1e9px" });
    return ' ' + name + '=' + (chance.below(3) ? '"' + value + '"' : value);
}

QByteArray element(Mutator& chance, int depth)
{
    const QByteArray tag = chance.oneOf(
        { "p",    "b",    "i",    "u",   "a",      "font",       "table",    "tr",     "td",
          "th",   "ul",   "ol",   "li",  "dl",     "dd",         "h1",       "pre",    "div",
          "span", "img",  "br",   "hr",  "center", "blockquote", "style",    "script", "title",
          "head", "body", "html", "sub", "sup",    "qt",         "nonsense", "!--",    "?xml" });
    QByteArray text = '<' + tag;
    while (chance.below(3) == 0)
        text += attribute(chance);
    text += chance.below(20) ? ">" : "";
    const int inside = depth > 12 ? 0 : chance.below(4);
    for (int i = 0; i < inside; ++i)
        text += element(chance, depth + 1);
    text += chance.oneOf({ "Wartung", "&auml;", "&#x1f600;", "&#0;", "&#9999999999;", "&amp", "\t",
                           "\n", "\xc3\x28", QByteArray::fromHex("e280ae"), "" });
    return chance.below(5) ? text + "</" + tag + '>' : text;
}

} // namespace

QByteArray brokenHtml(quint32 series, quint32 index)
{
    Mutator chance(series, index);
    QByteArray text;
    const int elements = chance.below(8);
    for (int i = 0; i < elements; ++i)
        text += element(chance, 0);
    chance.damageAtWill(text);
    return text;
}
