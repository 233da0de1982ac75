#include "tests/sandbox/Process.h"
#include "tests/sandbox/Sandbox.h"
#include "utlib/UtLineReader.h"
#include "utlib/UtServerSocket.h"
#include "utlib/UtSocket.h"

#include <csignal>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <sys/time.h>
#include <unistd.h>

static bool isOwnEnd = false;  // connections come from the port that they lead to

// This replaces the C library's, inside the library too.
extern "C" __attribute__((visibility("default"))) int connect(int fd, const sockaddr* to,
                                                              socklen_t size)
{
    if (isOwnEnd)
        ::bind(fd, to, size);
    return (int)::syscall(SYS_connect, fd, to, size);
}

/// A connection with a process at its other end, which goes when this end is closed.
static int peer(const std::function<void(int)>& act)
{
    int ends[2];
    const int small = 4096;
    EXPECT_EQ(0, ::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends));
    ::setsockopt(ends[0], SOL_SOCKET, SO_SNDBUF, &small, sizeof small);
    if (::fork() == 0) {
        ::close(ends[0]);
        act(ends[1]);
        ::_exit(0);
    }
    ::close(ends[1]);
    return ends[0];
}

static void write(int fd, const std::string& bytes)
{
    ::send(fd, bytes.data(), bytes.size(), MSG_NOSIGNAL);
}

