#pragma once

#include <QByteArray>
#include <QDateTime>
#include <QList>
#include <QPair>
#include <QUrl>

namespace Publisher {

/// What the headers of one answer say, as far as the probe goes by it.
struct AnswerHeaders {
    /// Names and values as the toolkit hands them out, names in any case.
    using RawHeaders = QList<QPair<QByteArray, QByteArray>>;

    /// Takes whatever a server can send.
    static AnswerHeaders read(const RawHeaders& headers);

    /// For how many seconds caches may hand out the answer without asking.
    qint64 secondsInCaches() const;

    /// -1 when the server announces none, or something that is no length.
    qint64 length = -1;
    /// In lower case.
    QByteArray encoding;
    /// In lower case.
    QByteArray cacheControl;
    QDateTime lastModified;
    /// The server's own time.
    QDateTime date;
    /// Where the answer sends on to, perhaps relative to what was asked for.
    QUrl redirect;
};

} // namespace Publisher
