// Server, launcher, client functions and jobs as real processes that talk over real sockets.

#include "schedule/ZoClient.h"
#include "schedule/ZoJobList.h"
#include "schedule/ZoJobServer.h"
#include "schedule/ZoSchedule.h"
#include "tests/sandbox/TestServer.h"
#include "utlib/UtServerSocket.h"
#include "utlib/UtSocket.h"

#include <csignal>
#include <fcntl.h>
#include <filesystem>
#include <gtest/gtest.h>
#include <poll.h>
#include <regex>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

namespace fs = std::filesystem;

static time_t theSecondsPassed = 0;  // beside those that pass

// This replaces the C library's, inside the libraries too.
extern "C" __attribute__((visibility("default"))) time_t time(time_t*) noexcept
{
    struct timespec now;
    ::clock_gettime(CLOCK_REALTIME, &now);
    return now.tv_sec + theSecondsPassed;
}

class System : public ::testing::Test
{
protected:
    System()
    {
        for (const char* directory : { "d1", "d2", "app/bin" })
            fs::create_directories(directory);
    }

    static int open(const char* host = nullptr)
    {
        const std::string longest = "app" + std::string(242, '/');  // its path is so long, at most
        return ZoScheduleOpen(host, longest.c_str(), "", "");
    }

    /// Ends the server that an application has started.
    static void quit(int port)
    {
        EXPECT_EQ("ok\n", Sandbox::request(port, "tester quit\n"));
        EXPECT_TRUE(Sandbox::waitFor([=] { return !Sandbox::isListening(port); }));
    }

    /// An application: a fork of this process, in which no server was looked for before.
    static std::unique_ptr<Process> begin(const std::function<void()>& application)
    {
        return std::make_unique<Process>([&] {
            application();
            return HasFailure();
        });
    }
};

TEST_F(System, AnswersByteForByte)
{
    Sandbox::write(Sandbox::queueFile(),
                   "10:touch up; sleep 100:two  words:d1:50000000000:0:0:0:-1\n"
                   "10:true::d2:50000000000:0:0:7:-1\n");
    for (const char* marker : { "d1/.50000000000", "d2/.50000000000" })
        Sandbox::write(marker, "");
    TestServer server;
    EXPECT_EQ("error\n", server.request("Tester status\n"));
    EXPECT_EQ("error\n", server.request("\n"));
    std::string replies =
        server.ask("status\nlist of all\nsubmit \"a  b\" \"c\" \"\"\nsubmit \"\" \"c\" d1\n"
                   "run 50000000000 d3\nkill\nrun 50000000000 d1\nstatus\nrun\nlist");
    EXPECT_TRUE(Sandbox::waitFor([] { return fs::exists("d1/up"); }));
    replies += server.ask("kill\nlist\ndone\nremove\nremove 50000000000 d1\n"
                          "remove 50000000000 d1\nlist\n\nSTATUS\nquit");
    replies = std::regex_replace(replies, std::regex("\\b\\d{10}\\b"), "TIME");
    replies = std::regex_replace(replies, std::regex("/\\S+/kelvojob\\w{6} "), "FRESH ");
    const std::string first = " \"touch up; sleep 100\" \"two  words\" d1 50000000000 ",
                      second = "10 \"true\" \"\" d2 50000000000 0 0 7\n",
                      rest = second + "10 \"a  b\" \"c\" FRESH TIME 0 0 0\n";
    EXPECT_EQ("waiting\n2\n10" + first + "0 0 0\n" + second +
                  "ok\nerror\nerror\nerror\nok\nrunning\nerror\n3\n11" + first + "TIME 0 0\n" +
                  rest + "ok\n3\n13" + first + "TIME TIME 0\n" + rest +
                  "error\nerror\nok\nerror\n2\n" + rest + "unknown command\nunknown command\nok\n",
              replies);
    EXPECT_EQ(0, server.wait());
}

TEST_F(System, KillsTheWholeTreeAndStartsNoFurtherJob)
{
    TestServer server;
    server.ask("submit \"sleep 99 & (sleep 98 & echo > up; wait) & wait\" \"\" d1\n"
               "submit \"true\" \"\" d2\nrun");
    ASSERT_TRUE(Sandbox::waitFor([] { return fs::exists("d1/up"); }));
    EXPECT_EQ("ok\nwaiting\n", server.ask("kill\nstatus"));
    EXPECT_EQ("13 10 ", server.states());
    // What is left of the tree now fails the test at its end.
}

