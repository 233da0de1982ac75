// What becomes of jobs: who waits for them, what ends them, what is removed and what is kept.

#include "tests/zojob/ZojobFixture.h"
#include "utlib/UtServerSocket.h"

#include <csignal>
#include <sys/wait.h>
#include <unistd.h>

// This replaces the C library's in the server, which is a fork of the test: a job costs two pauses.
extern "C" __attribute__((visibility("default"))) unsigned sleep(unsigned)
{
    ::usleep(20000);
    return 0;
}

TEST_F(Zojob, WaitEndsWithTheStatusAndLeavesTheJobAlone)
{
    const std::string first = Call({ "submit", "sleep 0.5; exit 3" }).line();
    Call early({ "wait", first });
    EXPECT_EQ(0, Call({ "run", first }).end());
    EXPECT_EQ(3, early.end()) << early.err();

    Call asking({ "submit", "-rw", "sleep 60" });
    ASSERT_TRUE(Sandbox::waitFor([] { return isRunning("last"); }));
    ::kill(asking.pid, SIGINT);
    EXPECT_EQ(130, asking.end());
    const std::string second = asking.line();
    EXPECT_EQ(124, Call({ "wait", "--timeout", "0.3", second }).end());
    Call waiting({ "wait", first, second });
    EXPECT_EQ(1, Call({ "kill", first }).end()) << "another job is running";
    expectRefusal({ "run" }, "is running, and only one runs at a time");
    EXPECT_EQ(1, Call({ "remove", "--force", second }).end()) << "it would go on unseen";
    EXPECT_EQ(0, Call({ "kill", second }).end());
    EXPECT_EQ(143, waiting.end()) << waiting.err();
    EXPECT_EQ(1, Call({ "kill" }).end());
    Call({ "submit", "-L", "stays", "rm -r ~/.local/state/zojob/job-4" });
    Call removal({ "remove", "--finished" });
    EXPECT_EQ(0, removal.end());
    EXPECT_TRUE(holds(removal.err(), "1 job that has failed stays"));
    ASSERT_EQ(2u, jobs().size()) << "what has failed stays";
    EXPECT_EQ("failed", jobs()[0]["state"]);
    EXPECT_EQ(0, Call({ "remove", "--failed" }).end());
    ASSERT_EQ(1u, jobs().size());
    EXPECT_EQ("stays", jobs()[0]["description"]);
    Call({ "submit", "true" });
    EXPECT_EQ(0, Call({ "run" }).end());
    EXPECT_TRUE(server->waitForStatus("done")) << "the next job has gone meanwhile";
    zojob({ "submit", "true" });
    zojob({ "rm", "--all" });
    EXPECT_EQ(1u, jobs().size()) << "what waits stays";
    zojob({ "--host", "localhost", "submit", "-rw", "exit 7" }, 7);
    EXPECT_EQ(jobs(), nlohmann::json::parse(zojob({ "--host", "localhost", "list", "--json" })));
    EXPECT_EQ("localhost",
              nlohmann::json::parse(zojob({ "--host", "localhost", "status", "--json" }))["host"]);
}

TEST_F(Zojob, WhoWaitsHearsOfARemovalAndMayLeave)
{
    const std::string name = Call({ "submit", "true" }).line();
    Call waiting({ "wait", name }), following({ "log", "-f", name });
    EXPECT_FALSE(waiting.hasEnded(2.5) || following.hasEnded());
    EXPECT_EQ(0, Call({ "remove", name }).end());
    for (Call* call : { &waiting, &following }) {
        EXPECT_EQ(1, call->end());
        EXPECT_TRUE(holds(call->err(), "was removed before it ended")) << call->err();
        EXPECT_TRUE(holds(call->err(), "until 'zojob run' starts them")) << call->err();
    }
}

