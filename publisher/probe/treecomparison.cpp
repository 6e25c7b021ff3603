#include "publisher/probe/treecomparison.h"

#include "publisher/common/dates.h"
#include "publisher/common/filework.h"
#include "publisher/probe/servedmanifest.h"

#include <QFile>
#include <QFileInfo>

#include <utility>

using namespace Qt::StringLiterals;

namespace Publisher {

TreeComparison::TreeComparison(QString folder)
    : tree(std::move(folder))
{
}

bool TreeComparison::hasTree() const
{
    return !tree.isEmpty();
}

QString TreeComparison::inTree(const QString& pathOnServer) const
{
    return tree + u'/' + pathOnServer;
}

std::optional<Finding> TreeComparison::manifest(const QString& name, const ProbeAnswer& answer)
{
    if (!hasTree())
        return std::nullopt;
    QFile local(inTree(name));
    if (!local.open(QIODevice::ReadOnly)) {
        manifestsNotInTree.insert(name);
        return Finding{ FindingId::MissingInTree, name, 0,
                        u"%1 has no such file to compare with (%2)."_s.arg(
                            tree, local.errorString()) };
    }
    if (local.readAll() == answer.body)
        return std::nullopt;
    return Finding{
        FindingId::DiffersFromTree, name, 0,
        u"The server sends another manifest than the one in %1, dated %2: players do not get "
        "what is published."_s.arg(tree, Dates::shown(answer.lastModified))
    };
}

std::optional<Finding>
TreeComparison::launcherFile(const QString& name, const ProbeAnswer& answer) const
{
    if (!hasTree())
        return std::nullopt;
    const FileWork::Digest local = FileWork::hash(inTree(name), nullptr);
    if (local.problem)
        return Finding{ FindingId::MissingInTree, name, 0,
                        u"It cannot be compared: "_s + *local.problem + u'.' };
    if (local.md5.toLatin1() == answer.md5)
        return std::nullopt;
    return Finding{
        FindingId::DiffersFromTree, name, 0,
        u"The server sends another file than the one in %1, dated %2: players do not get what "
        "is published."_s.arg(tree, Dates::shown(answer.lastModified))
    };
}

std::optional<Finding> TreeComparison::patchFile(
    const PatchFile& file, const QUrl& address, const ProbeAnswer& answer) const
{
    const QString manifest = file.manifest();
    const QString path = ServerLayout::statedPath(file.kind, file.entry);
    if (!hasTree() || path.isEmpty() || manifestsNotInTree.contains(manifest))
        return std::nullopt;
    const QFileInfo local(inTree(path));
    if (!local.isFile())
        return Finding{ FindingId::MissingInTree, manifest, file.number,
                        u"There is no %1 to compare with."_s.arg(local.filePath()) };
    if (answer.length < 0 || answer.length == local.size())
        return std::nullopt;
    return Finding{ FindingId::LengthWrong, manifest, file.number,
                    address.toString() + " has "_L1 + QString::number(answer.length)
                        + " bytes on the server, "_L1 + QString::number(local.size())
                        + " in the tree."_L1 };
}

} // namespace Publisher