TEST_F(System, AKillIsSavedAsSoonAsTheQueueCanBeWritten)
{
    TestServer server;
    server.ask("submit \"sleep 99\" \"\" d1\nrun");
    ::chmod(Sandbox::queueFile().c_str(), 0400);
    EXPECT_EQ("ok\n", server.ask("kill"));
    EXPECT_EQ("11 ", server.states());
    ::chmod(Sandbox::queueFile().c_str(), 0600);
    EXPECT_EQ("done\n", server.ask("status"));
    EXPECT_EQ("13 ", server.states());
}

TEST_F(System, ANewServerGoesOnWithTheQueueAndTheRunningJob)
{
    // The clock is set forward after the job's start.
    TestServer first(0, [](ZoJobServer&) { theSecondsPassed = -1000000000; });
    first.ask("submit \"until [ -e " + Sandbox::path("end") +
              " ]; do sleep 0.01; done\" \"\" d1\n"
              "submit \"true\" \"\" d2\nrun");
    const std::string queue = first.ask("list");
    ZoJobServer::send(first.port, "%s quit", "tester");
    EXPECT_EQ(0, first.wait());
    TestServer second(first.port, [](ZoJobServer& one) { one.secondsBetweenLooks = 0.1; });
    const auto isOver = [&] { return second.ask("status") != "running\n"; };
    EXPECT_FALSE(Sandbox::waitFor(isOver, 0.5));
    EXPECT_EQ(queue, second.ask("list"));
    const std::string id = std::to_string(ZoJobList().jobs[0]->id);
    EXPECT_EQ("ok\n", second.ask("remove " + id + " d1"));
    EXPECT_FALSE(Sandbox::waitFor(isOver, 0.5)) << "it runs, in the queue or not";
    Sandbox::write("end", "");
    EXPECT_TRUE(second.waitForStatus("waiting"));
}

TEST_F(System, RunningOneJobDoesNotGoOnButAFullRunDoesAlsoAfterAKill)
{
    TestServer server;
    const std::string log = "echo in >>../order; sleep 0.3; echo out >>../order";
    Sandbox::write(Sandbox::queueFile(), "10:true::d1:1:0:0:0:-1\n"
                                         "10:until [ -e go ]; do sleep 0.1; done::d2:2:0:0:0:-1\n"
                                         "10:sleep 60::d1:3:0:0:0:-1\n10:" +
                                             log + "::d2:4:0:0:0:-1\n10:" + log +
                                             "::d1:5:0:0:0:-1\n");
    for (const char* marker : { "d1/.1", "d2/.2", "d1/.3", "d2/.4", "d1/.5" })
        Sandbox::write(marker, "");
    server.ask("done");  // loads the queue
    EXPECT_EQ("ok\nerror\nerror\n", server.ask("run 2 d2\nrun 2 d2\nrun"));
    Sandbox::write("d2/go", "");
    EXPECT_TRUE(server.waitForStatus("waiting"));
    EXPECT_EQ("10 12 10 10 10 ", server.states());
    EXPECT_EQ("error\nok\n", server.ask("run 2 d2\nrun"));  // a done job; all others
    EXPECT_TRUE(Sandbox::waitFor([&] { return server.states() == "12 12 11 10 10 "; }));
    EXPECT_EQ("ok\nerror\nwaiting\n", server.ask("kill\nkill\nstatus"));
    EXPECT_EQ("ok\n", server.ask("run 4 d2"));  // the full run was not at its end
    EXPECT_TRUE(server.waitForStatus("done"));
    EXPECT_EQ("12 12 13 12 12 ", server.states());
    EXPECT_EQ("in\nout\nin\nout\n", Sandbox::read("order"));
    ZoJobList list;
    EXPECT_LT(list.jobs[3]->endTime, list.jobs[4]->startTime) << "a second is between them";
    EXPECT_EQ("ok\nok\n", server.ask("submit \"true\" \"\" d1\nsubmit \"true\" \"\" d2"));
    list.update();
    EXPECT_EQ("ok\n", server.ask("run " + std::to_string(list.jobs[6]->id) + " d2"));
    EXPECT_TRUE(server.waitForStatus("waiting")) << "the full run has ended before";
}