TEST_F(Zojob, WaitOutlivesTheServerAndRunsTheQueueAgain)
{
    const std::string named = Call({ "submit", "sleep 0.3" }).line();
    EXPECT_EQ(0, Call({ "run", named }).end());
    Call behind("exec \"$0\" \"$@\" >name",  // a named run does not go on to it
                { "submit", "-rwL", "b", "sleep 1; exit 6" });
    ASSERT_TRUE(
        Sandbox::waitFor([&] { return job("last")["description"] == "b" && isRunning("last"); }));
    EXPECT_EQ("2\n", Sandbox::read("name"));
    Call quit({ "quit" });
    EXPECT_EQ(0, quit.end());
    EXPECT_TRUE(holds(quit.err(), "job 2 goes on"));
    EXPECT_EQ(6, behind.end()) << behind.err();
    EXPECT_FALSE(Sandbox::isListening(Sandbox::SCHEDULE_PORT)) << "the job's own record was enough";
}

TEST_F(Zojob, EndOfAJobShowsAtOnceWithoutTheServer)
{
    const std::string id = Call({ "submit", "-r", "sleep 0.5; exit 3" }).line();
    Call waiting({ "wait", id });
    Call listing("exec \"$0\" \"$@\" >listing", { "list", "--watch=60" });
    const auto lists = [](const char* text) { return holds(Sandbox::read("listing"), text); };
    ASSERT_TRUE(Sandbox::waitFor([&] { return lists("running"); }));
    ::kill(server->pid(), SIGSTOP);
    ASSERT_TRUE(
        Sandbox::waitFor([] { return Sandbox::read(Sandbox::queueFile()).find("12:") == 0; }));
    EXPECT_TRUE(waiting.hasEnded(0.3));
    EXPECT_TRUE(Sandbox::waitFor([&] { return lists("failed  3"); }, 0.3));
    EXPECT_EQ(3, waiting.end()) << waiting.err();
    EXPECT_TRUE(holds(Call({ "list" }).out(), "failed  3"));
    ::kill(listing.pid, SIGTERM);
    ::kill(server->pid(), SIGCONT);
}

TEST_F(Zojob, KillLeavesNothingAndTheRestWaits)
{
    Call({ "submit", "--retry=99", "--then", "echo $ZOJOB_STATUS >told",
           "trap '' TERM; setsid sh -c 'trap \"\" TERM; sleep 77' & sleep 78; sleep 79" });
    Call({ "submit", "--then", "echo $ZOJOB_ID >>ends", "--lines", "-" }, "true\ntrue\n");
    EXPECT_EQ(0, Call({ "run", "1" }).end());
    ASSERT_TRUE(Sandbox::waitFor([] { return std::system("pgrep -fx 'sleep 7.' >pids") == 0; }));
    EXPECT_EQ(0, Call({ "submit", "-rq", "true" }).end());
    Call kill({ "kill", "--grace", "0.5", "1-2" });
    EXPECT_EQ(0, kill.end());
    EXPECT_TRUE(holds(kill.err(), "by force")) << kill.err();
    EXPECT_TRUE(holds(kill.err(), "2 jobs wait")) << kill.err();
    EXPECT_TRUE(Sandbox::waitFor([] { return Sandbox::read("told") == "143\n"; }));
    EXPECT_NE(0, std::system("pgrep -fx 'sleep 7.' >pids"));
    EXPECT_EQ("waiting", job("4")["state"]) << "whoever kills stops the queue";
    EXPECT_FALSE(fs::exists(directory("4") + "/run")) << "the keeper goes on";
    EXPECT_EQ(0, Call({ "run" }).end());
    EXPECT_EQ(143, Call({ "wait", "2-4" }).end()) << "the cancelled one";
    EXPECT_TRUE(holds(Call({ "log", "2" }).out(), "cancelled before it ran"));
    EXPECT_EQ("cancelled", job("2")["state"]);
    EXPECT_EQ("3\n", Sandbox::read("ends"));

    EXPECT_TRUE(server->waitForStatus("done"));
    const std::string own = KELVO_BUILD_DIR "/bin/zojob ";
    Call({ "submit", own + "stop; " + own + "submit -r true; trap '' TERM; >up; sleep 3" });
    EXPECT_EQ(0, Call({ "run", "5" }).end());
    ASSERT_TRUE(Sandbox::waitFor([] { return fs::exists("up"); }));
    Call onwards({ "kill", "--continue" });
    EXPECT_EQ(0, onwards.end()) << onwards.err();
    EXPECT_TRUE(holds(onwards.err(), "SIGKILL in 9 s")) << onwards.err();
    EXPECT_FALSE(holds(onwards.err(), "by force")) << "a server that the job itself has started";
    EXPECT_EQ(0, Call({ "wait", "6" }).end());
    EXPECT_TRUE(server->waitForStatus("done"));
    Call({ "submit", "true" });
    EXPECT_EQ(0, Call({ "kill", "7" }).end());
    EXPECT_EQ(1, Call({ "run", "7" }).end()) << "it would end at once";
    EXPECT_EQ("7\n", zojob({ "again", "-r", "7" }));
    EXPECT_EQ(0, Call({ "wait", "7" }).end());
    EXPECT_TRUE(server->waitForStatus("done"));
    EXPECT_TRUE(holds(zojob({ "status" }), "server        running\n"));
    Call({ "submit", "-q", "--then", "sleep 77", "exit 3" });
    EXPECT_EQ(0, Call({ "run", "8" }).end());
    ASSERT_TRUE(Sandbox::waitFor([] { return std::system("pgrep -fx 'sleep 7.' >pids") == 0; }));
    EXPECT_EQ(0, Call({ "kill" }).end());
    EXPECT_EQ(3, Call({ "wait", "8" }).end()) << "the command itself had ended";
}

