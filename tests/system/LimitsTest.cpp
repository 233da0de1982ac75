// How long the server waits: for a request line, for the reader of its reply, for the next
// connection, for a look after its children. With KELVO_FULL_LIMITS as long as users meet it.

#include "schedule/ZoJobServer.h"
#include "tests/sandbox/TestServer.h"
#include "utlib/UtSocket.h"

#include <algorithm>
#include <csignal>
#include <filesystem>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/socket.h>

static const bool IS_FULL = std::getenv("KELVO_FULL_LIMITS");
static const double CONNECTION = IS_FULL ? 25 : 2, PASS = IS_FULL ? 30 : 2.5;  // seconds

static void shorten(ZoJobServer& server)
{
    server.secondsPerConnection = (int)CONNECTION;
    server.secondsPerPass = server.secondsBetweenLooks = PASS;
}

class Limits : public ::testing::Test
{
protected:
    TestServer server{ 0, IS_FULL ? nullptr : shorten };

    /// Whether `next` gets its answer after the limit for a connection, while `slow` sends a byte
    /// now and then.
    static void expectTurn(int next, int slow)
    {
        const double start = now();
        struct pollfd answer = { next, POLLIN, 0 };
        while (::poll(&answer, 1, (int)(CONNECTION * 40)) == 0 && now() < start + CONNECTION + 10)
            ::send(slow, "x", 1, MSG_NOSIGNAL);
        EXPECT_NEAR(CONNECTION + 1, now() - start, 2);
        UtSocket::close(slow);
        UtSocket::close(next);
    }
};

TEST_F(Limits, OneLineHoldsTheServerSoLong)
{
    const int slow = server.connect("tester");
    expectTurn(server.connect("tester status\n"), slow);
}

TEST_F(Limits, AReaderThatStandsStillHoldsTheServerSoLong)
{
    std::string queue;
    for (int i = 0; i < 50000; ++i)
        queue += "10:" + std::string(80, 'x') + "::.:1:0:0:0:-1\n";
    Sandbox::write(Sandbox::queueFile(), queue);
    Sandbox::write(".1", "");
    server.ask("done");  // loads the queue
    // What comes behind the request must not cost its sender the rest of the reply.
    const std::string list = server.request("tester list\ntester status\n");
    EXPECT_EQ(50001, std::count(list.begin(), list.end(), '\n'));
    const int still = server.connect("tester list\n");
    expectTurn(server.connect("tester status\n"), -1);
    UtSocket::close(still);
}

TEST_F(Limits, AnIdleServerEndsUnlessAJobRuns)
{
    TestServer busy(0, IS_FULL ? nullptr : shorten);
    EXPECT_EQ("ok\nok\n", busy.ask("submit \"exec sleep 50\" \"\" .\nrun"));
    EXPECT_EQ(-1, server.wait(PASS * 0.7));
    EXPECT_EQ(0, server.wait(PASS * 0.3 + 5));
    EXPECT_TRUE(Sandbox::waitFor([&] { return busy.log().find("returned 0\n") + 1 != 0; }));
    EXPECT_EQ("running\nok\n", busy.ask("status\nkill"));
}

TEST_F(Limits, QueueGoesOnAfterADeadJobChildAlsoWhenSomebodyAsksAllTheTime)
{
    std::filesystem::create_directory("d");
    const std::string command = "while [ ! -e ../released ]; do sleep 0.1; done";
    EXPECT_EQ("ok\nok\nok\n",
              server.ask("submit \"" + command + "\" \"\" d\nsubmit \"true\" \"\" .\nrun"));
    ASSERT_TRUE(Sandbox::waitFor([&] { return server.log().find("executing") + 1; }));
    ZoJobList list;
    ASSERT_EQ(2, list.jobs.size());
    ASSERT_EQ(0, ::kill(list.jobs[0]->pid, SIGKILL));
    const auto isDone = [&] { return server.ask("status") == "done\n"; };
    EXPECT_TRUE(Sandbox::waitFor(isDone, PASS * 1.2 + 10));
    list.update();
    EXPECT_EQ(ZoJob::KILLED, list.jobs[0]->state);
    EXPECT_EQ(ZoJob::DONE, list.jobs[1]->state);
    Sandbox::write("released", "");  // ends the orphaned command
    server.ask("submit \"exec sleep 3\" \"\" d\nrun");
    list.update();
    const UtHandle<ZoJob> removed = list.jobs[list.jobs.size() - 1];
    EXPECT_EQ("ok\n", server.ask("remove " + std::to_string(removed->id) + " d"));
    EXPECT_EQ(0, ::kill(removed->pid, SIGKILL));
    EXPECT_TRUE(Sandbox::waitFor(isDone, PASS * 1.2 + 10)) << "removed while it ran";
}