TEST_F(System, ALateReportStartsNothingBesideTheRunningJob)
{
    TestServer server;
    const std::string job = "submit \"touch up; until [ -e end ]; do sleep 0.01; done\" \"\" ";
    server.ask(job + "d1\n" + job + "d2\nsubmit \"true\" \"\" d1\nrun");
    ASSERT_TRUE(Sandbox::waitFor([] { return fs::exists("d1/up"); }));
    // The first job's report waits behind a slow client, a kill and a run.
    const int slow = server.connect(""), kill = server.connect("tester kill\n"),
              run = server.connect("tester run\n");
    Sandbox::write("d1/end", "");
    const auto reports = [&] { return server.log().find("job done, conn") != std::string::npos; };
    ASSERT_TRUE(Sandbox::waitFor(reports));
    UtSocket::close(slow);
    for (const int client : { kill, run }) {
        UtString line;
        UtSocket::readLine(client, line);
        EXPECT_STREQ("ok", line);
        UtSocket::close(client);
    }
    EXPECT_EQ("running\n", server.ask("status"));  // by then the report was served
    EXPECT_NE(std::string::npos, server.log().find("got message \"tester done"));
    EXPECT_EQ("12 11 10 ", server.states());
    Sandbox::write("d2/end", "");
    EXPECT_TRUE(server.waitForStatus("done"));
    EXPECT_EQ("12 12 12 ", server.states()) << "the second job's report has gone its way";
}

TEST_F(System, LeavesNothingOpenAndNoZombie)
{
    TestServer::logs = false;  // a log is open for a moment at any time
    TestServer server(0, [](ZoJobServer& one) { one.secondsBetweenLooks = 0.05; });
    TestServer::logs = true;
    for (const char* directory : { "d2/a", "d2/b" })
        fs::create_directory(directory);
    fs::create_directory_symlink("b", "d2/link");
    for (const char* marker : { "d2/a/.1", "d2/b/.2" })
        Sandbox::write(marker, "");
    const std::string requests =
        "status\nlist\nnonsense\nsubmit \"x\nsubmit \"true\" \"\" d1\nrun 1 d1\nremove 1 d1\n"
        "kill\ndone\n";
    server.ask(requests);
    const long open = ProcessTable::descriptors(server.pid());
    Sandbox::write(Sandbox::queueFile(),
                   "10:sleep 60::d2/a:1:0:0:0:-1\n10:true::d2/link/:2:0:0:0:-1\n");
    EXPECT_EQ("error\nok\nok\nok\nok\n",
              server.ask("done\nrun 1 d2/a\nkill\nremove 1 d2/a\nremove 2 d2/link/"));
    EXPECT_FALSE(fs::exists("d2/a") || fs::is_symlink("d2/link"));
    ZoClient client(nullptr, "app");
    client.port = server.port;
    client.otherUser = client.launcherStatus = 1;  // of an earlier request
    const long own = ProcessTable::descriptors(::getpid());
    UtDArray<UtHandle<ZoJob>> jobs;
    EXPECT_EQ(0, client.list(jobs));
    EXPECT_EQ(ZoClient::OURS, client.look());
    EXPECT_EQ(-2, client.otherUser + client.launcherStatus);
    EXPECT_STREQ("app", client.root) << "it only looked";
    EXPECT_EQ(own, ProcessTable::descriptors(::getpid()));
    server.ask(requests + "run");
    server.request("");
    server.request("tester sub");
    if (::geteuid() == 0)
        Sandbox::asStranger([&] { server.request("tester status\n"); });
    EXPECT_TRUE(server.waitForStatus("done"));
    server.ask("status");
    EXPECT_EQ(open, ProcessTable::descriptors(server.pid()));
    const std::string children = "/proc/" + std::to_string(server.pid()) + "/task/" +
                                 std::to_string(server.pid()) + "/children";
    EXPECT_TRUE(Sandbox::waitFor([&] {
        server.ask("status");  // an ended child is collected once a pass
        return Sandbox::read(children).empty();
    }));
}

TEST_F(System, TakesTheLongestLineAndTellsTheLongestList)
{
    TestServer server;
    const std::string start = "tester submit \"", end = "\" \"\" \"d1\"";
    const long longest = UtSocket::MAX_LINE - (long)(start.size() + end.size());
    UtString line;
    for (const int more : { 1, 0 }) {
        EXPECT_EQ(-more, ZoProtocol::writeSubmission(
                             line, "tester", std::string(longest + more, 'x').c_str(), "", "d1"));
        EXPECT_EQ(more ? "" : "ok\n", server.request((const char*)line));
    }
    UtDArray<UtHandle<ZoJob>> jobs;
    EXPECT_EQ(0, ZoClient::list(server.connect(""), "tester", jobs, true));
    ASSERT_EQ(1, jobs.size());
    EXPECT_EQ(longest, jobs[0]->command.length());
}

