#include "utlib/UtSocket.h"

#include "utlib/UtClock.h"

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <netdb.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

/// A point of time that never comes.
static const long long NEVER = -1;
static const int MAX_PORT = 65535;

/// When a wait that begins now ends, by the limit that the descriptor carries: SO_RCVTIMEO or
/// SO_SNDTIMEO.
static long long deadlineOf(int fd, int limitOption)
{
    struct timeval limit = {};
    socklen_t size = sizeof limit;
    if (::getsockopt(fd, SOL_SOCKET, limitOption, &limit, &size) != 0 ||
        (limit.tv_sec == 0 && limit.tv_usec == 0))
        return NEVER;
    return UtClock::now() + limit.tv_sec * 1000LL + limit.tv_usec / 1000;
}

/// Waits until the descriptor is ready. Returns 0, or -1 with errno set: ETIMEDOUT after the
/// deadline.
static int waitFor(int fd, short events, long long deadline)
{
    for (;;) {
        const long long rest = deadline == NEVER ? -1 : deadline - UtClock::now();
        if (deadline != NEVER && rest <= 0) {
            errno = ETIMEDOUT;
            return -1;
        }
        struct pollfd waiting = { fd, events, 0 };
        const int n = ::poll(&waiting, 1, (int)rest);
        if (n > 0)
            return 0;
        if (n < 0 && errno != EINTR)
            return -1;
    }
}

/// What receiveSome() is to a socket, for other descriptors. Fails with ESPIPE where one cannot
/// look at bytes without taking them, as in a pipe.
static long readSome(int fd, char* buffer, long size, bool isPeek, long long deadline)
{
    for (;;) {
        const long offset = isPeek ? (long)::lseek(fd, 0, SEEK_CUR) : 0;
        if (offset < 0 || waitFor(fd, POLLIN, deadline) != 0)
            return -1;
        const long n = isPeek ? ::pread(fd, buffer, size, offset) : ::read(fd, buffer, size);
        if (n >= 0 || (errno != EINTR && errno != EAGAIN))
            return n;
    }
}

/// One recv() that waits for data. The deadline is looked up when the first wait needs it, and
/// holds for the caller's further calls. Returns like recv().
static long receiveSome(int fd, char* buffer, long size, int flags, long long* deadline)
{
    for (;;) {
        const long n = ::recv(fd, buffer, size, flags | MSG_DONTWAIT);
        if (n < 0 && errno == ENOTSOCK)
            return readSome(fd, buffer, size, flags & MSG_PEEK, *deadline ? *deadline : NEVER);
        if (n >= 0 || (errno != EINTR && errno != EAGAIN && errno != EWOULDBLOCK))
            return n;
        if (errno == EINTR)
            continue;
        if (*deadline == 0)
            *deadline = deadlineOf(fd, SO_RCVTIMEO);
        if (waitFor(fd, POLLIN, *deadline) != 0)
            return -1;
    }
}

/// One write() that raises no SIGPIPE, whatever the process has set for it: the signal is held back
/// meanwhile, and taken away if this write has caused it.
static long writeSome(int fd, const char* bytes, long size)
{
    sigset_t pipeSignal, before, pending;
    ::sigemptyset(&pipeSignal);
    ::sigaddset(&pipeSignal, SIGPIPE);
    ::sigpending(&pending);
    ::pthread_sigmask(SIG_BLOCK, &pipeSignal, &before);
    const long n = ::write(fd, bytes, size);
    const int error = errno;
    const struct timespec atOnce = {};
    // What was written in part raises the signal too.
    while (n < size && !::sigismember(&pending, SIGPIPE) &&
           ::sigtimedwait(&pipeSignal, nullptr, &atOnce) < 0 && errno == EINTR) {
    }
    ::pthread_sigmask(SIG_SETMASK, &before, nullptr);
    errno = error;
    return n;
}

