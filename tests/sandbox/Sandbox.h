#ifndef SANDBOX_H
#define SANDBOX_H

#include <functional>
#include <gtest/gtest.h>
#include <string>
#include <sys/types.h>

/// The world of one test. Linking testsupport gives a program its main(), which runs every test in
/// a private place: its own user, host name, hosts file, home and temporary directory (also the
/// working directory), fresh for each test; where bubblewrap can do it also its own network,
/// process ids, /tmp and /var/tmp, with the rest of the machine read-only. Root is an ordinary user
/// in there. A test fails that leaves a process behind or a file outside of its place.
/// KELVO_TEST_NO_BWRAP=1 in the environment does without bubblewrap; such runs wait for each other,
/// since they share the machine's ports.
class Sandbox
{
public:
    enum { SCHEDULE_PORT = 7160 };

    /// Begins the world of the next test; main() calls it.
    static void enterNew();

    /// An absolute path in the test's directory; the directory itself without a name.
    static std::string path(const std::string& name = "");
    static std::string home();
    /// A directory on a file system of 1 MiB that the test shares with no other; empty where none
    /// can be mounted.
    static std::string smallDisk();
    /// Where the queue of the present home and host name lies.
    static std::string queueFile();

    /// Gives this process's user id a password entry of that name, with home() as its directory.
    /// Every test begins as "tester", in the entry and in USER.
    static void setUser(const std::string& name);
    static void noPasswordEntry();
    /// Names the machine; `official` is what the hosts file gives as its full name. Every test
    /// begins on "node1", which is "node1".
    static void setHostName(const std::string& name, const std::string& official);

    /// The contents of a file, empty when there is none.
    static std::string read(const std::string& path);
    static void write(const std::string& path, const std::string& text);

    /// Asks again and again, until the condition holds or the seconds have passed. Returns whether
    /// it holds: `ASSERT_TRUE(Sandbox::waitFor([&] { return ...; }))`.
    static bool waitFor(const std::function<bool()>& condition, double seconds = 15);

    /// A TCP port that nobody uses now.
    static int freePort();
    /// Whether somebody listens on a port of this machine; asks without connecting.
    static bool isListening(int port);
    /// For a test that needs SCHEDULE_PORT, before anything else: somebody else's server may be
    /// there.
    ///     ASSERT_TRUE(Sandbox::schedulePortIsFree());
    static ::testing::AssertionResult schedulePortIsFree();

    /// Sends the bytes to a port of this machine and returns everything that comes back until the
    /// peer closes. Bytes that do not end in a line end are followed by the end of the connection.
    /// A connection that is refused or broken returns what came before.
    static std::string request(int port, const std::string& bytes);
};

/// A job server, started with the built launcher as a process of its own in the test's world, as
/// the world is at that moment. It is told to quit at the end of its scope, and killed if it does
/// not.
class TestServer
{
public:
    int port;
    pid_t pid;            ///< -1 when it has ended
    std::string logFile;  ///< what JOB_LOG_FILE names to it

    /// Returns when the server listens; fails the test when it does not. Port 0 takes a free one.
    explicit TestServer(int port = 0);
    TestServer(const TestServer&) = delete;
    TestServer& operator=(const TestServer&) = delete;
    ~TestServer();

    std::string request(const std::string& bytes) const { return Sandbox::request(port, bytes); }
    std::string log() const { return Sandbox::read(logFile); }

    /// Waits for the server's own end. Returns its exit status, or -1 when it was killed by a
    /// signal or has not ended in time.
    int wait(double seconds = 15);
    /// Sends "quit" unless the server has ended, then waits like wait().
    int quit();

private:
    std::string user;
    int status = -1;
};

#endif