static std::string receive(int fd, int size, int wholeLine)
{
    std::string buffer(size, '\0');
    const int n = UtSocket::receive(fd, &buffer[0], size, wholeLine);
    return n < 0 ? "failed" : buffer.substr(0, n);
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

TEST_F(Socket, SendsAllToASlowReaderAndGivesUpOnOneThatLeft)
{
    std::string text;
    for (int i = 0; text.size() < 500000; ++i)
        text += std::to_string(i) + "%s";
    for (bool nonBlocking : { false, true }) {
        const int fd = peer([&](int far) {
            std::string received(text.size(), '\0');
            size_t n = 0;
            for (long got = 1; got > 0 && n < text.size(); n += got, ::poll(nullptr, 0, 25))
                got = ::recv(far, &received[n], std::min(text.size() - n, 8192ul), 0);
            write(far, received == text ? "whole\n" : "cut or mixed up\n");
        });
        EXPECT_EQ(0, nonBlocking ? UtSocket::nonBlocking(fd) : 0);
        UtSocket::setTimeLimits(fd, 1);  // for each wait: all of it takes longer
        EXPECT_EQ(0, UtSocket::send(fd, "%s", text.c_str()));
        ::shutdown(fd, SHUT_WR);
        EXPECT_EQ("whole\n", receive(fd, 100, 1)) << "non-blocking: " << nonBlocking;
        UtSocket::close(fd);
    }
    const int fd = peer([](int) {});
    receive(fd, 1, 1);                                      // until it has left
    EXPECT_EQ(-1, UtSocket::send(fd, "%s", text.c_str()));  // and no SIGPIPE ends us
    UtSocket::close(fd);
}

TEST_F(Socket, ReadsOneLineAndNothingBehindIt)
{
    const std::string longest(UtSocket::MAX_LINE, 'x');
    const std::tuple<std::string, int, std::string, std::string> cases[] = {
        { "one\ntwo\n", 4, "one", "two\n" },
        { "user submit \"rm -rf x", 0, "", "" },
        { std::string("a\0b\n", 4), -1, "", "" },
        { longest + "\n", UtSocket::MAX_LINE + 1, longest, "" },
        { longest + "x\n", -1, "", "" },
    };
    for (const auto& [sent, result, wanted, rest] : cases) {
        const int fd = peer([&bytes = sent](int far) { write(far, bytes); });
        UtString line("old");
        EXPECT_EQ(result, UtSocket::readLine(fd, line)) << sent.substr(0, 20);
        EXPECT_TRUE(wanted == (const char*)line) << sent.substr(0, 20);
        EXPECT_EQ(rest, result < 0 ? "" : receive(fd, 100, 0));
        UtSocket::close(fd);
    }
}

TEST_F(Socket, ReadsAheadLineByLine)
{
    const std::string lines[] = { "one", "", std::string(70000, 'y'),
                                  std::string(UtLineReader::MAX_LINE, 'z') };
    const int fd = peer([&](int far) {
        for (const std::string& line : lines)
            UtSocket::send(far, "%s\n", line.c_str());
        UtSocket::send(far, "%sx\n", lines[3].c_str());
    });
    UtLineReader reader(fd);
    UtString found;
    for (const std::string& line : lines) {
        EXPECT_EQ((int)line.size() + 1, reader.readLine(found));
        EXPECT_TRUE(line == (const char*)found);
    }
    EXPECT_EQ(-1, reader.readLine(found)) << "longer than the longest";
    UtSocket::close(fd);
}

TEST_F(Socket, LimitsOfTimeAndSizeHold)
{
    const int silent = peer([](int far) { receive(far, 1, 0); });
    UtSocket::setTimeLimits(silent, 1);
    UtString line;
    const double start = now();
    EXPECT_EQ("failed", receive(silent, 1, 0));
    EXPECT_EQ(-1, UtSocket::readLine(silent, line));
    EXPECT_NEAR(2, now() - start, 0.5);
    const int dripping = peer([](int far) {
        for (int i = 0; i < 10; ++i, ::poll(nullptr, 0, 200))
            write(far, "9\n9");
    });
    UtSocket::setTimeLimits(dripping, 1);
    UtLineReader reader(dripping);
    while (reader.readLine(line) > 0)
        continue;
    EXPECT_NEAR(3, now() - start, 0.7) << "the limit is that of all lines together";
    UtSocket::close(dripping);
    const int copy = ::dup(silent);
    UtSocket::close(silent);  // the copy's connection stays
    EXPECT_EQ(0, UtSocket::send(copy, "x"));
    UtSocket::close(copy);
    const int full = peer([](int far) { write(far, "abcdef"); });
    EXPECT_EQ("abc", receive(full, 3, 1));
    EXPECT_EQ("def", receive(full, 4, 1)) << "the end of the connection ends it";
    UtSocket::close(full);
}

TEST_F(Socket, ReceivesAReplyOfTwoWritesWholeAndWaitsForNoMoreThanThat)
{
    const int fd = peer([](int far) {
        for (const char* part : { "o", "k\n", "er", "ror\n" }) {
            write(far, part);
            ::poll(nullptr, 0, 50);
        }
    });
    EXPECT_EQ("ok\n", receive(fd, 256, 1));
    EXPECT_EQ("er", receive(fd, 256, 0));
    EXPECT_EQ("ror\n", receive(fd, 256, 1));
    UtSocket::close(fd);
    const int slow = peer([](int far) {
        write(far, "running");
        char more;
        EXPECT_EQ(0, ::recv(far, &more, 1, 0));  // stays
    });
    const double start = now();
    EXPECT_EQ("running", receive(slow, 256, 1));
    EXPECT_GT(10, now() - start);
    UtSocket::close(slow);
}

TEST_F(Socket, PipesAreReadAndWrittenLikeConnections)
{
    int ends[2];
    ASSERT_EQ(0, ::pipe(ends));
    EXPECT_EQ(0, UtSocket::send(ends[1], "one\n%s\n", "two"));
    UtString line;
    EXPECT_EQ(4, UtSocket::readLine(ends[0], line));
    EXPECT_STREQ("one", line);
    EXPECT_EQ("two\n", receive(ends[0], 256, 1));
    UtSocket::close(ends[0]);
    EXPECT_EQ(-1, UtSocket::send(ends[1], "nobody reads"));  // and no SIGPIPE ends us
    EXPECT_NE(std::string::npos,
              Sandbox::read("/proc/self/status").find("SigBlk:\t000000000000000"))
        << "a program that is started now would never be ended by SIGPIPE";
    UtSocket::close(ends[1]);
}

TEST_F(Socket, ServerSurvivesWhatPassesAndConnectionsAreNotInherited)
{
    UtServerSocket server(1), second(1);
    ASSERT_EQ(0, server.openSocket(0, -10, 25));
    EXPECT_EQ(-1, second.openSocket(server.port, -10, 25)) << "two servers on a port";
    for (const int port : { -1, 65536 })
        EXPECT_EQ(-1, second.openSocket(port, -10, 25));
    long open = 0;
    for (int i = 0; i < 2; ++i) {  // the resolver keeps what the first question has opened
        EXPECT_EQ(-1, UtSocket::connect("nowhere.invalid", server.port));
        open = i == 0 ? ProcessTable::descriptors(::getpid()) : open;
    }
    for (const int port : { Sandbox::freePort(), 0, -1, 65536 + server.port })
        EXPECT_EQ(-1, UtSocket::connect(nullptr, port));
    isOwnEnd = true;
    EXPECT_EQ(-1, UtSocket::connect(nullptr, Sandbox::freePort())) << "it leads to itself";
    isOwnEnd = false;
    EXPECT_EQ(open, ProcessTable::descriptors(::getpid()));
    EXPECT_EQ(-1, server.accept());
    EXPECT_EQ(EAGAIN, errno) << "the timer's signal";
    const int near = UtSocket::connect("node1", server.port);
    EXPECT_NEAR(60, UtSocket::receiveDeadline(near) / 1e3 - now(), 5) << "a server may hang";
    struct rlimit limit;
    ::getrlimit(RLIMIT_NOFILE, &limit);
    const struct rlimit used = { (rlim_t)near + 1, limit.rlim_max };
    ::setrlimit(RLIMIT_NOFILE, &used);
    EXPECT_EQ(-1, server.accept());
    EXPECT_EQ(EMFILE, errno) << "no descriptor left";
    ::setrlimit(RLIMIT_NOFILE, &limit);
    int far = -1;
    EXPECT_TRUE(Sandbox::waitFor([&] { return (far = server.accept()) >= 0; }));
    for (int fd : { server.descriptor, near, far })
        EXPECT_EQ(FD_CLOEXEC, ::fcntl(fd, F_GETFD));
    EXPECT_EQ(0, ::fcntl(near, F_GETFL) & O_NONBLOCK);
    UtSocket::close(far);
    UtSocket::close(near);
}
