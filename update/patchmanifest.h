#pragma once

#include <QChar>
#include <QDir>
#include <QSettings>
#include <QString>

/// What a manifest entry asks for.
enum class PatchAction {
    FileDownload,
    FolderCreate,
    FileRemove,
    FolderRemove,
};

/// One entry as it stands in the manifest, defaults filled in.
struct PatchManifestEntry {
    bool save;
    bool dirOnly;
    /// Folder relative to the client folder and to the cache folder of the kind.
    QString pathOffset;
    /// Folder on the server below the kind.
    QString urlOffset;
    /// File or folder name, one path component.
    QString name;
    /// MD5 as the publisher wrote it; compared to the letter.
    QString hash = {};

    PatchAction action() const;

    friend bool operator==(const PatchManifestEntry&, const PatchManifestEntry&) = default;
};

/// A patch manifest, read with every call: the file may be replaced by another
/// update run while this one walks it. A missing or broken file has no entries.
class PatchManifest {
public:
    /// The separator stands in the default path offset, "Data" and separator.
    explicit PatchManifest(const QString& manifestPath, QChar separator = QDir::separator());

    /// Number of the last entry to walk, "numberOfFiles" as a rule. A number beyond
    /// 100,000 is cut down to the highest entry that has a key: the rest holds
    /// nothing, and walking two thousand million of them would freeze the window.
    qint64 entryCount() const;

    /// Entries are numbered from 1.
    PatchManifestEntry entry(qint64 n) const;
    QString name(qint64 n) const;

    /// Number of the entry that a key belongs to, 0 for a key that belongs to none.
    static qint64 entryOfKey(const QString& key);
    /// Highest number that any key of an entry bears, 0 when there is none.
    qint64 lastNumberedEntry() const;

private:
    QSettings settings;
    QChar separator;
    mutable qint64 implausibleCount = 0;
    mutable qint64 lastEntryToWalk = 0;
};
