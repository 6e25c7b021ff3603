#pragma once

#include <QByteArray>
#include <QDateTime>
#include <QString>

namespace TestSupport {

/// What came of a question.
struct HttpsAnswer {
    int status = 0;
    /// Without the white space around it; empty where there is none.
    QByteArray location;
    QByteArray body;
};

/// Asks as launchers do, over a TLS 1.2 connection of its own, but from a loopback
/// address of one's choice, and follows no redirect. `copy` is the date of the copy at
/// hand. A server that does not answer ends the process.
HttpsAnswer httpsGet(const QString& from, const QByteArray& address, const QDateTime& copy = {});

} // namespace TestSupport
