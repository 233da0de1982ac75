// The command at a prompt: what comes out of a job, what it ends with, what it refuses and keeps.

#include "tests/support/Sandbox.h"

#include <csignal>
#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
#include <nlohmann/json.hpp>
#include <random>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

namespace fs = std::filesystem;

using Words = std::vector<std::string>;

/// One call of zojob, running beside the test.
class Call
{
public:
    /// `change` runs in the new process, before the program; descriptor 1 is a file then.
    explicit Call(Words words, const std::string& input = "", void (*change)() = nullptr)
        : place(Sandbox::path("call" + std::to_string(++count)))
    {
        Sandbox::write(place + ".in", input);
        words.insert(words.begin(), "zojob");
        std::vector<char*> argv;
        for (std::string& word : words)
            argv.push_back(&word[0]);
        argv.push_back(nullptr);
        pid = ::fork();
        if (pid != 0)
            return;
        for (const auto& [name, fd] : { std::pair(".in", 0), { ".out", 1 }, { ".err", 2 } })
            ::dup2(::open((place + name).c_str(), fd ? O_WRONLY | O_CREAT : O_RDONLY, 0600), fd);
        if (change)
            change();
        ::execv(KELVO_BUILD_DIR "/bin/zojob", argv.data());
        ::_exit(99);
    }
    ~Call() { end(); }

    /// The exit status, once it has ended; -1 for a signal.
    int end()
    {
        if (pid > 0 && ::waitpid(pid, &status, 0) == pid)
            pid = -1;
        return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    }
    std::string out() { return end(), Sandbox::read(place + ".out"); }
    std::string err() { return end(), Sandbox::read(place + ".err"); }
    /// The one line that it prints.
    std::string line() { return out().substr(0, out().find('\n')); }

    pid_t pid;

private:
    static int count;
    std::string place;
    int status = 0;
};

int Call::count = 0;

static bool holds(const std::string& text, const std::string& part)
{
    return text.find(part) != std::string::npos;
}

/// Whether the call has come as far as to wait: it catches Ctrl-C then.
static bool isWatching(const Call& call)
{
    const std::string status = Sandbox::read("/proc/" + std::to_string(call.pid) + "/status");
    unsigned long long caught = 0;
    ::sscanf(&status[std::min(status.find("SigCgt:"), status.size())], "SigCgt: %llx", &caught);
    return caught & 1ull << (SIGINT - 1);
}

/// A test with a server of its own on the port that every client connects to.
class Zojob : public ::testing::Test
{
protected:
    std::unique_ptr<TestServer> server;
    const std::string state = Sandbox::home() + "/.local/state/zojob";

    void SetUp() override
    {
        ASSERT_TRUE(Sandbox::schedulePortIsFree());
        server = std::make_unique<TestServer>(Sandbox::SCHEDULE_PORT);
    }

    void TearDown() override { Call({ "quit" }); }  // also one that zojob started meanwhile

    static nlohmann::json queue()
    {
        return nlohmann::json::parse(Call({ "list", "--json" }).out());
    }
    static nlohmann::json job(const std::string& name)
    {
        return nlohmann::json::parse(Call({ "show", "--json", name }).out());
    }
    static std::string directory(const std::string& name) { return job(name)["directory"]; }
    static bool isRunning(const std::string& name) { return job(name)["state"] == "running"; }

    /// What a job's script prints when it is run as the server runs it, and its status.
    static std::string runScript(const std::string& name)
    {
        const std::string place = directory(name);
        const int status = std::system(("cd " + place + " && sh job >out 2>&1").c_str());
        return Sandbox::read(place + "/out") + std::to_string(WEXITSTATUS(status));
    }
};

TEST_F(Zojob, ArgumentsComeOutByteForByte)
{
    std::string all;
    for (int byte = 1; byte < 256; ++byte)
        all += (char)byte;
    ::setenv("HOSTILE", all.c_str(), 1);
    ::setenv("IFS", "x", 1);
    ::setenv("UID", "none", 1);
    Call real({ "submit", "-r", "-w", "printf %s \"$HOSTILE\" a\\ b 'c \"d' $(echo x y)" });
    EXPECT_EQ(0, real.end()) << real.err();
    EXPECT_EQ(all + "a bc \"dxy", Call({ "log" }).out());
    const Words nasty = { "",     "a b",      "\"",    "'", "\\",    "\n", "$HOME",
                          "`id`", "\xc3\xa9", "*",     "~", "-n",    "--", "[a]",
                          "\\\n", "%s",       "\r",    "#", "\x81'", "!",  "&&",
                          "${x}", "\xff",     "--run", "-", "a\tb",  ";" };
    std::mt19937 random(7);  // the same words in every run
    for (int round = 0; round < 50; ++round) {
        Words words = { "submit", "printf", "%s\\0" };
        std::string expected;
        for (unsigned n = 1 + random() % 9; n > 0; --n) {
            std::string word;
            for (unsigned k = random() % 4; k > 0; --k)
                word += nasty[random() % nasty.size()];
            words.push_back(round == 0 ? nasty[n] : word);
            expected += words.back() + '\0';
        }
        EXPECT_EQ(expected + "0", runScript(Call(words).line())) << "round " << round;
    }
    EXPECT_EQ("a \"b\" c\n0", runScript(Call({ "submit", "-" }, "echo 'a \"b\" c'").line()));
    const char* const script = "#!/usr/bin/env sed -n $p\nlast line\n";
    EXPECT_TRUE(holds(runScript(Call({ "submit", "-" }, script).line()), "sed"));
}