/// Sends all bytes. Returns 0 or -1 with errno set.
static int sendAll(int fd, const char* bytes, long size)
{
    while (size > 0) {
        long n = ::send(fd, bytes, size, MSG_NOSIGNAL | MSG_DONTWAIT);
        if (n < 0 && errno == ENOTSOCK)
            n = writeSome(fd, bytes, size);
        if (n < 0 && errno == EINTR)
            continue;
        if (n < 0 && (errno == EAGAIN || errno == EWOULDBLOCK)) {
            // A deadline of its own for every wait: what counts is progress.
            if (waitFor(fd, POLLOUT, deadlineOf(fd, SO_SNDTIMEO)) != 0)
                return -1;
            continue;
        }
        if (n < 0)
            return -1;
        bytes += n;
        size -= n;
    }
    return 0;
}

/// Connects fd, a non-blocking socket. Returns 0 or -1.
static int connectUntil(int fd, const struct sockaddr* address, socklen_t size, long long deadline)
{
    if (::connect(fd, address, size) == 0)
        return 0;
    if (errno != EINPROGRESS && errno != EINTR)
        return -1;
    if (waitFor(fd, POLLOUT, deadline) != 0)
        return -1;
    int error = 0;
    socklen_t errorSize = sizeof error;
    if (::getsockopt(fd, SOL_SOCKET, SO_ERROR, &error, &errorSize) != 0 || error != 0)
        return -1;
    return 0;
}

/// Whether the connection leads to itself: where nobody listens on a local port, the system may
/// choose that very port for the near end, and the two ends meet.
static bool isOwnEnd(int fd)
{
    struct sockaddr_storage near = {}, far = {};
    socklen_t nearSize = sizeof near, farSize = sizeof far;
    return ::getsockname(fd, (struct sockaddr*)&near, &nearSize) == 0 &&
           ::getpeername(fd, (struct sockaddr*)&far, &farSize) == 0 && nearSize == farSize &&
           ::memcmp(&near, &far, nearSize) == 0;
}

