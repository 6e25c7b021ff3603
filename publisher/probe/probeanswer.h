#pragma once

#include "publisher/probe/answerheaders.h"

#include <QByteArray>
#include <QString>
#include <QUrl>

namespace Publisher {

namespace HttpStatus {

inline constexpr int ok = 200;
inline constexpr int notModified = 304;
inline constexpr int notFound = 404;
inline constexpr int gone = 410;

} // namespace HttpStatus

/// One answer of a server, with the headers that matter.
struct ProbeAnswer : AnswerHeaders {
    /// What was asked for, or where redirects have led.
    QUrl url;
    /// 0 when there was no answer.
    int status = 0;
    /// Why the request failed, empty when it did not.
    QString error;
    /// The failure is that nobody has said anything.
    bool isSilent = false;
    /// The failure tells nothing about protocols: nobody was there to speak one.
    bool isNobodyThere = false;
    QString certificateError;
    /// To an address that is not https.
    bool redirectsElsewhere = false;
    qint64 received = 0;
    /// The body was read to its end, not only its beginning.
    bool toTheEnd = false;
    QByteArray md5;
    /// Empty unless the question wants it.
    QByteArray sha256;
    /// The whole body or its beginning, as it was asked for.
    QByteArray body;
};

} // namespace Publisher