TEST_F(Zojob, JobRunsWhereAndAsItWasSubmitted)
{
    ::setenv("OF_THE_CALLER", "here", 1);
    fs::create_directory("a 'b");
    ::umask(027);
    const std::string id = Call({ "submit", "-C", "a 'b", "pwd; umask; env" }).line();
    ::unsetenv("OF_THE_CALLER");
    ::setenv("OF_ANOTHER", "elsewhere", 1);
    const std::string output = runScript(id);
    EXPECT_EQ(0u, output.find(Sandbox::path("a 'b") + "\n0027\n")) << output;
    EXPECT_TRUE(holds(output, "OF_THE_CALLER=here\n"));
    EXPECT_FALSE(holds(output, "OF_ANOTHER")) << "the server's environment is not the job's";
    fs::remove("a 'b");
    const std::string sorry = runScript(id);
    EXPECT_TRUE(holds(sorry, "the command was not run\n125")) << sorry;
    EXPECT_FALSE(holds(sorry, "0027"));
}

TEST_F(Zojob, WaitEndsWithTheStatusAndLeavesTheJobAlone)
{
    const std::string first = Call({ "submit", "echo one; sleep 0.5; echo two; exit 3" }).line();
    Call early({ "wait", first });
    Call follow({ "log", "-f", first });
    EXPECT_EQ(0, Call({ "run", first }).end());
    EXPECT_EQ(3, early.end()) << early.err();
    EXPECT_EQ("one\ntwo\n", follow.out());
    EXPECT_EQ("two\n", Call({ "log", "-n", "1" }).out());

    const std::string second = Call({ "submit", "-r", "sleep 60" }).line();
    EXPECT_EQ(1, Call({ "run", second }).end());
    EXPECT_EQ(124, Call({ "wait", "--timeout", "0.3", second }).end());
    Call interrupted({ "wait", second }), waiting({ "wait", first, second });
    ASSERT_TRUE(Sandbox::waitFor([&] { return isWatching(interrupted); }));
    ::kill(interrupted.pid, SIGINT);
    EXPECT_EQ(130, interrupted.end());
    EXPECT_TRUE(holds(interrupted.err(), "goes on")) << interrupted.err();
    EXPECT_TRUE(isRunning(second));
    EXPECT_EQ(1, Call({ "kill", first }).end()) << "another job is running";
    EXPECT_EQ(0, Call({ "kill", second }).end());
    EXPECT_EQ(143, waiting.end()) << waiting.err();
    EXPECT_EQ(143, job(second)["exit"]);
}

TEST_F(Zojob, WaitOutlivesTheServerAndRunsTheQueueAgain)
{
    const std::string named = Call({ "submit", "sleep 0.3" }).line();
    EXPECT_EQ(0, Call({ "run", named }).end());
    Call behind({ "submit", "-r", "-w", "sleep 1; exit 6" });  // a named run does not go on to it
    ASSERT_TRUE(Sandbox::waitFor([&] { return queue().size() == 2 && isRunning("last"); }));
    EXPECT_EQ(0, Call({ "quit" }).end());
    EXPECT_EQ(6, behind.end()) << behind.err();
    EXPECT_FALSE(Sandbox::isListening(Sandbox::SCHEDULE_PORT)) << "the job's own record was enough";

    const std::string never = Call({ "submit", "true" }).line();
    Call stuck({ "wait", "--timeout", "2", never });
    EXPECT_EQ(124, stuck.end());
    EXPECT_TRUE(holds(stuck.err(), "'zojob run'")) << stuck.err();
    Call follow({ "log", "-f", never });
    ASSERT_TRUE(Sandbox::waitFor([&] { return isWatching(follow); }));
    EXPECT_EQ(0, Call({ "remove", never }).end());
    EXPECT_EQ(1, follow.end());
    EXPECT_TRUE(holds(follow.err(), "removed")) << follow.err();
}

