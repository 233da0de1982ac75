#include "utlib/UtPeer.h"

#include <cerrno>
#include <fcntl.h>
#include <functional>
#include <gtest/gtest.h>
#include <linux/filter.h>
#include <linux/inet_diag.h>
#include <linux/netlink.h>
#include <netdb.h>
#include <netinet/in.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <unistd.h>

static const char* const HERE = "127.0.0.1";
static std::function<void(inet_diag_req_v2&)> atLookup;
static bool fromElsewhere = false;

// These replace the C library's, inside libutlib too.
#define REPLACES_LIBC extern "C" __attribute__((visibility("default")))

REPLACES_LIBC ssize_t send(int fd, const void* data, size_t size, int flags)
{
    if (atLookup)
        atLookup(*(inet_diag_req_v2*)((char*)data + NLMSG_HDRLEN));
    return ::syscall(SYS_sendto, fd, data, size, flags, nullptr, 0);
}

REPLACES_LIBC int getpeername(int fd, sockaddr* name, socklen_t* size) noexcept
{
    const int result = (int)::syscall(SYS_getpeername, fd, name, size);
    if (fromElsewhere)
        ((sockaddr_in*)name)->sin_addr.s_addr = htonl(0xc0000201);  // 192.0.2.1: nobody has it
    return result;
}

/// A listener, a client, and the server's side of their connection.
struct Connection {
    int listener, client, served = -1;
    sockaddr_in6 server = {};  // the listener's name under the client's address

    explicit Connection(const char* at = HERE, const char* from = HERE, const char* device = "")
        : listener(openAt(at)), client(openAt(from, 0, device))
    {
        EXPECT_EQ(0, ::listen(listener, 5));
        connect();
    }

    ~Connection()
    {
        atLookup = nullptr;
        fromElsewhere = false;
        for (int fd : { listener, client, served })
            ::close(fd);
    }

