#include "publisher/common/names.h"

#include <QRegularExpression>

using namespace Qt::StringLiterals;

namespace Publisher {

namespace {

// The longest name of a Windows disk, less the "-new" of a running download.
constexpr qsizetype longestName = 255 - 4;

bool isDevice(const QString& name)
{
    static const QRegularExpression device(
        u"^(con|prn|aux|nul|conin\\$|conout\\$|(com|lpt)[0-9\u00b9\u00b2\u00b3])$"_s,
        QRegularExpression::CaseInsensitiveOption);
    return device.match(name.section(u'.', 0, 0).trimmed()).hasMatch();
}

} // namespace

QString whyNotOnWindows(const QString& name)
{
    static const QRegularExpression forbidden(u"[<>:\"/\\\\|?*\\x00-\\x1f]"_s);
    if (forbidden.match(name).hasMatch())
        return u"has a character that Windows forbids (< > : \" / \\ | ? * or a control character)"_s;
    if (name.endsWith(u'.') || name.endsWith(u' '))
        return u"ends in a full stop or blank, which Windows drops"_s;
    if (isDevice(name))
        return u"is reserved for a device by Windows"_s;
    if (name.size() > longestName)
        return u"is too long for Windows together with the \"-new\" of a running download"_s;
    return {};
}

bool isJunk(const QString& fileName)
{
    for (const auto junk : { "Thumbs.db"_L1, "desktop.ini"_L1, ".DS_Store"_L1 }) {
        if (fileName.compare(junk, Qt::CaseInsensitive) == 0)
            return true;
    }
    // The launcher's own downloads bear this suffix while they run.
    return fileName.endsWith("-new"_L1);
}

} // namespace Publisher
