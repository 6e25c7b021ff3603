#include "publisher/common/folderlist.h"

#include <QFile>
#include <QFileInfo>

#include <algorithm>
#include <filesystem>
#include <system_error>

namespace Publisher {

namespace {

void take(const std::filesystem::path& name, FolderList& list)
{
#ifdef Q_OS_WIN
    list.names.append(QString::fromStdWString(name.wstring()));
#else
    const QByteArray bytes = QByteArray::fromStdString(name.string());
    const QString decoded = QFile::decodeName(bytes);
    if (QFile::encodeName(decoded) == bytes)
        list.names.append(decoded);
    else
        list.undecodable.append(QString::fromUtf8(bytes));
#endif
}

} // namespace

FolderList FolderList::of(const QString& folder)
{
    FolderList list;
    std::error_code error;
    std::filesystem::directory_iterator entry(QFileInfo(folder).filesystemFilePath(), error);
    while (!error && entry != std::filesystem::directory_iterator()) {
        take(entry->path().filename(), list);
        entry.increment(error);
    }
    if (error)
        list.error = QString::fromLocal8Bit(error.message());
    std::sort(list.names.begin(), list.names.end());
    return list;
}

} // namespace Publisher
