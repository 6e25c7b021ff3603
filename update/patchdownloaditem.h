#pragma once

#include <QDateTime>
#include <QString>
#include <QUrl>

/// One queued download.
class PatchDownloadItem {
public:
    PatchDownloadItem(QUrl url, QDateTime referenceTime, QString targetFolder, QString fileName);

    QUrl getUrl() const;
    /// Modification time of the copy at hand in UTC, or the fixed time.
    QDateTime getReferenceTime() const;
    /// Folder the file is written to; empty for the application folder.
    QString getTargetFolder() const;
    QString getFileName() const;

private:
    QUrl url;
    QDateTime referenceTime;
    QString targetFolder;
    QString fileName;
};
