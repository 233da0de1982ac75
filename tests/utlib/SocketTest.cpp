#include "tests/support/Sandbox.h"
#include "utlib/UtServerSocket.h"
#include "utlib/UtSocket.h"

#include <arpa/inet.h>
#include <csignal>
#include <dlfcn.h>
#include <fcntl.h>
#include <poll.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

/// The near port that a connection gets, chosen by us; 0: by the system.
static int nearPort = 0;

extern "C" __attribute__((visibility("default"))) int connect(int fd, const struct sockaddr* to,
                                                              socklen_t size)
{
    struct sockaddr_in near = *(const struct sockaddr_in*)to;
    near.sin_port = htons((unsigned short)nearPort);
    if (nearPort)
        ::bind(fd, (const struct sockaddr*)&near, sizeof near);
    return ((decltype(&connect))::dlsym(RTLD_NEXT, "connect"))(fd, to, size);
}

/// A connection with a process at its other end, which goes when this end is closed.
static int peer(const std::function<void(int)>& act)
{
    int ends[2];
    const int small = 4096;
    if (::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends) != 0 ||
        ::setsockopt(ends[0], SOL_SOCKET, SO_SNDBUF, &small, sizeof small) != 0)
        return -1;
    if (::fork() == 0) {
        ::close(ends[0]);
        act(ends[1]);
        ::_exit(0);
    }
    ::close(ends[1]);
    return ends[0];
}

static bool write(int fd, const std::string& bytes)
{
    return ::send(fd, bytes.data(), bytes.size(), MSG_NOSIGNAL) == (ssize_t)bytes.size();
}

static void setLimit(int fd, int option, int milliseconds)
{
    const struct timeval limit = { 0, milliseconds * 1000 };
    EXPECT_EQ(0, ::setsockopt(fd, SOL_SOCKET, option, &limit, sizeof limit));
}

static std::string receive(int fd, int size, int wholeLine)
{
    std::string buffer(size, '\0');
    const int n = UtSocket::receive(fd, &buffer[0], size, wholeLine);
    return n < 0 ? "failed" : buffer.substr(0, n);
}

static void limitDescriptors(int count)
{
    struct rlimit limit;
    EXPECT_EQ(0, ::getrlimit(RLIMIT_NOFILE, &limit));
    limit.rlim_cur = count;
    EXPECT_EQ(0, ::setrlimit(RLIMIT_NOFILE, &limit));
}

/// A timer's signal interrupts every system call that takes longer than a millisecond.
class Socket : public ::testing::Test
{
    void setTimer(int microseconds)
    {
        struct sigaction action = {};  // without SA_RESTART
        action.sa_handler = [](int) {};
        ::sigaction(SIGALRM, &action, nullptr);
        const struct itimerval time = { { 0, microseconds }, { 0, microseconds } };
        ::setitimer(ITIMER_REAL, &time, nullptr);
    }
    void SetUp() override { setTimer(1000); }
    void TearDown() override { setTimer(0); }
};

TEST_F(Socket, SendsAllToASlowReader)
{
    std::string text;
    for (int i = 0; text.size() < 500000; ++i)
        text += std::to_string(i) + "%s";
    for (bool nonBlocking : { false, true }) {
        const int fd = peer([&](int far) {
            std::string received(text.size(), '\0');
            size_t n = 0;
            for (long got = 1; got > 0 && n < text.size(); n += got, ::poll(nullptr, 0, 3))
                got = ::recv(far, &received[n], std::min(text.size() - n, 8192ul), 0);
            write(far, received == text ? "whole\n" : "cut or mixed up\n");
        });
        if (nonBlocking) {
            EXPECT_EQ(0, UtSocket::nonBlocking(fd));
        }
        EXPECT_EQ(0, UtSocket::send(fd, "%s", text.c_str()));
        ::shutdown(fd, SHUT_WR);
        EXPECT_EQ("whole\n", receive(fd, 100, 1)) << "non-blocking: " << nonBlocking;
        UtSocket::close(fd);
    }
}

TEST_F(Socket, GivesUpOnAReaderThatStoppedOrLeft)
{
    const std::string text(500000, 'x');
    int fd = peer([](int far) {
        struct pollfd untilWeClose = { far, 0, 0 };
        ::poll(&untilWeClose, 1, -1);
    });
    setLimit(fd, SO_SNDTIMEO, 100);
    EXPECT_EQ(-1, UtSocket::send(fd, "%s", text.c_str()));
    UtSocket::close(fd);
    fd = peer([](int) {});
    receive(fd, 1, 1);                                      // until it has left
    EXPECT_EQ(-1, UtSocket::send(fd, "%s", text.c_str()));  // and no SIGPIPE ends us
    UtSocket::close(fd);
}

