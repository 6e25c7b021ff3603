#pragma once

#include <QString>

namespace Publisher {

// Names of files and folders on their way onto a player's Windows disk.

/// Why Windows cannot hold a file or folder of this name, as the rest of a
/// sentence; empty when it can.
QString whyNotOnWindows(const QString& name);

/// Left behind by editors and systems; nobody means to publish it.
bool isJunk(const QString& fileName);

} // namespace Publisher
