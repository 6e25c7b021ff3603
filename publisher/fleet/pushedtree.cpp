#include "publisher/fleet/pushedtree.h"

#include "publisher/common/filework.h"
#include "publisher/common/publication.h"
#include "publisher/common/serverlayout.h"
#include "update/launcherfiles.h"

#include <QFileInfo>

using namespace Qt::StringLiterals;

namespace Publisher {

namespace {

void takeNames(const QString& manifest, Kind kind, NamedFiles& content)
{
    const Publication publication = readPublication(manifest, kind);
    for (const PublishedFile& file : publication.files) {
        // Of one that is placed by hand nobody is told a hash; `check` speaks of it.
        if (!file.hash.isEmpty())
            content.insert(file.serverPath, { .md5 = file.hash.toLower() });
    }
}

RootFile look(const QString& path)
{
    if (!QFileInfo(path).isFile())
        return {};
    return { .md5 = FileWork::hash(path, nullptr).md5, .date = FileWork::dateOf(path) };
}

} // namespace

QStringList plainRootFiles()
{
    return { ServerLayout::manifestName(Kind::Test), ServerLayout::manifestName(Kind::Live),
             ServerLayout::nextManifestName(), u"launcher.info"_s };
}

QStringList launcherRootFiles()
{
    return { updaterFileName, launcherFileName };
}

PushedTree PushedTree::read(const QString& folder)
{
    PushedTree tree;
    tree.folder = folder;
    for (const Kind kind : { Kind::Live, Kind::Test })
        takeNames(folder + u'/' + ServerLayout::manifestName(kind), kind, tree.content);
    takeNames(folder + u'/' + ServerLayout::nextManifestName(), Kind::Live, tree.content);
    const QStringList names = plainRootFiles() + launcherRootFiles();
    for (const QString& name : names) {
        const RootFile file = look(folder + u'/' + name);
        if (file.isThere())
            tree.rootFiles.insert(name, file);
    }
    return tree;
}

Problem PushedTree::takeSizes()
{
    for (auto file = content.begin(); file != content.end(); ++file) {
        const QFileInfo info(folder + u'/' + file.key());
        if (!info.isFile())
            return u"%1 is not there, although a manifest names it. Publish again with "
                   "halden-publish build"_s.arg(info.filePath());
        file->size = info.size();
    }
    return {};
}

RootFile PushedTree::rootFile(const QString& name) const
{
    return rootFiles.value(name);
}

} // namespace Publisher
