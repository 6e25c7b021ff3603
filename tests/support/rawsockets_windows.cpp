#include "tests/support/rawsockets.h"

#include <QTcpSocket>

#include <array>

#include <winsock2.h>

namespace TestSupport {

void resetConnection(QTcpSocket* socket)
{
    const linger immediately{ 1, 0 };
    setsockopt(
        static_cast<SOCKET>(socket->socketDescriptor()), SOL_SOCKET, SO_LINGER,
        reinterpret_cast<const char*>(&immediately), sizeof immediately);
    socket->abort();
}

RawClient::RawClient(quint16 port)
    : descriptor(socket(AF_INET, SOCK_STREAM, 0))
{
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(port);
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    if (connect(descriptor, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0)
        qFatal("cannot connect: %d", WSAGetLastError());
    u_long withoutWaiting = 1;
    ioctlsocket(descriptor, static_cast<long>(FIONBIO), &withoutWaiting);
}

RawClient::~RawClient()
{
    closesocket(descriptor);
}

void RawClient::send(const QByteArray& bytes)
{
    const int size = static_cast<int>(bytes.size());
    if (::send(descriptor, bytes.constData(), size, 0) != size)
        qFatal("cannot send: %d", WSAGetLastError());
}

QByteArray RawClient::outcome()
{
    std::array<char, 100> buffer{};
    int size = 0;
    while ((size = recv(descriptor, buffer.data(), static_cast<int>(buffer.size()), 0)) > 0)
        received.append(buffer.data(), size);
    if (size < 0 && WSAGetLastError() == WSAEWOULDBLOCK)
        return received;
    if (end.isEmpty() && size == 0)
        end = ", end";
    else if (end.isEmpty())
        end = WSAGetLastError() == WSAECONNRESET ? ", reset" : ", failed";
    return received + end;
}

} // namespace TestSupport
