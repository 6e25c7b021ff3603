#pragma once

#include <QString>
#include <QStringList>

namespace Publisher {

/// The names in a folder, hidden ones included, in the order of their
/// characters. The toolkit's own lists end without a word where a folder cannot
/// be read, or not to its end; this one tells.
struct FolderList {
    QStringList names;
    /// Names that are no text in the system's encoding, with a mark for what
    /// cannot be shown. The toolkit cannot reach their files.
    QStringList undecodable;
    /// Why the names are not complete, in the system's words; empty when they are.
    QString error;

    static FolderList of(const QString& folder);
};

} // namespace Publisher