TEST_F(System, SurvivesClientsThatBreakOffAndWhatItsCallerHasSet)
{
    ::signal(SIGCHLD, SIG_IGN);
    for (const int fd : { 0, 1, 2 })
        ASSERT_EQ(0, ::fcntl(fd, F_SETFD, FD_CLOEXEC));
    TestServer server;
    ::signal(SIGCHLD, SIG_DFL);
    const std::string line = "tester submit \"x\" \"\" d1";
    for (const std::string& request :
         { line, line + std::string("\0\n", 2), line + std::string(2 << 20, ' ') + "\n" })
        EXPECT_EQ("0\n", server.request(request) + server.ask("list"));
    ::kill(server.pid(), SIGSTOP);  // the next client has gone before the server sees it
    UtSocket::close(server.connect("tester list\n"));
    ::kill(server.pid(), SIGCONT);
    EXPECT_EQ("0\n", server.ask("list"));
    EXPECT_EQ(std::string::npos, server.log().find("refused"));
    const std::string process = "/proc/" + std::to_string(server.pid());
    const std::string status = Sandbox::read(process + "/status");
    for (const char* fd : { "/fd/0", "/fd/1", "/fd/2" })
        EXPECT_EQ("/dev/null", fs::read_symlink(process + fd));
    EXPECT_TRUE(std::regex_search(status, std::regex("SigIgn:\\s\\w{11}0\\w{4}\n"))) << "SIGCHLD";
    const struct rlimit none = {};
    ASSERT_EQ(0, ::prlimit(server.pid(), RLIMIT_FSIZE, &none, nullptr));
    EXPECT_EQ("ok\nok\n", server.ask("submit \"true\" \"\" \"\"\nquit"));
}

TEST_F(System, TheLauncherSaysWhatIsWrong)
{
    TestServer server;
    const std::string port = std::to_string(server.port),
                      taken = "Kelvo job server: can't open socket on port " + port + "\n";
    ::setenv("JOB_PORT", port.c_str(), 1);
    UtServerSocket last(1);
    (void)last.openSocket(65535, -1, 0);  // unless somebody else has it
    const std::string cases[][3] = { { "-jobserver", "1", taken },
                                     { "-jobserver " + port, "1", taken },
                                     { "-jobserver 65536", "2", "start: \"65536\" is no port" },
                                     { "-jobserver 65535", "1", "Kelvo job server: can't" },
                                     { "-jobserver 0", "2", "start: \"0\" is no port" },
                                     { "-jobserver 9x", "2", "start: \"9x\" is no port" },
                                     { "", "2", "usage: start -jobserver" },
                                     { "--help 2>&-", "0", "usage: start -jobserver" },
                                     { "--version 2>&-", "0", "version_tag " },
                                     { R"(--version | awk '{ k = k " " $1; $1 = ""
                                                             n += length(v[NR] = substr($0, 2)) > 0 }
                                      END { V = v[14] "." v[15] "." v[16]; print n, v[1] == "v" V,
                                            v[4], v[9] == "libschedule.so." V, v[12], v[13] k }')",
                                       "0",
                                       "16 1 Linux 1 Kelvo Kelvo Schedule version_tag comment "
                                       "compiler target_os build_cfg build_user build_ip "
                                       "build_time filename path size vendor product "
                                       "version_major version_minor version_patch\n" },
                                     { "--version >/dev/full; echo $?", "0", "1\n" } };
    for (const auto& [arguments, status, text] : cases) {
        const std::string command = KELVO_BUILD_DIR "/bin/start " + arguments + " > said 2>&1";
        EXPECT_EQ(status, std::to_string(WEXITSTATUS(std::system(command.c_str())))) << arguments;
        EXPECT_EQ(0U, Sandbox::read("said").find(text)) << arguments;
    }
    UtServerSocket usual(1);
    (void)usual.openSocket(Sandbox::SCHEDULE_PORT, -1, 0);
    EXPECT_EQ(256, std::system("JOB_PORT=0 " KELVO_BUILD_DIR "/bin/start -jobserver 2> said"));
    EXPECT_EQ(0U,
              Sandbox::read("said").find("start: JOB_PORT is \"0\", which is no port: using 7160"
                                         "\nKelvo job server: can't"));
}