TEST_F(Zojob, RunHoldsItsWordAndNobodyWaitsForOneself)
{
    Call({ "submit", "--timeout", "1", KELVO_BUILD_DIR "/bin/zojob submit -r true; sleep 9" });
    EXPECT_EQ(0, Call({ "run", "1" }).end());  // alone: the server goes on to nothing
    ASSERT_TRUE(Sandbox::waitFor([] { return jobs().size() == 2; }));
    for (const char* const label : { "a", "b" }) {
        Call behind({ "submit", "-rqL", label, "true" });
        EXPECT_EQ("", behind.err() + behind.out());
    }
    EXPECT_EQ(0, Call({ "wait", "2-4" }).end()) << "the first, too, keeps what it has promised";
    EXPECT_TRUE(Sandbox::waitFor([] { return std::system("pgrep -x zojob >pids") != 0; }))
        << "a process is left behind";
    zojob({ "submit", "-rw",
            "PATH=" KELVO_BUILD_DIR "/bin:$PATH; zojob wait $ZOJOB_ID; "
            "zojob log -f last; zojob submit -w true; zojob submit -q :; zojob wait last; :" });
    const std::string log = Call({ "log", "5" }).out();
    for (const char* part : { "for its own end", "nothing was submitted", "behind job 5" })
        EXPECT_TRUE(holds(log, part)) << log;
    Call many({ "submit", "--lines", "-" }, "echo 1\r\n\n # no\necho 2");
    EXPECT_EQ("7\n8\n", many.out());
    EXPECT_EQ("2\n0", runScript("8"));
    EXPECT_EQ("echo 1", job("7")["description"]);
}

