#include "publisher/build/servedfolder.h"

#include "publisher/common/clock.h"
#include "publisher/common/serverlayout.h"

#include <QDir>
#include <QFile>

#include <utility>

using namespace Qt::StringLiterals;

namespace Publisher {

ServedFolder::ServedFolder(QString path)
    : folder(std::move(path))
{
}

ServedFolder::~ServedFolder()
{
    if (lock)
        QDir(stagingFolder()).removeRecursively();
}

Problem ServedFolder::take()
{
    Problem problem = FileWork::createFolder(folder);
    if (problem)
        return problem;
    auto taken = std::make_unique<TreeLock>(folder);
    problem = taken->problem();
    if (problem)
        return problem;
    lock = std::move(taken);
    FileWork::removeDrafts(folder);
    QDir(stagingFolder()).removeRecursively();
    return std::nullopt;
}

QString ServedFolder::root() const
{
    return folder;
}

QString ServedFolder::path(const QString& relativePath) const
{
    return folder + u'/' + relativePath;
}

QString ServedFolder::stagingFolder() const
{
    return path(ServerLayout::patchFolder()) + "/.halden-publish"_L1;
}

Problem ServedFolder::replace(const Replacement& replacement, Clock& clock) const
{
    const QString target = path(replacement.name);
    const QString draft = FileWork::draftOf(target);
    const auto nothing = [] {
        return Problem();
    };
    Problem problem = inOrder(
        [&] { return replacement.write(draft); },
        [&] { return replacement.flush ? FileWork::flush(draft) : nothing(); },
        [&] { return FileWork::setDate(draft, clock.nextAfter(FileWork::dateOf(target))); },
        [&] { return replacement.verify ? replacement.verify(draft) : nothing(); },
        [&] { return FileWork::replace(draft, target); });
    if (problem) {
        QFile::remove(draft);
        return problem;
    }
    return replacement.flush ? FileWork::flushFileSystem(folder) : nothing();
}

} // namespace Publisher
