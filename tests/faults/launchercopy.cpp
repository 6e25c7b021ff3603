#include "tests/faults/launchercopy.h"

#include "tests/faults/target.h"

#include <QDir>
#include <QDirIterator>

namespace {

QString emptied(const QString& folder)
{
    QDir(folder).removeRecursively();
    return folder;
}

} // namespace

LauncherCopy::LauncherCopy(const QString& folder)
    : LauncherProcess(emptied(folder) + "/launcher")
    , place(folder)
{
    layOutPlayer(launcherFolder(), clientFolder());
}

QString LauncherCopy::launcherFolder() const
{
    return path();
}

QString LauncherCopy::clientFolder() const
{
    return place + "/client";
}

QMap<QString, QByteArray> LauncherCopy::tree() const
{
    QMap<QString, QByteArray> found;
    QDirIterator entry(
        place, QDir::AllEntries | QDir::Hidden | QDir::System | QDir::NoDotAndDotDot,
        QDirIterator::Subdirectories);
    while (entry.hasNext()) {
        const QFileInfo file = entry.nextFileInfo();
        QByteArray content = file.isDir() ? "folder" : TestSupport::readFile(file.filePath());
        // Where the player lives stands in the realm list.
        content.replace(place.toUtf8(), "PLACE");
        if (file.filePath() != program())
            found.insert(QDir(place).relativeFilePath(file.filePath()), content);
    }
    return found;
}