TEST_F(Zojob, RemoveDeletesNothingOfTheUsers)
{
    for (const char* place : { "mine", "theirs", "forged" })
        fs::create_directory(place);
    const std::string own = Call({ "submit", "-C", "mine", "true" }).line();
    const std::string place = directory(own);
    fs::copy_file(place + "/job", "forged/job");  // does not make a directory zojob's
    for (const std::string name : { "theirs", "forged" }) {
        const std::string command =
            name == "forged" ? "sh job || [ -s exit ] || echo $? >exit" : "true";
        server->request("tester submit \"" + command + "\" \"" + name + "\" \"" +
                        Sandbox::path(name) + "\"\n");
        expectRefusal({ "remove", "last" }, Sandbox::path(name));
        expectRefusal({ "again", "last" }, "another application");
        expectRefusal({ "submit", "--after", "last", "true" }, "another application");
        EXPECT_TRUE(fs::exists(name));
    }
    EXPECT_EQ(1, Call({ "remove", own, "nonsense" }).end()) << "a wrong name, and nothing happens";
    EXPECT_TRUE(fs::exists(place));
    expectRefusal({ "remove", own, "last" }, "forged");
    EXPECT_FALSE(fs::exists(place));
    EXPECT_TRUE(fs::exists("mine"));
    EXPECT_EQ(0, Call({ "remove", "--force", "last" }).end());
    EXPECT_FALSE(fs::exists("forged"));
}

TEST_F(Zojob, StopEndsThePromiseToRunWhatComesLater)
{
    zojob({ "submit", "until [ -e end ]; do sleep 0.05; done" });
    zojob({ "run", "1" });
    zojob({ "submit", "-rq", "true" });
    EXPECT_TRUE(fs::exists(directory("2") + "/run"));
    EXPECT_TRUE(holds(Call({ "stop" }).err(), "job 1 goes on to its end; those behind it wait"));
    EXPECT_FALSE(fs::exists(directory("2") + "/run"));
    Sandbox::write("end", "");
    zojob({ "wait", "1" });
    expectRefusal({ "run", "1" }, "only a waiting job can be run");
    expectRefusal({ "kill", "1" }, "is done, not running");
    EXPECT_TRUE(holds(Call({ "kill", "2" }).err(), "cancelled job 2; 'zojob again 2'"));
    expectRefusal({ "kill", "2" }, "is cancelled, not running");
}

TEST_F(Zojob, KillSparesAProcessThatHasGotTheJobsId)
{
    const Process another({ "sleep", "9999" });
    fs::create_directory("place");
    Sandbox::write("place/.1", "");
    Sandbox::write(Sandbox::queueFile(), "11:true::" + Sandbox::path("place") +
                                             ":1:" + std::to_string(::time(nullptr) - 60) +
                                             ":0:0:" + std::to_string(another.pid) + "\n");
    expectRefusal({ "kill" }, "belongs to another process");
    EXPECT_EQ(0, ::waitpid(another.pid, nullptr, WNOHANG)) << "the innocent has ended";
    ::kill(another.pid, SIGKILL);
}

TEST_F(Zojob, WhatEndsWhileNothingCanBeWrittenIsKnownAndIsRecordedLater)
{
    Call wait({ "submit", "-rw", "until [ -e end ]; do sleep 0.05; done; exit 7" });
    ASSERT_TRUE(Sandbox::waitFor([] { return Call({ "status" }).end() == 0 && isRunning("1"); }));
    const fs::path place = directory("1");
    ASSERT_TRUE(Sandbox::waitFor([&] { return fs::exists(place / ".exit"); }));
    const fs::path closed[] = { place / ".exit", place, Sandbox::queueFile() };
    for (const fs::path& path : closed)
        fs::permissions(path, fs::perms::owner_write, fs::perm_options::remove);
    Sandbox::write("end", "");
    EXPECT_EQ(7, wait.end()) << wait.err();
    for (const Words& words : { Words{ "run" }, { "submit", "-q", "true" } })
        expectRefusal(words, "cannot be written: Permission denied");
    EXPECT_EQ("failed", job("1")["state"]);
    EXPECT_TRUE(holds(zojob({ "list" }), "no further job starts: "));
    EXPECT_TRUE(holds(zojob({ "status" }), "no further job starts: "));
    EXPECT_TRUE(nlohmann::json::parse(zojob({ "status", "--json" }))["trouble"].is_string());
    EXPECT_EQ(true, job("1")["unsaved"]);
    EXPECT_FALSE(fs::exists(place / "../job-2"));
    for (const fs::path& path : closed)
        fs::permissions(path, fs::perms::owner_write, fs::perm_options::add);
    EXPECT_TRUE(Sandbox::waitFor([] { return job("1")["exit"] == 7; }));
    EXPECT_TRUE(Sandbox::waitFor([] { return job("1")["unsaved"] == false; }));
    if (Sandbox::smallDisk().empty())
        return;
    ::setenv("XDG_STATE_HOME", Sandbox::smallDisk().c_str(), 1);
    Call full({ "submit", "-rw", "cat /dev/zero; exit 5" });
    EXPECT_EQ(5, full.end());
    EXPECT_TRUE(holds(full.err(), "the disk was full when job")) << full.err();
    EXPECT_EQ(true, job("last")["diskFull"]);
}

