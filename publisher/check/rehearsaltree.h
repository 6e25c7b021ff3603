#pragma once

#include <QMap>
#include <QString>
#include <QStringList>

#include <map>
#include <memory>
#include <optional>
#include <vector>

namespace Publisher {

/// Folders and files in memory, on which an update run can be rehearsed. The
/// operations end as those of the launcher's toolkit end on a real disk, the
/// failures included; a file's content is known by its digest only.
///
/// All paths are absolute. With the separator '/' names are told apart to the
/// letter and ".." is walked; with '\\' both separators count, case does not,
/// and ".." is resolved in the text, as Windows does.
class RehearsalTree {
public:
    explicit RehearsalTree(QChar separator);
    ~RehearsalTree();
    RehearsalTree(RehearsalTree&&) noexcept;
    RehearsalTree& operator=(RehearsalTree&&) noexcept;

    bool exists(const QString& path) const;
    bool isFolder(const QString& path) const;
    /// Nothing unless there is a file.
    std::optional<QString> digest(const QString& path) const;

    /// One folder; fails when there is something or the parent is missing.
    bool makeFolder(const QString& path);
    /// A folder with all that is missing above it; true when it is there.
    bool makePath(const QString& path);
    /// Creates or overwrites; fails without a folder, or where a folder is.
    bool writeFile(const QString& path, const QString& digest);
    /// Files only.
    bool removeFile(const QString& path);
    /// A folder with all that is in it. Returns what is gone, the files and
    /// folders below it first; nothing when there is no folder.
    QStringList removeFolder(const QString& path);

    /// Every path, with the digest of a file and a null string for a folder.
    /// Paths begin with '/' whatever the separator.
    QMap<QString, QString> entries() const;

    /// The one spelling of a path that is the same for all that lead to the
    /// same place; ".." above the root stays at the root.
    static QString canonical(const QString& path, QChar separator);
    /// The names in a path as they stand, "." and ".." included.
    static QStringList split(const QString& path, QChar separator);

private:
    struct Node;

    /// What a path leads to: the node, or the folder it would be created in.
    struct Place {
        Node* parent = nullptr;
        QString name;
        Node* node = nullptr;
        bool mustBeFolder = false;
    };

    bool isSeparator(QChar character) const;
    QString key(const QString& name) const;
    QStringList components(const QString& path) const;
    std::optional<Place> locate(const QString& path) const;
    bool step(std::vector<Node*>& way, const QString& name, bool create) const;
    Node* find(const QString& path) const;
    static void collect(const Node& node, const QString& path, QMap<QString, QString>& found);

    QChar separator;
    std::unique_ptr<Node> root;
};

} // namespace Publisher
