#include "publisher/probe/answerheaders.h"

#include <QNetworkRequest>

#include <algorithm>

namespace Publisher {

namespace {

/// Nothing when there is no such header; several of a name have become one.
QByteArray valueOf(const AnswerHeaders::RawHeaders& headers, const char* name)
{
    const auto header = std::find_if(headers.begin(), headers.end(), [name](const auto& pair) {
        return pair.first.compare(name, Qt::CaseInsensitive) == 0;
    });
    return header == headers.end() ? QByteArray() : header->second;
}

/// In any of the forms that the toolkit, and so a launcher, reads.
QDateTime lastModifiedIn(const QByteArray& value)
{
    QNetworkRequest reader;
    reader.setRawHeader("Last-Modified", value);
    return reader.header(QNetworkRequest::LastModifiedHeader).toDateTime();
}

} // namespace

AnswerHeaders AnswerHeaders::read(const RawHeaders& headers)
{
    AnswerHeaders read;
    const QByteArray length = valueOf(headers, "Content-Length");
    // Without a length the toolkit's own header is void.
    if (!length.isNull())
        read.length = length.trimmed().toLongLong();
    read.encoding = valueOf(headers, "Content-Encoding").trimmed().toLower();
    read.cacheControl = valueOf(headers, "Cache-Control").trimmed().toLower();
    read.lastModified = lastModifiedIn(valueOf(headers, "Last-Modified"));
    read.date
        = QDateTime::fromString(QString::fromLatin1(valueOf(headers, "Date")), Qt::RFC2822Date);
    read.redirect = QUrl(QString::fromUtf8(valueOf(headers, "Location")));
    return read;
}

qint64 AnswerHeaders::secondsInCaches() const
{
    qint64 seconds = 0;
    for (const QByteArray& part : cacheControl.split(',')) {
        const QByteArray directive = part.trimmed();
        if (directive == "no-cache" || directive == "no-store")
            return 0;
        const QByteArray value = directive.mid(directive.indexOf('=') + 1);
        if (directive.startsWith("max-age=") || directive.startsWith("s-maxage="))
            seconds = std::max(seconds, QByteArray(value).replace('"', "").toLongLong());
    }
    return seconds;
}

} // namespace Publisher
