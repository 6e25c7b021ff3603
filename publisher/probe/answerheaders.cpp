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
QDateTime toDate(const QByteArray& value)
{
    // Qt 6.4 skips the blank behind the comma of any weekday but a short one without
    // looking whether the text goes on, and reads what lies behind it in memory.
    const qsizetype comma = value.indexOf(',');
    if (comma >= 0 && comma == value.size() - 1)
        return {};
    // Its reader of dates comes with one header only.
    QNetworkRequest reader;
    reader.setRawHeader("Last-Modified", value);
    return reader.header(QNetworkRequest::LastModifiedHeader).toDateTime();
}

/// -1 where a launcher, too, goes without a length.
qint64 toLength(const QByteArray& value)
{
    bool isNumber = false;
    const qint64 length = value.trimmed().toLongLong(&isNumber);
    return isNumber && length >= 0 ? length : -1;
}

/// An age, 0 for what is none. One beyond all numbers is as good as for ever.
qint64 toSeconds(QByteArray value)
{
    constexpr qint64 forEver = 2'147'483'648;
    value.replace('"', "");
    const bool isNumber = !value.isEmpty()
        && std::all_of(value.begin(), value.end(), [](char c) { return c >= '0' && c <= '9'; });
    bool fits = false;
    const qint64 seconds = value.toLongLong(&fits);
    return isNumber ? (fits ? std::min(seconds, forEver) : forEver) : 0;
}

} // namespace

AnswerHeaders AnswerHeaders::read(const RawHeaders& headers)
{
    AnswerHeaders read;
    read.length = toLength(valueOf(headers, "Content-Length"));
    read.encoding = valueOf(headers, "Content-Encoding").trimmed().toLower();
    read.cacheControl = valueOf(headers, "Cache-Control").trimmed().toLower();
    read.lastModified = toDate(valueOf(headers, "Last-Modified"));
    read.date = toDate(valueOf(headers, "Date"));
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
            seconds = std::max(seconds, toSeconds(value));
    }
    return seconds;
}

} // namespace Publisher