TEST_F(Zojob, RemoveDeletesNothingOfTheUsers)
{
    for (const char* place : { "mine", "theirs", "forged" })
        fs::create_directory(place);
    const std::string own = Call({ "submit", "-C", "mine", "true" }).line();
    const std::string place = directory(own);
    fs::copy_file(place + "/job", "forged/job");  // does not make a directory zojob's
    for (const std::string name : { "theirs", "forged" }) {
        const std::string command = name == "forged" ? "sh job; echo $? >exit" : "true";
        server->request("tester submit \"" + command + "\" \"" + name + "\" \"" +
                        Sandbox::path(name) + "\"\n");
        Call refused({ "remove", "last" });
        EXPECT_EQ(1, refused.end());
        EXPECT_TRUE(holds(refused.err(), Sandbox::path(name))) << refused.err();
        EXPECT_TRUE(fs::exists(name));
    }
    EXPECT_EQ(1, Call({ "remove", own, "nonsense" }).end()) << "a wrong name, and nothing happens";
    EXPECT_EQ(1, Call({ "remove", "--finished" }).end()) << "nothing has finished";
    EXPECT_EQ(3u, queue().size());
    EXPECT_EQ(0, Call({ "remove", own }).end());
    EXPECT_FALSE(fs::exists(place));
    EXPECT_TRUE(fs::exists("mine"));
    EXPECT_EQ(0, Call({ "remove", "--force", "last" }).end());
    EXPECT_FALSE(fs::exists("forged"));
    EXPECT_EQ(0, Call({ "submit", "-q", "-r", "sleep 60" }).end());
    ASSERT_TRUE(
        Sandbox::waitFor([] { return queue()[0]["state"] == "done" && isRunning("last"); }));
    EXPECT_EQ(1, Call({ "remove", "--force", "last" }).end()) << "its command would go on unseen";
    EXPECT_EQ(0, Call({ "kill" }).end());
}

TEST_F(Zojob, NamesStayThoseThatWereTold)
{
    std::string first, second;
    do {  // until both fall into one second
        first = Call({ "submit", "-L", "first", "true" }).line();
        second = Call({ "submit", "-L", "second", "true" }).line();
    } while (!holds(second, ":"));
    EXPECT_EQ(first, second.substr(0, second.find(':')));
    EXPECT_EQ("first", job(first)["description"]);
    EXPECT_EQ("second", job(second)["description"]);
    EXPECT_EQ("second", job("last")["description"]);
    Call ambiguous({ "show", first.substr(1) });
    EXPECT_EQ(1, ambiguous.end());
    EXPECT_TRUE(holds(ambiguous.err(), second)) << ambiguous.err();
    EXPECT_EQ(0, Call({ "remove", second }).end());
    EXPECT_EQ("first", job(first.substr(1))["description"]) << "an end that has become unique";
    EXPECT_EQ(1, Call({ "show", "" }).end());
    EXPECT_EQ(1, Call({ "show", "1" + first }).end());
}

TEST_F(Zojob, AnyDescriptionIsShownSafely)
{
    const std::string evil = "\x1b[31m\xff \xc2\x9b\xc3\xa9 \\";
    EXPECT_EQ(0, Call({ "submit", "-q", "-L", evil + " \"quoted\"\nand\tcut", "true" }).end());
    server->request("tester submit \"true\" \"" + evil + "\" \"\"\n");
    const auto jobs = queue();
    ASSERT_EQ(2u, jobs.size());
    EXPECT_TRUE(holds(jobs[0]["description"], "'quoted' and cut"));
    EXPECT_EQ("\x1b[31m\xef\xbf\xbd \xc2\x9b\xc3\xa9 \\", jobs[1]["description"]);
    EXPECT_TRUE(jobs[1]["exit"].is_null());
    for (const char* option : { "--wide", "--names", "--color=always" })
        EXPECT_FALSE(holds(Call({ "list", option }).out(), "\x1b[31m\xff")) << option;
    EXPECT_TRUE(holds(Call({ "list" }).out(), "  [31m?  \xc3\xa9 \\\n"));
    EXPECT_EQ(1, nlohmann::json::parse(Call({ "list", "--json", "-n", "1" }).out()).size());
    EXPECT_EQ(2, nlohmann::json::parse(Call({ "status", "--json" }).out())["counts"]["waiting"]);
    EXPECT_EQ(0, Call({ "remove", "--force", "last" }).end());  // its directory is in /var/tmp
}

