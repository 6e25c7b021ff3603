#pragma once

#include "update/patchmanifest.h"

#include <QByteArray>
#include <QString>
#include <QUrl>

#include <optional>

namespace Publisher {

/// For whom a manifest and its files are: all players, or those of test realms.
enum class Kind { Live, Test };

/// What a server's manifests, folders and files are called. Paths are relative to
/// the folder that the web server serves, with "/".
namespace ServerLayout {

/// "live" or "test", as addresses, folders and the command line have it.
QString word(Kind kind);
std::optional<Kind> kindOf(const QString& word);
Kind other(Kind kind);

/// "patch.ini" or "patchTest.ini".
QString manifestName(Kind kind);
/// "patch-next.ini": what is to become the live manifest. No launcher asks for it by
/// this name; the server gives it to a share of the players in place of the live one.
QString nextManifestName();
/// Holds the patch files of both kinds.
QString patchFolder();
QString kindFolder(Kind kind);
/// The manifests that have been live, hidden from launchers.
QString historyFolder();
QString historyFolder(Kind kind);

/// Where a file of the client belongs. The content's MD5 is the last folder, so
/// another content has another address.
QString filePath(Kind kind, const QString& pathInClient, const QString& md5);
/// Url offset of the entry that publishes it there. What would end the path in an
/// address is written in percents.
QString urlOffset(const QString& pathInClient, const QString& md5);

/// Path that a request for this address asks the server for, as it goes over the
/// wire. Empty when no request comes of it, or when the address has another part
/// behind the path, such as "#2" of "patch#2.mpq".
QByteArray pathOnTheWire(const QUrl& url);
/// What launchers ask for on behalf of an entry: percents and dots are resolved.
/// Empty where `pathOnTheWire()` is.
QString askedPath(Kind kind, const PatchManifestEntry& entry);
/// What the entry says in so many words, without detours; empty where its address
/// would not lead there, for instance because the name itself holds percents.
QString statedPath(Kind kind, const PatchManifestEntry& entry);

} // namespace ServerLayout

} // namespace Publisher
