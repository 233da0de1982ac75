#include "utlib/UtServerSocket.h"

#include "utlib/UtSocket.h"

#include <cerrno>
#include <netinet/in.h>
#include <sys/select.h>
#include <sys/socket.h>

static const int MAX_PORT = 65535;

UtServerSocket::UtServerSocket(int givenReuseAddress) : reuseAddress(givenReuseAddress)
{
}

UtServerSocket::~UtServerSocket()
{
    if (descriptor >= 0)
        UtSocket::close(descriptor);
}

/// Binds fd to a port of every address and listens. Returns the port, or -1.
static int listenOn(int fd, int port, int backlog)
{
    struct sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_port = htons((unsigned short)port);
    address.sin_addr.s_addr = htonl(INADDR_ANY);
    socklen_t size = sizeof address;
    if (::bind(fd, (const struct sockaddr*)&address, size) != 0 ||
        ::listen(fd, backlog < 0 ? SOMAXCONN : backlog) != 0 ||
        ::getsockname(fd, (struct sockaddr*)&address, &size) != 0)
        return -1;
    return ntohs(address.sin_port);
}

int UtServerSocket::openSocket(int requestedPort, int backlog, int timeout)
{
    if (requestedPort < 0 || requestedPort > MAX_PORT)
        return -1;
    const int fd = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (fd < 0)
        return -1;
    const int on = 1;
    if (fd >= FD_SETSIZE ||
        (reuseAddress && ::setsockopt(fd, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on) != 0) ||
        (port = listenOn(fd, requestedPort, backlog)) < 0) {
        UtSocket::close(fd);
        return -1;
    }
    descriptor = fd;
    secondsPerConnection = timeout;
    return 0;
}

int UtServerSocket::blocking()
{
    return UtSocket::blocking(descriptor);
}

/// Whether a failed accept() concerns that connection alone, so that the next call may succeed.
static bool isOneConnections(int error)
{
    switch (error) {
    case EINTR:
    case ECONNABORTED:
    case EPROTO:
    case ENETDOWN:
    case ENETUNREACH:
    case EHOSTDOWN:
    case EHOSTUNREACH:
    case ENOPROTOOPT:
    case ENONET:
    case EPERM:  // a firewall rule forbids this one
    case EWOULDBLOCK:
        return true;
    default:
        return false;
    }
}

int UtServerSocket::accept()
{
    const int fd = ::accept4(descriptor, nullptr, nullptr, SOCK_CLOEXEC);
    if (fd < 0) {
        if (isOneConnections(errno))
            errno = EAGAIN;
        return -1;
    }
    if (secondsPerConnection > 0 && UtSocket::setTimeLimits(fd, secondsPerConnection) != 0) {
        UtSocket::close(fd);
        errno = EAGAIN;
        return -1;
    }
    return fd;
}