TEST_F(Zojob, OutputThatNobodyTakes)
{
    for (int i = 0; i < 20; ++i)
        Call({ "submit", "-q", "-L", std::string(300, 'x'), "true" });
    const auto closedPipe = [] {
        int ends[2];
        ::dup2((::pipe(ends), ::close(ends[0]), ends[1]), 1);
    };
    for (const Words& words :
         { Words{ "list" }, { "list", "--json" }, { "submit", "-L", "x", "true" } }) {
        Call call(words, "", closedPipe);
        EXPECT_EQ(0, call.end()) << words[0];
        EXPECT_EQ("", call.err()) << words[0];
    }
    Call full({ "list" }, "", [] { ::dup2(::open("/dev/full", O_WRONLY), 1); });
    EXPECT_EQ(1, full.end());
    EXPECT_TRUE(holds(full.err(), "No space left")) << full.err();
}

TEST_F(Zojob, FullDiskLeavesNoHalfMadeJob)
{
    const auto isClean = [](const std::string& place) {
        return !fs::exists(place) || fs::is_empty(place);
    };
    const std::string script(300000, '#');
    Call limited({ "submit", "-" }, script + "\ntrue\n", [] {
        const struct rlimit limit = { 100000, 100000 };
        ::setrlimit(RLIMIT_FSIZE, &limit);
    });
    EXPECT_EQ(1, limited.end());
    EXPECT_TRUE(holds(limited.err(), "File too large")) << limited.err();
    EXPECT_TRUE(isClean(state));
    if (const std::string disk = Sandbox::smallDisk(); !disk.empty()) {
        ::setenv("XDG_STATE_HOME", disk.c_str(), 1);
        Sandbox::write(disk + "/fill", std::string(800000, 'x'));
        Call full({ "submit", "-" }, script + "\ntrue\n");
        EXPECT_EQ(1, full.end());
        EXPECT_TRUE(holds(full.err(), "No space left")) << full.err();
        EXPECT_TRUE(isClean(disk + "/zojob"));
        fs::remove(disk + "/fill");
    }
    ::setenv("XDG_STATE_HOME", "/proc/nothing", 1);
    EXPECT_EQ(1, Call({ "submit", "true" }).end());
    ::setenv("XDG_STATE_HOME", Sandbox::path("a blank").c_str(), 1);
    const std::string id = Call({ "submit", "true" }).line();
    EXPECT_EQ(0u, directory(id).find("/var/tmp/zojob-"));
    EXPECT_EQ(1u, queue().size());
    EXPECT_EQ(0, Call({ "remove", id }).end());
}

TEST(ZojobAlone, StartsAServerOnlyWhenItHasTo)
{
    ASSERT_TRUE(Sandbox::schedulePortIsFree());
    const struct {
        Words words;
        int code;
    } cases[] = {
        { { "status" }, 0 },
        { { "status", "--json" }, 0 },
        { { "list", "--names" }, 0 },
        { { "--version" }, 0 },
        { { "submit", "--help" }, 0 },
        { { "frobnicate" }, 2 },
        { { "list", "--frobnicate" }, 2 },
        { { "list", "--state", "asleep" }, 2 },
        { { "list", "--json", "--watch" }, 2 },
        { { "submit" }, 2 },
        { { "submit", "" }, 2 },
        { { "submit", "--label", "only" }, 2 },
        { { "remove" }, 2 },
        { { "wait", "--timeout", "-1" }, 2 },
        { { "submit", "-C", "/no/such/place", "true" }, 1 },
        { { "quit" }, 3 },
        { { "list", "--root", "/no/such/place" }, 3 },
        { { "--host", "no.such.host", "list" }, 3 },
    };
    for (const auto& c : cases) {
        Call call(c.words);
        EXPECT_EQ(c.code, call.end()) << c.words[0] << ": " << call.err();
        EXPECT_EQ(c.code == 0, call.err().empty());
        EXPECT_EQ(c.code == 0 && c.words.back() != "--names", !call.out().empty()) << c.words[0];
        ASSERT_FALSE(Sandbox::isListening(Sandbox::SCHEDULE_PORT)) << c.words[0];
    }
    EXPECT_TRUE(!fs::exists(Sandbox::home() + "/.local")) << "nothing was made for a refused job";
    EXPECT_EQ(0, Call({ "list" }).end());
    EXPECT_TRUE(Sandbox::isListening(Sandbox::SCHEDULE_PORT));
    EXPECT_EQ(1, Call({ "run" }).end());
    EXPECT_EQ(1, Call({ "kill" }).end());
    EXPECT_EQ(1, Call({ "log" }).end());
    EXPECT_EQ(0, Call({ "wait" }).end());
    EXPECT_EQ(0, Call({ "quit" }).end());
}