static int connectTo(const struct sockaddr* address, socklen_t size, long long deadline)
{
    const int fd = ::socket(address->sa_family, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
    if (fd < 0)
        return -1;
    if (connectUntil(fd, address, size, deadline) == 0 && !isOwnEnd(fd) &&
        UtSocket::blocking(fd) == 0 && UtSocket::setTimeLimits(fd, UtSocket::CLIENT_SECONDS) == 0)
        return fd;
    UtSocket::close(fd);
    return -1;
}

int UtSocket::connect(const char* host, int port)
{
    if (port < 1 || port > MAX_PORT)
        return -1;
    const long long deadline = UtClock::now() + CONNECT_SECONDS * 1000LL;
    if (!host) {
        struct sockaddr_in address = {};
        address.sin_family = AF_INET;
        address.sin_port = htons((unsigned short)port);
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        return connectTo((const struct sockaddr*)&address, sizeof address, deadline);
    }
    char service[8];
    ::snprintf(service, sizeof service, "%d", port);
    struct addrinfo hints = {};
    hints.ai_socktype = SOCK_STREAM;
    struct addrinfo* addresses = nullptr;
    if (::getaddrinfo(host, service, &hints, &addresses) != 0)
        return -1;
    int fd = -1;
    for (struct addrinfo* a = addresses; a && fd < 0 && UtClock::now() < deadline; a = a->ai_next)
        fd = connectTo(a->ai_addr, a->ai_addrlen, deadline);
    ::freeaddrinfo(addresses);
    return fd;
}

int UtSocket::send(int fd, const char* format, ...)
{
    UtString text;
    va_list arguments;
    va_start(arguments, format);
    text.vprintf(format, arguments);
    va_end(arguments);
    return sendAll(fd, text, text.length());
}

/// Moves the next bytes of the line, up to its "\n", from the connection into the line. Only bytes
/// that were looked at before are taken, or a single one, so that nothing behind the line end goes.
/// Returns the bytes consumed, 0 at the end of the connection, -1 on failure; `isWhole` tells of
/// the "\n".
static long readPiece(int fd, UtString& line, long long* deadline, bool* isWhole)
{
    char piece[4096];
    piece[0] = '\0';
    long seen = receiveSome(fd, piece, sizeof piece, MSG_PEEK, deadline);
    if (seen < 0 && errno == ESPIPE)
        seen = 1;
    if (seen <= 0)
        return seen;
    const char* const end = (const char*)::memchr(piece, '\n', seen);
    const long n = receiveSome(fd, piece, end ? end - piece + 1 : seen, 0, deadline);
    if (n <= 0)
        return n;
    *isWhole = piece[n - 1] == '\n';
    const long textLength = *isWhole ? n - 1 : n;
    if (::memchr(piece, '\0', textLength) || line.length() + textLength > UtSocket::MAX_LINE)
        return -1;
    line.appendText(piece, textLength);
    return n;
}

int UtSocket::readLine(int fd, UtString& line)
{
    line = "";
    long long deadline = 0;
    long consumed = 0;
    for (bool isWhole = false; !isWhole;) {
        const long n = readPiece(fd, line, &deadline, &isWhole);
        if (n <= 0) {
            line = "";
            return (int)n;
        }
        consumed += n;
    }
    return (int)consumed;
}

int UtSocket::receive(int fd, char* buffer, int size, int wholeLine)
{
    long long deadline = 0;
    int stored = 0;
    while (stored < size) {
        const long n = receiveSome(fd, buffer + stored, size - stored, 0, &deadline);
        if (n < 0 && stored > 0 && errno == ETIMEDOUT)
            break;
        if (n < 0)
            return -1;
        stored += (int)n;
        if (n == 0 || !wholeLine || buffer[stored - 1] == '\n')
            break;
        if (stored == n)  // the first bytes
            deadline = UtClock::now() + LINE_END_SECONDS * 1000LL;
    }
    return stored;
}

void UtSocket::drain(int fd, int milliseconds, long bytes)
{
    ::shutdown(fd, SHUT_WR);  // fails when the peer has gone: then nothing comes any more
    long long deadline = UtClock::now() + milliseconds;
    char piece[65536];
    while (bytes > 0) {
        const long n = receiveSome(fd, piece, sizeof piece, 0, &deadline);
        if (n <= 0)
            return;
        bytes -= n;
    }
}

int UtSocket::receiveUntil(int fd, char* buffer, int size, long long deadline)
{
    if (deadline != NEVER && UtClock::now() >= deadline) {
        errno = ETIMEDOUT;  // also for a peer that never lets us wait
        return -1;
    }
    return (int)receiveSome(fd, buffer, size, 0, &deadline);
}

long long UtSocket::receiveDeadline(int fd)
{
    return deadlineOf(fd, SO_RCVTIMEO);
}

void UtSocket::close(int fd)
{
    ::close(fd);
}

/// Sets or clears O_NONBLOCK. Returns 0 or -1.
static int setNonBlocking(int fd, bool on)
{
    const int flags = ::fcntl(fd, F_GETFL);
    if (flags < 0)
        return -1;
    const int wanted = on ? flags | O_NONBLOCK : flags & ~O_NONBLOCK;
    return wanted == flags ? 0 : ::fcntl(fd, F_SETFL, wanted);
}

int UtSocket::nonBlocking(int fd)
{
    return setNonBlocking(fd, true);
}

int UtSocket::blocking(int fd)
{
    return setNonBlocking(fd, false);
}

int UtSocket::setTimeLimits(int fd, int seconds)
{
    const struct timeval limit = { seconds, 0 };
    if (::setsockopt(fd, SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof limit) != 0)
        return -1;
    return ::setsockopt(fd, SOL_SOCKET, SO_SNDTIMEO, &limit, sizeof limit);
}
