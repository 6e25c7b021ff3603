#include "tests/support/rawsockets.h"

#include <QTcpSocket>

#include <array>
#include <cerrno>
#include <cstring>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

namespace TestSupport {

namespace {

int native(quintptr descriptor)
{
    return static_cast<int>(descriptor);
}

} // namespace

void resetConnection(QTcpSocket* socket)
{
    const linger immediately{ 1, 0 };
    setsockopt(
        static_cast<int>(socket->socketDescriptor()), SOL_SOCKET, SO_LINGER, &immediately,
        sizeof immediately);
    socket->abort();
}

RawClient::RawClient(quint16 port)
    : descriptor(static_cast<quintptr>(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)))
{
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(port);
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    if (connect(native(descriptor), reinterpret_cast<sockaddr*>(&address), sizeof address) != 0)
        qFatal("cannot connect: %s", std::strerror(errno));
}

RawClient::~RawClient()
{
    close(native(descriptor));
}

void RawClient::send(const QByteArray& bytes)
{
    const auto size = static_cast<size_t>(bytes.size());
    if (write(native(descriptor), bytes.constData(), size) != bytes.size())
        qFatal("cannot send: %s", std::strerror(errno));
}

QByteArray RawClient::outcome()
{
    std::array<char, 100> buffer{};
    ssize_t size = 0;
    while ((size = recv(native(descriptor), buffer.data(), buffer.size(), MSG_DONTWAIT)) > 0)
        received.append(buffer.data(), size);
    if (size < 0 && errno == EAGAIN)
        return received;
    if (end.isEmpty() && size == 0)
        end = ", end";
    else if (end.isEmpty())
        end = errno == ECONNRESET ? ", reset" : ", failed";
    return received + end;
}

} // namespace TestSupport