    /// A new socket on an address and a port in network order, 0 for any, that others may share.
    static int openAt(const char* address, in_port_t port = 0, const char* device = "")
    {
        const addrinfo hints = { AI_NUMERICHOST, 0, SOCK_STREAM, 0, 0, nullptr, nullptr, nullptr };
        addrinfo* name = nullptr;
        EXPECT_EQ(0, ::getaddrinfo(address, nullptr, &hints, &name));
        ((sockaddr_in6*)name->ai_addr)->sin6_port = port;  // sockaddr_in has it in the same place
        const int fd = ::socket(name->ai_family, SOCK_STREAM, 0), on = 1;
        ::setsockopt(fd, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
        ::setsockopt(fd, SOL_SOCKET, SO_BINDTODEVICE, device, (socklen_t)strlen(device));
        EXPECT_EQ(0, ::bind(fd, name->ai_addr, name->ai_addrlen)) << strerror(errno);
        ::freeaddrinfo(name);
        return fd;
    }

    /// Connects the client to the listener's port at the client's own address.
    void connect()
    {
        socklen_t size = sizeof server;
        ::getsockname(listener, (sockaddr*)&server, &size);
        const in_port_t port = server.sin6_port;
        ::getsockname(client, (sockaddr*)&server, &(size = sizeof server));
        server.sin6_port = port;
        EXPECT_EQ(0, ::connect(client, (sockaddr*)&server, sizeof server)) << strerror(errno);
        served = ::accept4(listener, nullptr, nullptr, SOCK_NONBLOCK);
    }

    /// Begins to connect fd to the listener, and drops every answer: it goes on trying.
    void keepTrying(int fd) const
    {
        sock_filter drop = BPF_STMT(BPF_RET | BPF_K, 0);
        const sock_fprog filter = { 1, &drop };
        ::setsockopt(fd, SOL_SOCKET, SO_ATTACH_FILTER, &filter, sizeof filter);
        ::fcntl(fd, F_SETFL, O_NONBLOCK);
        EXPECT_EQ(-1, ::connect(fd, (const sockaddr*)&server, sizeof server));
        EXPECT_EQ(EINPROGRESS, errno);
    }

    /// Closes the client, as one does who wants to be gone before anybody asks.
    void leave(bool reset)
    {
        const linger now = { reset, 0 };
        ::setsockopt(client, SOL_SOCKET, SO_LINGER, &now, sizeof now);
        ::close(client);
        client = -1;
    }
};

TEST(Peer, OwnSocketIsKnownUntilItIsClosed)
{
    for (const char* at : { HERE, "::" })
        for (const char* from : { HERE, at == HERE ? "::ffff:127.0.0.1" : "::1" })
            for (bool reset : { false, true }) {
                SCOPED_TRACE(std::string(from) + " to " + at);
                Connection c(at, from);
                EXPECT_EQ(::geteuid(), UtPeer::userOf(c.served));
                ::shutdown(c.client, SHUT_WR);
                EXPECT_EQ(::geteuid(), UtPeer::userOf(c.served));
                c.leave(reset);
                EXPECT_EQ(UtPeer::NOBODY, UtPeer::userOf(c.served));
            }
}

TEST(Peer, AnotherUserIsTold)
{
    const uid_t self = ::geteuid();
    if (::seteuid(65534) != 0)
        GTEST_SKIP() << "only root can make another user's socket";
    const int client = Connection::openAt(HERE);
    ASSERT_EQ(0, ::seteuid(self));
    Connection c;
    c.leave(false);
    ::close(c.served);
    c.client = client;
    c.connect();
    EXPECT_EQ(65534, UtPeer::userOf(c.served));
}

TEST(Peer, OwnersOtherSocketOnTheSendersPortDoesNotVouch)
{
    // Without the peer's socket the kernel shows a listener. It does not find one that is bound to
    // a device, which leaves its port and address to others, too.
    Connection c(HERE, HERE, "lo");
    EXPECT_EQ(UtPeer::NOBODY, UtPeer::userOf(c.served));
    for (bool listening : { true, false }) {
        int innocent = -1;
        atLookup = [&](inet_diag_req_v2& question) {
            innocent = Connection::openAt(HERE, question.id.idiag_sport);
            if (!listening)
                c.keepTrying(innocent);
            else
                EXPECT_EQ(0, ::listen(innocent, 5));
        };
        EXPECT_EQ(UtPeer::NOBODY, UtPeer::userOf(c.served));
        ::close(innocent);
    }
}

TEST(Peer, OwnersNextConnectionFromTheSendersPortDoesNotVouch)
{
    Connection c;
    const int first = c.served;
    atLookup = [&](inet_diag_req_v2& question) {
        c.leave(true);
        c.client = Connection::openAt(HERE, question.id.idiag_sport);
        c.connect();
    };
    EXPECT_EQ(UtPeer::NOBODY, UtPeer::userOf(first));
    atLookup = nullptr;
    EXPECT_EQ(::geteuid(), UtPeer::userOf(c.served));  // or nobody was there to be taken for it
    ::close(first);
}

TEST(Peer, MissingLookupIsToldFromOneThatFailed)
{
    Connection c;
    // Without its module for TCP the kernel answers as it does for a protocol that has none.
    atLookup = [](inet_diag_req_v2& question) { question.sdiag_protocol = 200; };
    EXPECT_EQ(UtPeer::UNKNOWN, UtPeer::userOf(c.served));
    atLookup = nullptr;

    rlimit limit = {};
    ::getrlimit(RLIMIT_NOFILE, &limit);
    const rlimit none = { 0, limit.rlim_max };
    for (bool elsewhere : { false, true }) {
        fromElsewhere = elsewhere;
        ::setrlimit(RLIMIT_NOFILE, &none);
        EXPECT_EQ(UtPeer::FAILED, UtPeer::userOf(c.served));
        EXPECT_EQ(EMFILE, errno);
        ::setrlimit(RLIMIT_NOFILE, &limit);
    }
    EXPECT_EQ(UtPeer::ANOTHER_MACHINE, UtPeer::userOf(c.served));
}
