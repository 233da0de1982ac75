// Strangers are refused, and a dead job child does not stop the queue.

#include "schedule/ZoJobServer.h"
#include "tests/support/Sandbox.h"

#include <fcntl.h>
#include <netinet/in.h>
#include <sstream>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

static bool isElsewhere = false;  // lets every peer seem to be on another machine

// This replaces the C library's, inside the libraries too.
extern "C" __attribute__((visibility("default"))) int getpeername(int fd, sockaddr* name,
                                                                  socklen_t* size) noexcept
{
    const int result = (int)::syscall(SYS_getpeername, fd, name, size);
    if (isElsewhere)
        ((sockaddr_in*)name)->sin_addr.s_addr = htonl(0xc0000201);  // 192.0.2.1: nobody has it
    return result;
}

static const uid_t STRANGER = 65534;

/// What a process of another user gets from the server for these bytes.
static std::string requestOfStranger(int port, const std::string& bytes)
{
    int ends[2];
    EXPECT_EQ(0, ::pipe2(ends, O_CLOEXEC));
    const pid_t pid = ::fork();
    if (pid == 0) {
        const bool isStranger = ::setgid(STRANGER) == 0 && ::setuid(STRANGER) == 0;
        const std::string reply = isStranger ? Sandbox::request(port, bytes) : "not a stranger";
        ::_exit(::write(ends[1], reply.data(), reply.size()) < 0);
    }
    ::close(ends[1]);
    char reply[4096];
    const long n = ::read(ends[0], reply, sizeof reply);
    ::close(ends[0]);
    ::waitpid(pid, nullptr, 0);
    return std::string(reply, std::max(n, 0L));
}

TEST(Safety, StrangersGetErrorWhateverTheySend)
{
    if (::geteuid() != 0)
        GTEST_SKIP() << "only root can have a second user id here";
    TestServer server;
    EXPECT_EQ("ok\n", server.request("tester submit \"true\" \"\" \"\"\n"));
    const std::string list = server.request("tester list\n");
    const char* const requests[] = { "tester status\n",
                                     "tester submit \"touch /tmp/stranger\" \"\" \"\"\n",
                                     "tester run\n",
                                     "tester list\n",
                                     "tester kill\n",
                                     "tester done\n",
                                     "tester quit\n",
                                     "tester quit\ntester quit\n",
                                     "tester status",  // and the end of sending
                                     "" };
    for (const char* bytes : requests) {
        EXPECT_EQ("error\n", requestOfStranger(server.port, bytes)) << bytes;
        EXPECT_EQ(list, server.request("tester list\n")) << "after a stranger's " << bytes;
    }
    EXPECT_NE(std::string::npos, server.log().find("refused a connection of user 65534\n"));
}

TEST(Safety, OtherMachinesAreServedOnlyIfAllowed)
{
    const struct {
        const char* peers;  // null: not set
        const char* reply;
    } cases[] = {
        { nullptr, "done\n" }, { "any", "done\n" }, { "local", "error\n" }, { "typo", "error\n" }
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.peers ? c.peers : "unset");
        const int port = Sandbox::freePort();
        const pid_t pid = ::fork();
        if (pid == 0) {
            c.peers ? ::setenv("JOB_PEERS", c.peers, 1) : ::unsetenv("JOB_PEERS");
            isElsewhere = true;
            const std::string text = std::to_string(port);
            const char* words[] = { "start", "-jobserver", text.c_str() };
            ::_exit(ZoJobServer::main(3, const_cast<char**>(words)));
        }
        ASSERT_TRUE(Sandbox::waitFor([=] { return Sandbox::isListening(port); }));
        EXPECT_EQ(c.reply, Sandbox::request(port, "tester status\n"));
        ::kill(pid, SIGKILL);
        ::waitpid(pid, nullptr, 0);
    }
    ::unsetenv("JOB_PEERS");
    TestServer launched;  // the launcher says "local" for who says nothing, as its commands can see
    launched.request("tester submit \"echo peers: $JOB_PEERS\" \"\" \"" + Sandbox::path() + "\"\n");
    launched.request("tester run\n");
    EXPECT_TRUE(Sandbox::waitFor(
        [] { return Sandbox::read(Sandbox::path("log")).find("peers: local\n") + 1; }));
    EXPECT_TRUE(Sandbox::waitFor([&] { return launched.request("tester status\n") == "done\n"; }));
}

/// The states in the queue file, as "10 11 ".
static std::string states()
{
    std::string found;
    std::istringstream lines(Sandbox::read(Sandbox::queueFile()));
    for (std::string line; std::getline(lines, line);)
        found += line.substr(0, 3) + " ";
    return found;
}

TEST(Safety, QueueGoesOnAfterADeadJobChild)
{
    TestServer server;
    const std::string released = Sandbox::path("released");  // ends the orphaned command at once
    const std::string command = "while [ ! -e " + released + " ]; do sleep 0.1; done";
    server.request("tester submit \"" + command + "\" \"\" \"\"\n");
    server.request("tester submit \"true\" \"\" \"\"\n");
    EXPECT_EQ("ok\n", server.request("tester run\n"));
    ZoJobList list;
    ASSERT_EQ(2, list.jobs.size());
    ASSERT_TRUE(Sandbox::waitFor([&] { return server.log().find("executing") + 1; }));
    const int child = list.jobs[0]->pid;
    ASSERT_EQ(0, ::kill(child, SIGKILL));
    EXPECT_TRUE(Sandbox::waitFor([] { return states() == "13: 12: "; }, 31 + 5)) << states();
    EXPECT_TRUE(Sandbox::waitFor([&] { return server.request("tester status\n") == "done\n"; }));
    EXPECT_NE(std::string::npos, server.log().find("is gone"));
    Sandbox::write(released, "");
}

TEST(Safety, StaleRunningRecordEndsAndALivingOneDoesNot)
{
    const std::string directory = Sandbox::path("job");
    ::mkdir(directory.c_str(), 0700);
    const pid_t gone = ::fork();
    if (gone == 0)
        ::_exit(0);
    ::waitpid(gone, nullptr, 0);
    std::string text;
    for (int pid : { (int)gone, -1, (int)::getpid() }) {
        Sandbox::write(directory + "/." + std::to_string(text.size()), "");
        text += "11:true::" + directory + ":" + std::to_string(text.size()) +
                ":1:0:0:" + std::to_string(pid) + "\n";
    }
    Sandbox::write(Sandbox::queueFile(), text);
    TestServer server;
    EXPECT_TRUE(Sandbox::waitFor([] { return states() == "13: 13: 11: "; }, 31 + 5)) << states();
    EXPECT_EQ("running\n", server.request("tester status\n"));
}
