#include "update/patchdownloaditem.h"

#include <utility>

PatchDownloadItem::PatchDownloadItem(QUrl source, QDateTime time, QString folder, QString name)
    : url(std::move(source))
    , referenceTime(std::move(time))
    , targetFolder(std::move(folder))
    , fileName(std::move(name))
{
}

QUrl PatchDownloadItem::getUrl() const
{
    return url;
}

QDateTime PatchDownloadItem::getReferenceTime() const
{
    return referenceTime;
}

QString PatchDownloadItem::getTargetFolder() const
{
    return targetFolder;
}

QString PatchDownloadItem::getFileName() const
{
    return fileName;
}
