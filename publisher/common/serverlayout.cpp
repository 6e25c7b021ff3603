#include "publisher/common/serverlayout.h"

#include "update/launcherfiles.h"
#include "update/patchlayout.h"

#include <QDir>
#include <QStringBuilder>

using namespace Qt::StringLiterals;

namespace Publisher {

namespace {

const QUrl anyServer(u"https://server/"_s);

/// Of the client, with the slash behind it.
QStringView folderOf(const QString& pathInClient)
{
    return QStringView(pathInClient).first(pathInClient.lastIndexOf(u'/') + 1);
}

QUrl addressOf(Kind kind, const PatchManifestEntry& entry)
{
    return PatchLayout::patchFile(anyServer.toString(), ServerLayout::word(kind), entry);
}

} // namespace

namespace ServerLayout {

QString word(Kind kind)
{
    return kind == Kind::Test ? u"test"_s : u"live"_s;
}

std::optional<Kind> kindOf(const QString& word)
{
    for (const Kind kind : { Kind::Live, Kind::Test }) {
        if (word == ServerLayout::word(kind))
            return kind;
    }
    return std::nullopt;
}

Kind other(Kind kind)
{
    return kind == Kind::Test ? Kind::Live : Kind::Test;
}

QString manifestName(Kind kind)
{
    return kind == Kind::Test ? testManifestFileName : liveManifestFileName;
}

QString nextManifestName()
{
    return u"patch-next.ini"_s;
}

QString patchFolder()
{
    return patchFolderName;
}

QString kindFolder(Kind kind)
{
    return patchFolder() + u'/' + word(kind);
}

QString historyFolder()
{
    return u".halden-history"_s;
}

QString historyFolder(Kind kind)
{
    return historyFolder() + u'/' + word(kind);
}

QString filePath(Kind kind, const QString& pathInClient, const QString& md5)
{
    const QStringView folder = folderOf(pathInClient);
    const QStringView name = QStringView(pathInClient).sliced(folder.size());
    // Asked for several times for every file, so in one piece.
    return patchFolderName % u'/' % word(kind) % u'/' % folder % md5 % u'/' % name;
}

QString urlOffset(const QString& pathInClient, const QString& md5)
{
    QString offset = folderOf(pathInClient) % md5;
    // The percent sign first: the others bring new ones.
    return offset.replace(u'%', "%25"_L1).replace(u'#', "%23"_L1).replace(u'?', "%3F"_L1);
}

QByteArray pathOnTheWire(const QUrl& url)
{
    if (!url.isValid() || url.hasQuery() || url.hasFragment())
        return {};
    // What the network layer writes into its requests: it resolves dots, and more
    // than dots, see ".c" in "Data/.c/x".
    return url.toEncoded(
        QUrl::RemoveScheme | QUrl::RemoveAuthority | QUrl::FullyEncoded
        | QUrl::NormalizePathSegments);
}

QString askedPath(Kind kind, const PatchManifestEntry& entry)
{
    const QByteArray asked = pathOnTheWire(addressOf(kind, entry));
    return QString::fromUtf8(QByteArray::fromPercentEncoding(asked)).mid(1);
}

QString statedPath(Kind kind, const PatchManifestEntry& entry)
{
    const QString stated = kindFolder(kind) + u'/'
        + QUrl::fromPercentEncoding(entry.urlOffset.toUtf8()) + u'/' + entry.name;
    // Doubled slashes and single dots mean nothing to a server.
    QString asked = QDir::cleanPath(askedPath(kind, entry));
    if (asked != QDir::cleanPath(stated) || stated.contains(u'\\')
        || stated.split(u'/').contains(".."_L1))
        return {};
    return asked;
}

} // namespace ServerLayout

} // namespace Publisher
