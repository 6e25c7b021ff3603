#include "tests/support/applicationfolder.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QFileInfo>

namespace TestSupport {

QString sandboxApplicationFolder()
{
    return QStringLiteral("/home/player/Halden Launcher");
}

void ApplicationFolder::clear()
{
    const QString program = QCoreApplication::applicationFilePath();
    const auto entries = QDir(path()).entryInfoList(
        QDir::AllEntries | QDir::Hidden | QDir::System | QDir::NoDotAndDotDot);
    for (const QFileInfo& entry : entries) {
        if (entry.absoluteFilePath() == program)
            continue;
        if (entry.isDir() && !entry.isSymLink())
            QDir(entry.absoluteFilePath()).removeRecursively();
        else
            QFile::remove(entry.absoluteFilePath());
    }
}

QString ApplicationFolder::path()
{
    return QCoreApplication::applicationDirPath();
}

QString ApplicationFolder::path(const QString& relativePath)
{
    return path() + u'/' + relativePath;
}

void writeFile(const QString& path, const QByteArray& content)
{
    QDir().mkpath(QFileInfo(path).path());
    QFile file(path);
    if (!file.open(QIODevice::WriteOnly) || file.write(content) != content.size())
        qFatal("cannot write %s: %s", qPrintable(path), qPrintable(file.errorString()));
}

QByteArray readFile(const QString& path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

} // namespace TestSupport
