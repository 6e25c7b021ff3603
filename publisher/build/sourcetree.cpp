#include "publisher/build/sourcetree.h"

#include "publisher/common/folderlist.h"
#include "publisher/common/names.h"
#include "publisher/common/placeholder.h"
#include "publisher/common/serverlayout.h"

#include <QFileInfo>
#include <QHash>

#include <algorithm>
#include <filesystem>
#include <optional>
#include <system_error>
#include <utility>

using namespace Qt::StringLiterals;

namespace Publisher {

namespace {

/// The launcher builds the address from the very name of the file, so a file cannot
/// be written in percents; a folder's address is apart from its name. Dots and
/// percents act on the whole address, wherever they stand in it.
std::optional<Finding> faultOfAddress(const QString& path)
{
    static const QString anyHash(32, u'0');
    const PatchManifestEntry entry{ .save = true,
                                    .dirOnly = false,
                                    .pathOffset = {},
                                    .urlOffset = ServerLayout::urlOffset(path, anyHash),
                                    .name = path.section(u'/', -1) };
    const QString asked = ServerLayout::askedPath(Kind::Live, entry);
    if (asked == ServerLayout::filePath(Kind::Live, path, anyHash))
        return std::nullopt;
    const QString instead = asked.isEmpty()
        ? u"nothing of the kind"_s
        : u'"' + QString(asked).replace(anyHash, u"..."_s) + u'"';
    return Finding{ FindingId::NameNotForUrls, path, 0,
                    u"Launchers would ask for "_s + instead
                        + u", where it does not lie, because of a #, ?, % or dot in its name or in "
                          "that of a folder above it."_s };
}

/// Why a single name cannot be published, whatever lies behind it.
std::optional<Finding> faultOfName(const QString& path, const QString& name, bool isFolder)
{
    if (const QString fault = whyNotOnWindows(name); !fault.isEmpty())
        return Finding{ FindingId::NameNotForWindows, path, 0, u"Its name %1."_s.arg(fault) };
    if (name.compare(vacantName, Qt::CaseInsensitive) == 0)
        return Finding{ FindingId::NameReserved, path, 0,
                        u"This name stands for \"nothing\" in manifests."_s };
    return isFolder ? std::nullopt : faultOfAddress(path);
}

class Scan {
public:
    Scan(const QString& root, SourceTree& target)
        : canonicalRoot(QFileInfo(root).canonicalFilePath())
        , tree(target)
    {
        visit(root, {}, { canonicalRoot });
    }

private:
    void visit(const QString& folder, const QString& prefix, const QStringList& above)
    {
        const FolderList list = FolderList::of(folder);
        if (!list.error.isEmpty())
            refuseUnreadable(prefix, list.error);
        for (const QString& name : list.undecodable)
            refuse(
                FindingId::NameNotUnicode, prefix + name,
                u"Its name is no valid UTF-8, so players could not have it."_s);
        QHash<QString, QString> seen;
        for (const QString& name : list.names) {
            const QFileInfo info(folder + u'/' + name);
            const QString path = prefix + name;
            if (isJunk(name) && !info.isDir()) {
                tree.passedOver.append(path);
                continue;
            }
            QString& spelling = seen[name.toCaseFolded()];
            const QString twin = std::exchange(spelling, name);
            if (!twin.isEmpty())
                refuse(
                    FindingId::NamesDifferInCase, path,
                    u"It differs from \"%1\" only in upper and lower case, and players' disks "
                    "hold one of the two."_s.arg(twin));
            add(info, path, above);
        }
    }

    /// Files that cannot be seen would pass for files that are not published.
    void refuseUnreadable(const QString& prefix, const QString& error)
    {
        refuse(
            FindingId::FolderUnreadable, prefix.isEmpty() ? u"."_s : prefix.chopped(1),
            u"The folder cannot be read: %1. What is in it would count as removed."_s.arg(error));
    }

    void add(const QFileInfo& info, const QString& path, const QStringList& above)
    {
        // One look at the file decides in all but the rarest cases.
        const FileFingerprint plain = FileFingerprint::ofUnlinked(info.filePath());
        const bool isFolder = !plain.isFile() && info.isDir();
        const std::optional<Finding> fault = faultOfName(path, info.fileName(), isFolder);
        if (!fault && plain.size > 0)
            tree.files.append({ path, plain.size, plain });
        else
            addUncommon(info, path, above, fault);
    }

    void addUncommon(
        const QFileInfo& info, const QString& path, const QStringList& above,
        const std::optional<Finding>& fault)
    {
        std::error_code error;
        (void)std::filesystem::symlink_status(info.filesystemFilePath(), error);
        if (fault)
            tree.refusals.append(*fault);
        else if (error)
            refuse(
                FindingId::FileUnreadable, path,
                u"It cannot be looked at: %1."_s.arg(QString::fromLocal8Bit(error.message())));
        else if (info.isSymLink() && !leadsInside(info.canonicalFilePath()))
            refuse(
                FindingId::LinkLeadsOut, path,
                u"It is a symbolic link that leads out of the source or nowhere."_s);
        else if (info.isDir())
            enter(info, path, above);
        else if (!info.isFile())
            refuse(FindingId::NotAFile, path, u"It is neither a file nor a folder."_s);
        else if (info.size() == 0)
            refuse(
                FindingId::FileEmpty, path,
                u"Launchers take an empty answer for \"not modified\" and never get it."_s,
                u"Give it at least one byte."_s);
        else
            tree.files.append({ path, info.size(), FileFingerprint::of(info.filePath()) });
    }

    void enter(const QFileInfo& info, const QString& path, const QStringList& above)
    {
        const QString canonical = info.canonicalFilePath();
        if (above.contains(canonical)) {
            refuse(
                FindingId::LinkInCircles, path, u"It is a symbolic link to a folder above it."_s);
            return;
        }
        tree.folders.append(path);
        visit(info.filePath(), path + u'/', above + QStringList{ canonical });
    }

    bool leadsInside(const QString& canonical) const
    {
        return canonical == canonicalRoot || canonical.startsWith(canonicalRoot + u'/');
    }

    void
    refuse(FindingId id, const QString& path, const QString& text, const QString& ownRemedy = {})
    {
        tree.refusals.append({ id, path, 0, text, ownRemedy });
    }

    QString canonicalRoot;
    SourceTree& tree;
};

} // namespace

SourceTree SourceTree::scan(const QString& root)
{
    SourceTree tree;
    const Scan scan(root, tree);
    if (tree.files.isEmpty() && tree.refusals.isEmpty())
        tree.refusals.append(
            { FindingId::SourceEmpty, root, 0,
              u"There is no file to publish. An empty manifest would leave new players without "
              "the patch."_s });
    std::sort(tree.folders.begin(), tree.folders.end());
    std::sort(tree.files.begin(), tree.files.end(), [](const SourceFile& a, const SourceFile& b) {
        return a.path < b.path;
    });
    return tree;
}

bool SourceTree::reaches(const QString& path) const
{
    const QString wanted = path.toCaseFolded();
    const auto isAtOrBelow = [&](const QString& candidate) {
        const QString folded = candidate.toCaseFolded();
        return folded == wanted || folded.startsWith(wanted + u'/');
    };
    return std::any_of(folders.begin(), folders.end(), isAtOrBelow)
        || std::any_of(files.begin(), files.end(), [&](const SourceFile& file) {
               return isAtOrBelow(file.path);
           });
}

} // namespace Publisher
