#pragma once

#include <QByteArray>

QT_BEGIN_NAMESPACE
class QTcpSocket;
QT_END_NAMESPACE

namespace TestSupport {

// What the toolkit's sockets cannot do.

/// Cuts a connection with a TCP reset instead of an orderly end.
void resetConnection(QTcpSocket* socket);

/// A client that tells a reset from an end. Failures end the process.
class RawClient {
public:
    /// Connects to this machine.
    explicit RawClient(quint16 port);
    ~RawClient();
    RawClient(const RawClient&) = delete;
    RawClient& operator=(const RawClient&) = delete;

    void send(const QByteArray& bytes);
    /// What came so far, and behind a comma how the connection ended, if it did:
    /// "end", "reset" or "failed".
    QByteArray outcome();

private:
    quintptr descriptor;
    QByteArray received;
    QByteArray end;
};

} // namespace TestSupport
