#pragma once

#include <QByteArray>
#include <QString>
#include <QUrl>

namespace Publisher {

// Names of files and folders on their way to a player: through an address, onto
// a Windows disk.

/// Why Windows cannot hold a file or folder of this name, as the rest of a
/// sentence; empty when it can.
QString whyNotOnWindows(const QString& name);

/// Left behind by editors and systems; nobody means to publish it.
bool isJunk(const QString& fileName);

/// Url offset for files that lie in `folder` on the server, a path with "/".
/// What would end the path in an address is written in percents.
QString urlOffsetOf(const QString& folder);

/// Path that a request for this address asks the server for, as it goes over the
/// wire. Empty when no request comes of it, or when the address has another part
/// behind the path, such as "#2" of "patch#2.mpq".
QByteArray pathOnTheWire(const QUrl& url);

/// Path of an entry's file on the server, relative to the manifest's folder: it
/// is what the launcher asks for, percents resolved, as it goes over the wire.
/// Empty where `pathOnTheWire()` is.
QString pathOnServer(const QString& kind, const QString& urlOffset, const QString& name);

/// "live" has "patch.ini", "test" has "patchTest.ini".
QString manifestNameOf(const QString& kind);

} // namespace Publisher
