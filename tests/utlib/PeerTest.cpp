#include "utlib/UtPeer.h"

#include "tests/sandbox/Sandbox.h"
#include "utlib/UtServerSocket.h"
#include "utlib/UtSocket.h"

#include <gtest/gtest.h>
#include <linux/inet_diag.h>
#include <linux/netlink.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <unistd.h>

static std::function<void(inet_diag_req_v2&)> atLookup;

// This replaces the C library's, inside libutlib too.
extern "C" __attribute__((visibility("default"))) ssize_t send(int fd, const void* data,
                                                               size_t size, int flags)
{
    if (atLookup)
        atLookup(*(inet_diag_req_v2*)((char*)data + NLMSG_HDRLEN));
    return ::syscall(SYS_sendto, fd, data, size, flags, nullptr, 0);
}

/// A listener, a client, and the server's side of their connection.
struct Connection {
    UtServerSocket listener{ 1 };
    int client = -1, served = -1;

    Connection()
    {
        EXPECT_EQ(0, listener.openSocket(0, -10, 0));
        connectFrom(0);
    }

    ~Connection()
    {
        atLookup = nullptr;
        ::close(client);
        ::close(served);
    }

    /// Connects a new client from a port in network order, 0 for any, that others may share.
    void connectFrom(in_port_t port)
    {
        sockaddr_in name = { AF_INET, port, { htonl(INADDR_LOOPBACK) }, {} };
        const int on = 1;
        client = ::socket(AF_INET, SOCK_STREAM, 0);
        ::setsockopt(client, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
        ASSERT_EQ(0, ::bind(client, (sockaddr*)&name, sizeof name));
        name.sin_port = htons(listener.port);
        ASSERT_EQ(0, ::connect(client, (sockaddr*)&name, sizeof name));
        served = listener.accept();
    }
};

TEST(Peer, OwnSocketIsKnownUntilItIsClosed)
{
    Connection c;
    EXPECT_EQ(::geteuid(), UtPeer::userOf(c.served));
    ::shutdown(c.client, SHUT_WR);
    EXPECT_EQ(::geteuid(), UtPeer::userOf(c.served));
    const auto isEndKnown = [&c] {  // to both sides, which takes up to 40 ms
        tcp_info info = {};
        socklen_t size = sizeof info;
        return ::getsockopt(c.client, IPPROTO_TCP, TCP_INFO, &info, &size) == 0 &&
               info.tcpi_state == TCP_FIN_WAIT2;
    };
    EXPECT_TRUE(Sandbox::waitFor(isEndKnown));
    EXPECT_EQ(::geteuid(), UtPeer::userOf(c.served));
    ::close(std::exchange(c.client, -1));  // as one does who wants to be gone before we ask
    EXPECT_EQ(UtPeer::NOBODY, UtPeer::userOf(c.served));
}

TEST(Peer, ClientKnowsWhoListensBeforeAndAfterTheAccept)
{
    if (::geteuid() != 0)
        GTEST_SKIP() << "only root can have a second user id here";
    for (const uid_t user : { (uid_t)0, (uid_t)Sandbox::STRANGER })
        for (const char* host : { "127.0.0.1", "::1" }) {
            ASSERT_EQ(0, ::seteuid(user));
            const sockaddr_in6 any = { AF_INET6, 0, 0, IN6ADDR_ANY_INIT, 0 };  // for IPv4, too
            sockaddr_in6 name = any;
            socklen_t size = sizeof name;
            const int listener = ::socket(AF_INET6, SOCK_STREAM, 0);
            ASSERT_EQ(0, ::bind(listener, (const sockaddr*)&any, sizeof any));
            ASSERT_EQ(0, ::listen(listener, 1));
            ::getsockname(listener, (sockaddr*)&name, &size);
            ASSERT_EQ(0, ::seteuid(0));
            const int client = UtSocket::connect(host, ntohs(name.sin6_port));
            EXPECT_EQ(user, UtPeer::serverOf(client)) << host << " before";
            ASSERT_EQ(0, ::seteuid(user));
            const int served = ::accept(listener, nullptr, nullptr);
            ASSERT_EQ(0, ::seteuid(0));
            ::close(listener);
            EXPECT_EQ(user, UtPeer::serverOf(client)) << host << " after";
            ::close(served);
            EXPECT_EQ(UtPeer::NOBODY, UtPeer::serverOf(client));
            ::close(client);
        }
}

TEST(Peer, ListenerThatComesLaterDoesNotVouchForTheServer)
{
    if (::geteuid() != 0)
        GTEST_SKIP() << "only root can have a second user id here";
    UtServerSocket strangers(1), innocent(1);
    Sandbox::asStranger([&] { EXPECT_EQ(0, strangers.openSocket(0, -10, 0)); });
    EXPECT_EQ(Sandbox::STRANGER, UtPeer::listenerOf(strangers.port));
    const int client = UtSocket::connect(nullptr, strangers.port);
    int served = -1;
    atLookup = [&](inet_diag_req_v2& question) {
        if (question.id.idiag_dport != 0)
            return;  // this is not the question for the listener
        Sandbox::asStranger([&] { served = strangers.accept(); });
        ::close(std::exchange(strangers.descriptor, -1));
        EXPECT_EQ(0, innocent.openSocket(strangers.port, -10, 0));
    };
    EXPECT_EQ(Sandbox::STRANGER, UtPeer::serverOf(client));
    EXPECT_LE(0, served);
    atLookup = nullptr;
    ::close(served);
    ::close(client);
}

TEST(Peer, OwnersListenerOnTheSendersPortDoesNotVouch)
{
    // The kernel does not find a client that is bound to a device, and shows a listener instead.
    Connection c;
    EXPECT_EQ(0, ::setsockopt(c.client, SOL_SOCKET, SO_BINDTODEVICE, "lo", 2));
    UtServerSocket innocent(1);
    atLookup = [&](inet_diag_req_v2& question) {
        EXPECT_EQ(0, innocent.openSocket(ntohs(question.id.idiag_sport), -10, 0));
    };
    EXPECT_EQ(UtPeer::NOBODY, UtPeer::userOf(c.served));
}

TEST(Peer, OwnersNextConnectionFromTheSendersPortDoesNotVouch)
{
    Connection c;
    const int first = c.served;
    atLookup = [&](inet_diag_req_v2& question) {
        const linger reset = { 1, 0 };
        ::setsockopt(c.client, SOL_SOCKET, SO_LINGER, &reset, sizeof reset);
        ::close(c.client);
        c.connectFrom(question.id.idiag_sport);
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
    rlimit limit = {};
    ::getrlimit(RLIMIT_NOFILE, &limit);
    const rlimit none = { 0, limit.rlim_max };
    ::setrlimit(RLIMIT_NOFILE, &none);
    EXPECT_EQ(UtPeer::FAILED, UtPeer::userOf(c.served));
    ::setrlimit(RLIMIT_NOFILE, &limit);
}