TEST(ZojobAlone, StartsAServerOnlyWhenItHasTo)
{
    for (const char* const list :
         { "JOB_PORT=1x \"$0\" list", "JOB_PORT=0 \"$0\" list", "JOB_PORT=65536 \"$0\" list" })
        EXPECT_TRUE(holds(Call(list, {}).err(), "no port: using 7160")) << list;
    EXPECT_EQ("", Call("JOB_PORT= \"$0\" list", {}).err()) << "it says nothing";
    const std::pair<Words, int> cases[] = {
        { { "status" }, 0 },
        { { "list", "--watch=nan" }, 2 },
        { { "remove" }, 2 },
        { { "submit", "-C", "/no/such/place", "true" }, 1 },
        { { "quit" }, 3 },
        { { "run", "--root", "/no/such/place" }, 3 },
        { { "list" }, 0 },
        { { "list", "--host", "localhost" }, 3 },
        { { "submit", "--host", "localhost", "true" }, 3 },
    };
    for (const auto& [words, code] : cases) {
        Call call(words);
        EXPECT_EQ(code, call.end()) << words[0] << ": " << call.err();
        EXPECT_EQ(code == 0, call.err().empty());
        ASSERT_FALSE(Sandbox::isListening(Sandbox::SCHEDULE_PORT)) << words[0];
    }
    EXPECT_TRUE(!fs::exists(Sandbox::home() + "/.local")) << "nothing was made for a refused job";
    EXPECT_EQ("no jobs\n", zojob({ "list" }));
    expectRefusal({ "show", "failed" }, "no job has failed");
    expectRefusal({ "--root", "late", "window" }, "is not installed");
    fs::create_directories("late/bin");  // its server listens when the launcher has gone
    Sandbox::write("late/bin/start",
                   "#!/bin/sh\n(sleep 0.3; exec " KELVO_BUILD_DIR "/bin/start \"$@\") &\nexit 1\n");
    fs::permissions("late/bin/start", fs::perms::owner_all);
    ::setenv("JOB_PORT", std::to_string(Sandbox::freePort()).c_str(), 1);
    EXPECT_EQ(1, Call({ "run", "--host", "node1", "--root", "late" }).end()) << "no job waits";
    EXPECT_EQ(0, Call({ "quit" }).end()) << "no server was started";
    ::unsetenv("JOB_PORT");
    UtServerSocket silent(1);
    EXPECT_EQ(0, silent.openSocket(Sandbox::SCHEDULE_PORT, -1, 0));
    Call list("\"$0\" list --host localhost 2> said", {}), status({ "status", "--json" });
    EXPECT_TRUE(status.hasEnded(30)) << "who only looks does not wait as long as others";
    EXPECT_EQ(3, status.end());
    EXPECT_EQ("silent", nlohmann::json::parse(status.out())["server"]);
    EXPECT_TRUE(holds(status.err(), "has not answered yet")) << status.err();
    const auto isSaid = [] { return holds(Sandbox::read("said"), "has not answered yet"); };
    EXPECT_TRUE(Sandbox::waitFor(isSaid)) << Sandbox::read("said");
    ::close(std::exchange(silent.descriptor, -1));
    EXPECT_EQ(3, list.end());
}