TEST_F(Socket, ReadsOneLineAndNothingBehindIt)
{
    const std::string longest(UtSocket::MAX_LINE, 'x');
    const struct {
        std::string sent;
        int result;
        std::string line, rest;
    } cases[] = {
        { "one\ntwo\n", 4, "one", "two\n" },
        { "\n\n", 1, "", "\n" },
        { "", 0, "", "" },
        { "user submit \"rm -rf x", 0, "", "" },
        { std::string("a\0b\n", 4), -1, "", "" },
        { longest + "\n", UtSocket::MAX_LINE + 1, longest, "" },
        { longest + "x\n", -1, "", "" },
    };
    for (const auto& one : cases) {
        const int fd = peer([&](int far) { write(far, one.sent); });
        UtString line("old");
        EXPECT_EQ(one.result, UtSocket::readLine(fd, line)) << one.sent.substr(0, 20);
        EXPECT_TRUE(one.line == (const char*)line) << one.sent.substr(0, 20);
        if (one.result > 0) {
            EXPECT_EQ(one.rest, receive(fd, 100, 0));
        }
        UtSocket::close(fd);
    }
}

TEST_F(Socket, LimitsTheTimeForTheWholeLine)
{
    const int fd = peer([](int far) {
        while (write(far, "x"))
            ::poll(nullptr, 0, 20);
    });
    setLimit(fd, SO_RCVTIMEO, 300);
    UtString line;
    EXPECT_EQ(-1, UtSocket::readLine(fd, line));
    UtSocket::close(fd);
}

TEST_F(Socket, ReceivesAReplyOfTwoWritesWhole)
{
    const int fd = peer([](int far) {
        for (const char* part : { "ok", "\n", "er", "ror\n" }) {
            write(far, part);
            ::poll(nullptr, 0, 50);
        }
    });
    EXPECT_EQ("ok\n", receive(fd, 256, 1));
    EXPECT_EQ("er", receive(fd, 256, 0));
    EXPECT_EQ("r", receive(fd, 1, 1));
    EXPECT_EQ("or\n", receive(fd, 256, 1));
    EXPECT_EQ("", receive(fd, 256, 1));
    UtSocket::close(fd);
}

TEST_F(Socket, ConnectsToAListenerOnly)
{
    UtServerSocket server(1);
    ASSERT_EQ(0, server.openSocket(0, -10, 25));
    for (const char* host : { (const char*)nullptr, "localhost", "node1", "127.0.0.1" }) {
        const int fd = UtSocket::connect(host, server.port);
        EXPECT_EQ(FD_CLOEXEC, ::fcntl(fd, F_GETFD)) << host;
        UtSocket::close(fd);
    }
    EXPECT_EQ(-1, UtSocket::connect("nowhere.invalid", server.port));
    EXPECT_EQ(-1, UtSocket::connect(nullptr, 65536 + server.port));
    const int port = Sandbox::freePort();
    EXPECT_EQ(-1, UtSocket::connect(nullptr, port));
    nearPort = port;
    EXPECT_EQ(-1, UtSocket::connect(nullptr, port)) << "connected to itself";
    nearPort = 0;
}

TEST_F(Socket, TellsFailuresThatPassFromFinalOnes)
{
    UtServerSocket server(1);
    ASSERT_EQ(0, server.openSocket(0, -10, 25));
    EXPECT_EQ(-1, server.accept());
    EXPECT_EQ(EAGAIN, errno) << "the timer's signal";
    const int near = UtSocket::connect(nullptr, server.port);
    limitDescriptors(near + 1);
    EXPECT_EQ(-1, server.accept());
    EXPECT_EQ(EAGAIN, errno) << "no descriptor left";
    limitDescriptors(FD_SETSIZE);
    int far = -1;
    EXPECT_TRUE(Sandbox::waitFor([&] { return (far = server.accept()) >= 0; }));
    EXPECT_EQ(FD_CLOEXEC, ::fcntl(far, F_GETFD));
    UtSocket::close(far);
    UtSocket::close(near);
    ::shutdown(server.descriptor, SHUT_RD);
    EXPECT_EQ(-1, server.accept());
    EXPECT_NE(EAGAIN, errno) << "the socket listens no more";
}

TEST_F(Socket, OpensOnlyWhatTheServerCanUse)
{
    UtServerSocket first(1);
    ASSERT_EQ(0, first.openSocket(0, -10, 25));
    limitDescriptors(FD_SETSIZE + 10);
    int filling = -1;
    for (int port : { first.port, -1, 65536 + Sandbox::freePort(), 0 }) {
        while (port == 0 && filling < FD_SETSIZE - 1)
            filling = ::dup(first.descriptor);
        UtServerSocket second(1);
        EXPECT_EQ(-1, second.openSocket(port, -10, 25)) << port;
        EXPECT_TRUE(second.port < 0 && second.descriptor < 0) << port;
    }
    while (filling > first.descriptor)
        ::close(filling--);
}
