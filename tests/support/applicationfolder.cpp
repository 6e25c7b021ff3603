#include "tests/support/applicationfolder.h"

#include <QCoreApplication>
#include <QCryptographicHash>
#include <QDir>
#include <QDirIterator>
#include <QFile>
#include <QFileInfo>

namespace TestSupport {

QString sandboxApplicationFolder()
{
#ifdef Q_OS_WIN
    // The sandbox's root is drive C.
    return QStringLiteral("C:/home/player/Halden Launcher");
#else
    return QStringLiteral("/home/player/Halden Launcher");
#endif
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

QMap<QString, QByteArray> filesBelow(const QString& folder)
{
    QMap<QString, QByteArray> files;
    QDirIterator found(
        folder, QDir::Files | QDir::Hidden | QDir::System, QDirIterator::Subdirectories);
    while (found.hasNext()) {
        const QString path = found.next();
        files.insert(path.sliced(folder.size() + 1), readFile(path));
    }
    return files;
}

QString md5(const QByteArray& content)
{
    return QString::fromLatin1(QCryptographicHash::hash(content, QCryptographicHash::Md5).toHex());
}

} // namespace TestSupport