TEST_F(System, ApplicationStartsAServerOfItsOwnEveryElevenSecondsAtMost)
{
    Sandbox::write("app/bin/start", "#!/bin/sh\n[ -e starts ] || sleep 2\n"
                                    "echo $$ \"$*\" >> starts\n"
                                    "exec " KELVO_BUILD_DIR "/bin/start \"$@\"");
    fs::permissions("app/bin/start", fs::perms::owner_all);
    int output[2];
    ASSERT_EQ(0, ::pipe(output));
    EXPECT_EQ(0, begin([] {
                     EXPECT_EQ(-1, ZoScheduleOpen(nullptr, "app", "", nullptr)) << "starts none";
                 })->end());
    const auto application = begin([&] {
        ::dup2(output[1], STDOUT_FILENO);
        ::signal(SIGTERM, SIG_IGN);
        EXPECT_EQ(-1, open("localhost")) << "only node1 is this machine";
        const long before = ProcessTable::descriptors(::getpid());  // names have been looked up
        theSecondsPassed += 8;
        EXPECT_EQ(-1, open("node1")) << "too early";
        theSecondsPassed += 3;
        int fd = open("node1");
        EXPECT_EQ(0, ZoScheduleJobSubmit(fd, "echo 'a' | cat", "b c", nullptr));
        quit(Sandbox::SCHEDULE_PORT);
        siginfo_t server = {};
        EXPECT_EQ(0, ::waitid(P_ALL, 0, &server, WEXITED | WNOWAIT));
        EXPECT_EQ(-1, open()) << "too early";
        theSecondsPassed += 11;
        fd = open();
        EXPECT_NE(0, ::kill(server.si_pid, 0)) << "the first server is left as a zombie";
        UtDArray<UtHandle<ZoJob>> jobs;
        ASSERT_EQ(1, ZoScheduleJobList(fd, jobs));
        EXPECT_EQ(-1, ZoScheduleJobList(-1, jobs));
        ASSERT_EQ(1, jobs.size()) << "untouched";
        EXPECT_EQ(before + 1, ProcessTable::descriptors(::getpid())) << "but for the submission's";
        EXPECT_STREQ("echo 'a' | cat", jobs[0]->command);
        EXPECT_EQ(0, ZoScheduleJobRun(open(), jobs[0]));
        EXPECT_EQ(-1, ZoScheduleJobRun(open(), nullptr));
        EXPECT_EQ(0, ZoScheduleJobKill(open()));
        EXPECT_EQ(0, ZoScheduleJobRemove(open(), jobs[0]));
        EXPECT_EQ(-1, ZoScheduleJobRemove(open(), nullptr));
        quit(Sandbox::SCHEDULE_PORT);
        theSecondsPassed -= 3600;
        EXPECT_LE(0, open()) << "for a clock that went back it is not too early";
    });
    EXPECT_EQ(0, application->end());
    ::close(output[1]);
    struct pollfd wait = { output[0], POLLIN, 0 };
    ::poll(&wait, 1, 2000);
    EXPECT_EQ(POLLHUP, wait.revents) << "whoever reads the application's output waits on";
    const std::string starts = Sandbox::read("starts");
    std::smatch last;
    ASSERT_TRUE(std::regex_match(starts, last, std::regex("(?:(\\d+) -jobserver 7160\n){3}")))
        << starts;
    EXPECT_EQ(std::stoi(last[1]), ::getsid(std::stoi(last[1])));
    ::kill(std::stoi(last[1]), SIGTERM);
    EXPECT_TRUE(Sandbox::waitFor([] { return !Sandbox::isListening(Sandbox::SCHEDULE_PORT); }));
}

TEST_F(System, ApplicationRefusesAServerOfSomebodyElse)
{
    UtServerSocket server(1);
    ASSERT_EQ(0, server.openSocket(Sandbox::SCHEDULE_PORT, -1, 25));
    for (const char* text : { "error\n", "error", "waiting\n", "" }) {
        const bool isOurs = text[0] != 'e';
        const auto application = begin([&] { EXPECT_EQ(isOurs, open() >= 0); });
        const int probe = server.accept();
        UtString line;
        UtSocket::readLine(probe, line);
        EXPECT_STREQ("tester status", line);
        UtSocket::send(probe, "%s", text);
        UtSocket::close(probe);
        EXPECT_EQ(0, application->end());
        if (isOurs)
            UtSocket::close(server.accept());
    }
}

