// Strangers are refused, and a dead job child does not stop the queue.

#include "schedule/ZoClient.h"
#include "schedule/ZoJobServer.h"
#include "tests/sandbox/TestServer.h"
#include "utlib/UtSocket.h"

#include <csignal>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sstream>
#include <sys/file.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/syscall.h>
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

TEST(Safety, StrangersGetErrorWhateverTheySend)
{
    if (::geteuid() != 0)
        GTEST_SKIP() << "only root can have a second user id here";
    TestServer server;
    EXPECT_EQ("ok\n", server.request("tester submit \"true\" \"\" \"\"\n"));
    const std::string list = server.request("tester list\n");
    for (const char* bytes : { "tester submit \"touch /tmp/stranger\" \"\" \"\"\n", "tester run\n",
                               "tester list\n", "tester quit\ntester quit\n", "" }) {
        std::string reply;
        Sandbox::asStranger([&] { reply = server.request(bytes); });
        EXPECT_EQ("error\n", reply) << bytes;
        EXPECT_EQ(list, server.request("tester list\n")) << "after a stranger's " << bytes;
    }
    ::kill(server.pid(), SIGSTOP);  // until a stranger who does not wait for an answer has gone
    Sandbox::asStranger(
        [&] { UtSocket::close(server.connect("tester submit \"true\" \"\" \"\"\n")); });
    ::kill(server.pid(), SIGCONT);
    EXPECT_EQ(list, server.ask("list"));
    EXPECT_NE(std::string::npos, server.log().find("refused a connection of user 65534\n"));
    const std::string open = "/proc/" + std::to_string(server.pid()) + "/fd/";
    int free = 0;
    while (::access((open + std::to_string(free)).c_str(), F_OK) == 0)
        ++free;
    struct rlimit limit;
    ::prlimit(server.pid(), RLIMIT_NOFILE, nullptr, &limit);
    struct rlimit used = { (rlim_t)free + 1, limit.rlim_max };
    ::prlimit(server.pid(), RLIMIT_NOFILE, &used, nullptr);
    EXPECT_EQ("error\n", server.ask("status")) << "nobody can tell who asks";
    --used.rlim_cur;
    ::prlimit(server.pid(), RLIMIT_NOFILE, &used, nullptr);
    server.ask("status");
    EXPECT_EQ(0, server.wait()) << "it cannot even accept, and would try for ever";
}

TEST(Safety, OtherMachinesAreServedOnlyIfAllowed)
{
    const char* const cases[][2] = {
        { "", "done\n" }, { " any\t", "done\n" }, { "local", "error\n" }, { "typo", "error\n" }
    };
    for (const auto& [peers, reply] : cases) {
        ::setenv("JOB_PEERS", peers, 1);
        TestServer server(0, [](ZoJobServer&) { isElsewhere = true; });
        EXPECT_EQ(reply, server.ask("status")) << peers;
        EXPECT_EQ(reply[0] == 'e', server.log().find("from another machine\n") + 1 != 0) << peers;
        const int another = UtSocket::connect("127.0.0.2", server.port);
        EXPECT_LE(0, another) << "it listens on one address only";
        UtSocket::close(another);
        ::kill(server.pid(), SIGKILL);  // it may not listen to "quit"
    }
    ::unsetenv("JOB_PEERS");
    // The launcher says "local" for who says nothing, as its commands can see.
    for (const char* said : { "local", "", "any" }) {
        if (*said != 'l')
            ::setenv("JOB_PEERS", said, 1);
        TestServer launched;
        launched.ask("submit \"echo $JOB_PEERS\" \"\" \"" + Sandbox::path() + "\"\nrun");
        EXPECT_TRUE(launched.waitForStatus("done"));
        const std::string line = std::string("\n") + (*said ? said : "local") + "\n";
        EXPECT_NE(std::string::npos, Sandbox::read("log").find(line)) << said;
    }
}

TEST(Safety, StaleRunningRecordEndsAndALivingOneDoesNot)
{
    const std::string directory = Sandbox::path("job");
    ::mkdir(directory.c_str(), 0700);
    const long long now = ::time(nullptr), lastYear = now - 366LL * 24 * 3600;
    const int own = ::getpid();
    const Process another({ "sleep", "9999" });  // has got the number of a process that has gone
    const std::pair<long long, int> records[] = { { now, 9000001 },          { lastYear, -1 },
                                                  { lastYear, own },         { now, own },
                                                  { now - 60, another.pid }, { now, another.pid },
                                                  { now - 60, own },         { lastYear, own } };
    std::string text, id;
    for (const auto& [startTime, pid] : records) {  // no process can have the first number
        id = std::to_string(text.size());
        Sandbox::write(directory + "/." + id, "");
        text += "11:true::" + directory + ":" + id + ":" + std::to_string(startTime) +
                ":0:0:" + std::to_string(pid) + "\n";
    }
    Sandbox::write(Sandbox::queueFile(), text);
    // The last job runs, and the clock has been set since.
    const int marker = ::open((directory + "/." + id).c_str(), O_RDWR | O_CLOEXEC);
    EXPECT_EQ(0, ::flock(marker, LOCK_EX));
    TestServer server(0,
                      [](ZoJobServer& one) { one.secondsPerPass = one.secondsBetweenLooks = 0.5; });
    // One look is enough for jobs from before the machine's start, two for a process that is gone.
    for (const char* states : { "11 13 13 11 11 11 11 11 ", "13 13 13 11 13 11 11 11 " })
        EXPECT_TRUE(Sandbox::waitFor([&] { return server.states() == states; })) << server.states();
    EXPECT_EQ("running\n", server.ask("status"));
    std::istringstream lines(Sandbox::read(Sandbox::queueFile()));
    for (std::string line; std::getline(lines, line);) {
        long long end = -1;
        ::sscanf(line.c_str(), "%*d:true::%*[^:]:%*d:%*d:%lld", &end);
        EXPECT_EQ(line.find("13:") == 0, end >= now) << line;
    }
    EXPECT_GT(20, ProcessTable::descriptors(server.pid())) << "left open by the looks";
    ::close(marker);
    EXPECT_EQ(0, ::kill(another.pid, SIGKILL));
}

TEST(Safety, RootIsServed)
{
    if (::geteuid() != 0)
        GTEST_SKIP() << "only root can be root";
    TestServer server(0, [](ZoJobServer&) { EXPECT_EQ(0, ::seteuid(Sandbox::STRANGER)); });
    EXPECT_EQ("done\n", server.ask("status"));
    Process client([] {  // and trusted, by everybody
        return ::setuid(Sandbox::STRANGER) != 0 || !ZoClient::isTrusted(0) ||
               !ZoClient::isTrusted(Sandbox::STRANGER) || ZoClient::isTrusted(1);
    });
    EXPECT_EQ(0, client.end());
}