TEST_F(System, ApplicationTellsAStrangerNothingAndUsesAPortOfItsOwn)
{
    if (::geteuid() != 0)
        GTEST_SKIP() << "only root can have a second user id here";
    fs::create_symlink(KELVO_BUILD_DIR "/bin/start", "app/bin/start");
    UtServerSocket stranger(1);
    Sandbox::asStranger([&] { stranger.openSocket(Sandbox::SCHEDULE_PORT, -1, 25); });
    const std::string own = std::to_string(Sandbox::freePort());
    for (const std::string& wrong : { std::string("0"), std::string("65536"), own + "x" }) {
        ::setenv("JOB_PORT", wrong.c_str(), 1);
        EXPECT_EQ(0, begin([&] { EXPECT_EQ(-1, open()); })->end()) << "and does not even connect";
        const auto application = begin([&] { EXPECT_EQ(-1, open("localhost")); });
        int fd = -1;  // who accepts a connection is its owner
        Sandbox::asStranger([&] { fd = stranger.accept(); });
        char byte;
        EXPECT_EQ(0, ::recv(fd, &byte, 1, 0)) << "a byte of the application's";
        UtSocket::close(fd);
        EXPECT_EQ(0, application->end());
    }
    ::setenv("JOB_PORT", own.c_str(), 1);
    EXPECT_EQ(0, begin([&] {
                     EXPECT_EQ(0, ZoScheduleJobSubmit(open(), "true", nullptr, ""));
                     quit(std::stoi(own));
                 })->end());
}

TEST_F(System, ApplicationKnowsWhetherAListCameWhole)
{
    for (const char* text : { "okay\n", "ok", "ok\nok\n", "", "errors\n" })
        EXPECT_EQ(ZoProtocol::NO_REPLY, ZoProtocol::readReply(text)) << text;
    EXPECT_EQ(ZoProtocol::REPLY_ERROR, ZoProtocol::readReply("error"));
    const std::tuple<const char*, int, long> cases[] = {
        { "0\n", 0, 0 },
        { "1\n10 \"a\" \"\" d 1 0 0 0\nmore\n", 0, 1 },
        { "2\n10 \"a\" \"\" d 1 0 0 0\n10 \"b", -1, 1 },
        { "1\nno line of a server\n", -1, 0 },
        { "", -1, 0 },
        { "error\n", 1, 0 },
    };
    for (const auto& [reply, result, count] : cases) {
        int ends[2];
        ASSERT_EQ(0, ::socketpair(AF_UNIX, SOCK_STREAM, 0, ends));
        UtSocket::send(ends[1], "%s", reply);
        ::shutdown(ends[1], SHUT_WR);
        UtDArray<UtHandle<ZoJob>> jobs;
        jobs.append(new ZoJob);
        EXPECT_EQ(result, ZoClient::list(ends[0], "tester", jobs, true)) << reply;
        EXPECT_EQ(count, jobs.size()) << reply;
        UtSocket::close(ends[0]);
        UtSocket::close(ends[1]);
    }
}

TEST_F(System, ApplicationSendsNothingThatARequestLineCannotCarry)
{
    int ends[2];
    ASSERT_EQ(0, ::socketpair(AF_UNIX, SOCK_STREAM, 0, ends));
    UtSocket::send(ends[1], "ok\n");
    ::shutdown(ends[1], SHUT_WR);
    EXPECT_EQ(-1, ZoScheduleJobSubmit(ends[0], nullptr, "", ""));
    const std::string texts[] = { "say \"hi\"", "a\nb", "\r", std::string(1 << 20, 'x') };
    for (const std::string& text : texts) {
        EXPECT_EQ(-1, ZoScheduleJobSubmit(ends[0], text.c_str(), "", ""));
        EXPECT_EQ(-1, ZoScheduleJobSubmit(ends[0], "a", text.c_str(), ""));
        EXPECT_EQ(-1, ZoScheduleJobSubmit(ends[0], "a", "", text.c_str()));
    }
    for (const char* space : { " ", "\t", "\v", "\f" }) {
        const UtHandle<ZoJob> job = new ZoJob;
        job->directory = ("/my" + std::string(space) + "dir").c_str();
        EXPECT_EQ(-1, ZoScheduleJobSubmit(ends[0], "a", "", job->directory));
        EXPECT_EQ(-1, ZoScheduleJobRemove(ends[0], job));
    }
    char sent;
    EXPECT_EQ(-1, ::recv(ends[1], &sent, 1, MSG_DONTWAIT));
}
