// What the looking commands show of a queue file: no server, no job that runs for real.

#include "tests/zojob/Call.h"
#include "utlib/UtServerSocket.h"

#include <csignal>
#include <nlohmann/json.hpp>
#include <poll.h>
#include <pty.h>
#include <regex>
#include <sys/ioctl.h>
#include <sys/wait.h>
#include <termios.h>
#include <unistd.h>

namespace fs = std::filesystem;

/// The command of zojob's own jobs, whose directories hold their exit status.
static const char OWN[] = "sh job || [ -s exit ] || echo $? >exit";
static const int IDS = 1700000000;  // of the first job; the next ones follow

/// Jobs labelled alpha to golf in a queue file: some of another application, some of zojob.
class View : public ::testing::Test
{
protected:
    std::string records[7];
    UtServerSocket silent{ 1 };

    View()
    {
        const std::string own = std::to_string(::getpid());
        record(0, 12, "true", "alpha", 0, 3725);
        record(1, 12, OWN, "bravo", 1, 60, "3\n");
        record(2, 12, OWN, "charlie", 2, 0, "5\n");
        record(3, 13, OWN, "delta", 3, 1);
        record(4, 11, "sleep 9", "exec \"it\"", ::time(nullptr) - IDS - 60, 0, "", own);
        record(5, 10, "true", "f\xc3\xb3xtrot \x1b[31m\xff\xc2\x9b\u202e", -1, 0);
        record(6, 10, "true", "golf", -1, 0);
        save();
    }

    /// From now on nobody may ask a server: what is looked for stands in the queue file.
    void listenInVain() { EXPECT_EQ(0, silent.openSocket(Sandbox::SCHEDULE_PORT, -1, 0)); }

    void TearDown() override
    {
        struct pollfd asked = { silent.descriptor, POLLIN, 0 };
        EXPECT_EQ(0, ::poll(&asked, 1, 0)) << "somebody asked the server";
    }

    void record(int n, int state, const char* command, const char* label, long long start,
                int seconds, const char* status = "", const std::string& pid = "9000001")
    {
        const std::string place = Sandbox::path("place") + std::to_string(n);
        fs::create_directory(place);
        Sandbox::write(place + "/." + std::to_string(IDS + n), "");
        if (*status)
            Sandbox::write(place + "/exit", status);
        const long long begin = start < 0 ? 0 : IDS + start, end = seconds ? begin + seconds : 0;
        records[n] = std::to_string(state) + ":" + command + ":" + label + ":" + place + ":" +
                     std::to_string(IDS + n) + ":" + std::to_string(begin) + ":" +
                     std::to_string(state == 12 && !seconds ? begin : end) +
                     ":0:" + (start < 0 ? "-1" : pid) + "\n";
    }

    void save() const
    {
        std::string text;
        for (const std::string& one : records)
            text += one;
        Sandbox::write(Sandbox::queueFile(), text);
    }

    static std::string name(int n) { return std::to_string(IDS + n); }

    /// The first letters of the labels that a text shows, in its order; x for the one before golf.
    static std::string shown(const std::string& text)
    {
        static const std::regex labels("alpha|bravo|charlie|delta|exec |xtrot|golf");
        std::string letters;
        for (std::sregex_iterator i(text.begin(), text.end(), labels), end; i != end; ++i)
            letters += i->str()[0];
        return letters;
    }
};

TEST_F(View, ListShowsWhatIsAskedFor)
{
    listenInVain();
    for (const Row row :
         { "abcdexg: ", "abcdexg: list", "xg: ls -n 2", "exg: list -n3", ": list -n 0",
           "abcdexg: list -n 99", "d: list --state killed", "exg: list --state=waiting,running",
           "bc: list --state failed", "a: list --state timed-out,done",
           "dxg: list --state waiting --state killed", "g: list --state waiting -n 1 --no-header",
           "e: list --names --state running" })
        EXPECT_EQ(row.expected, shown(zojob(row.words))) << joined(row.words);
    std::istringstream wrong(
        "list --state nonsense\nlist -n -1\nlist -n many\nlist surplus\nlist --json --watch\n"
        "list --watch=0\n--color blue\nnonsense\nhelp nonsense\nshow\nshow 8-7\nlog -f 1 2\n"
        "log -n x\nwait --timeout -1 1\nwait --timeout nan 1\nrun 1 2\nremove --all 1\nsubmit - x\n"
        "submit --lines x y\nsubmit --detach x\nsubmit --slurm --retry 1 x\nsubmit --retry -1 x\n"
        "submit --timeout 5x true\nsubmit --timeout 0 true\n");
    for (std::string line; std::getline(wrong, line);) {
        Call call(split(line));
        EXPECT_EQ(2, call.end()) << line;
        EXPECT_TRUE(call.out().empty() && !call.err().empty()) << line << call.out();
    }
}

TEST_F(View, ListShowsEveryJobAsItIs)
{
    const std::string list = Call({ "list" }).out(), bare = Call({ "list", "--no-header" }).out();
    std::istringstream lines(list);
    const Words parts[] = { { "JOB", "STATE" },
                            { "done", " 1:02:05 ", "alpha" },
                            { "failed", " 3 ", "1:00" },
                            { "failed", " 5 ", " 0:00 " },
                            { "killed", "143", "0:01" },
                            { "running", "1:0", "exec \"it\"" },
                            { "waiting", "f\xc3\xb3xtrot \\x1b[31m?\\x9b\\u202e" },
                            { "waiting", "golf" },
                            { "2 waiting, 1 running, 1 done, 2 failed, 1 killed" } };
    for (const Words& wanted : parts) {
        std::string line;
        std::getline(lines, line);
        for (const std::string& part : wanted)
            EXPECT_TRUE(holds(line, part)) << part << " in: " << line;
    }
    EXPECT_EQ(7, std::count(bare.begin(), bare.end(), '\n')) << "neither headings nor counts";
    EXPECT_FALSE(holds(list, "\x1b") || holds(list, "\x9b"));
    const std::string colored = Call({ "--color", "always" }).out();
    EXPECT_TRUE(holds(colored, "\x1b[32mdone"));
    EXPECT_TRUE(holds(colored, "\x1b[31mfailed"));
    EXPECT_TRUE(holds(Call({ "list", "--wide" }).out(), Sandbox::path("place0")));
    const auto json = nlohmann::json::parse(Call({ "list", "--json" }).out());
    ASSERT_EQ(7u, json.size());
    EXPECT_EQ(nullptr, json[0]["exit"]);
    EXPECT_EQ(5, json[2]["exit"]);
    EXPECT_EQ("exec \"it\"", json[4]["description"]);
    EXPECT_EQ("running", json[4]["state"]);
    EXPECT_EQ("f\xc3\xb3xtrot \x1b[31m\xef\xbf\xbd\xc2\x9b\u202e", json[5]["description"]);
    EXPECT_EQ(json[5], nlohmann::json::parse(Call({ "list", "--json", "-n", "2" }).out())[0]);
}

TEST_F(View, TextsAreThoseThatWereGiven)
{
    const std::string given = "# command: printf \"\\\\n\" 'a\\nb'\n# directory: /a \\\\ b\n";
    const std::string made = "# made by zojob for " + Sandbox::path("place1\n");
    Sandbox::write("place1/job", "#!/bin/sh\n" + made + given + "# end\n");
    Sandbox::write("place2/job", "#!/bin/sh\n" + given + "# label: \xe8\xa1\xa8\xe9\xa1\x8c x\n" +
                                     "# end\n# command: another\n");
    Sandbox::write("place2/started", "");  // long after the time that the queue has
    Sandbox::write("place2/exit", "5\n");
    const auto json = nlohmann::json::parse(Call({ "list", "--json" }).out());
    const std::string place = Sandbox::path("place1");
    auto expected = nlohmann::json::parse(R"({ "id": 1700000001, "name": "1700000001",
        "state": "failed", "exit": 3, "label": null, "workdir": "/a \\ b", "reserved": 0, "time": 60,
        "start": 1700000001, "end": 1700000061, "command": "printf \"\\n\" 'a\nb'",
        "description": "bravo", "cluster": null, "diskFull": false, "unsaved": false,
        "otherUser": null })");
    expected["directory"] = place;
    expected["log"] = place + "/log";
    EXPECT_EQ(expected, json[1]);
    ::setenv("TZ", "HERE-1:30", 1);
    const std::string wide = joined(split(zojob({ "list", "--wide" })));
    EXPECT_TRUE(holds(wide, " 3 1:00 2023-11-14 23:43:21 2023-11-14 23:44:21 /a \\ b " + place +
                                "/log printf \"\\n\" 'a\\nb' 1700000002 "))
        << wide;
    EXPECT_TRUE(holds(joined(split(zojob({ "show", name(1) }))),
                      "started 2023-11-14 23:43:21 ended 2023-11-14 23:44:21 run time 1:00 id "));
    EXPECT_EQ("\xe8\xa1\xa8\xe9\xa1\x8c x", json[2]["label"]);
    EXPECT_EQ(json[1]["command"], json[2]["command"]);
    EXPECT_EQ(0, json[2]["time"]);
    const std::string list = Call({ "list" }).out();
    EXPECT_TRUE(holds(list, "  printf \"\\n\" 'a\\nb'\n")) << list;
    EXPECT_TRUE(holds(list, "  \xe8\xa1\xa8\xe9\xa1\x8c x\n")) << list;
    EXPECT_FALSE(holds(Call({ "show", name(1) }).out(), made)) << "only with --script";
    EXPECT_TRUE(holds(Call({ "show", "--script", name(1) }).out(), made));
    EXPECT_TRUE(holds(zojob({ "show", "--script", "--json", name(1) }), "\"script\": \"#!/bin/sh"));
    fs::remove("place2/exit");
    expectRefusal({ "wait", name(2) }, "left no status behind");
}

TEST_F(View, ShowAndStatusTellEverything)
{
    const std::string text = Call({ "show", name(1) }).out();
    for (const char* line : { "state         failed\n", "exit status   3\n",
                              "command       bravo\n", "/place1/log\n", "run time      1:00\n" })
        EXPECT_TRUE(holds(text, line)) << line << " in: " << text;
    const auto json = nlohmann::json::parse(Call({ "show", "--json", name(0) }).out());
    EXPECT_EQ("true", json["command"]);
    EXPECT_EQ(Sandbox::path("place0"), json["directory"]);
    const std::string status = Call({ "status" }).out();
    for (const char* part : { "server        none\n", "2 waiting, 1 running", ": exec \"it\"\n" })
        EXPECT_TRUE(holds(status, part)) << part << " in: " << status;
    EXPECT_FALSE(holds(status, "stands still"));
    record(4, 12, "sleep 9", "exec \"it\"", 0, 1);
    save();
    EXPECT_TRUE(holds(Call({ "status" }).out(), "stands still")) << "jobs wait, and nothing runs";
    EXPECT_TRUE(holds(Call({ "list" }).out(), "none runs"));
    const auto found = nlohmann::json::parse(Call({ "status", "--json" }).out());
    EXPECT_EQ("none", found["server"]);
    EXPECT_EQ(2, found["counts"]["failed"]);
    EXPECT_EQ(true, found["standsStill"]);
    record(4, 12, "sleep 9", "exec \"it\"", ::time(nullptr) - IDS - 1, 1);
    save();
    const std::string own = Sandbox::queueFile(), old = Sandbox::home() + "/.zojobs-old";
    Sandbox::write(old, records[5] + records[0]);
    Sandbox::write(Sandbox::home() + "/.zojobs-empty", "");
    const std::string later = Call({ "status" }).out();
    EXPECT_FALSE(holds(later, "stands still")) << "the next one comes";
    EXPECT_TRUE(holds(later, "2 jobs, 1 waiting, of a machine called old")) << later;
    EXPECT_TRUE(holds(later, ": cat " + old + " >>" + own + " && rm " + old + "\n")) << later;
    EXPECT_FALSE(holds(later, "-empty") || holds(later, "called node1")) << later;
    fs::remove(own);
    const std::string alone = Call({ "status" }).out();
    Process({ "sh", "-c", alone.substr(alone.find(": mv ") + 2) }).end();
    EXPECT_EQ("xa", shown(Call({ "list" }).out())) << alone;
    const auto failed = nlohmann::json::parse(Call({ "show", "--json", "x" }).out());
    EXPECT_EQ(1, failed["exit"]);
    EXPECT_TRUE(failed["otherUser"].is_null());
    if (::geteuid() != 0)
        return;
    Sandbox::asStranger([this] { listenInVain(); });
    for (const Words& words : { Words{ "submit", "--json", "true" },
                                { "show", "--json", name(0) },
                                { "status", "--json" } })
        EXPECT_EQ(Sandbox::STRANGER,
                  nlohmann::json::parse(zojob(words, words[0] != "show"))["otherUser"]["id"]);
}

TEST_F(View, NamesMeanTheJobsThatHaveThem)
{
    fs::create_directory("twin");
    Sandbox::write("twin/." + name(6), "");
    const std::string twin = Sandbox::path("twin");
    records[5] = "10:true:f\xc3\xb3xtrot:" + twin + ":" + name(6) + ":0:0:0:-1\n";
    for (int n = 1; n < 4; ++n) {  // of zojob, with numbers from 7 to 9
        const std::string from = "place" + std::to_string(n), to = "job-" + std::to_string(6 + n);
        fs::rename(from, to);
        records[n].replace(records[n].find(from + ":"), from.size(), to);
    }
    save();
    const std::string full = name(6) + ":" + twin;
    const std::string x = "x: show " + full;  // what failed last is b: it ended after c
    for (const Row row : { "a: show 1700000000", "b: show 7", "b: show 1700000001", "g: show last",
                           "e: show running", "b: show failed", "b: show 7-7", "dbc: show 9 1-8 8",
                           x.c_str(), ": show 1", ": show 1-6", ": show 07", ": show job-7" })
        EXPECT_EQ(row.expected, shown(zojob(row.words, row.expected.empty()))) << joined(row.words);
    for (const std::string& wrong : { full + "x", std::string() })
        expectRefusal({ "show", wrong }, "no job is named '" + wrong + "'");
    expectRefusal({ "show", name(6) }, full);
    EXPECT_EQ(1, Call({ "log", "7-8", "running", "nobody" }).end());
    EXPECT_TRUE(holds(Call({ "list" }).out(), "\n7 ")) << "the list shows the same names";
}

TEST_F(View, LogShowsTheWantedLines)
{
    listenInVain();
    std::string text, end;
    for (int i = 0; i < 30000; ++i) {  // several of the pieces that are read at a time
        text += "line " + std::to_string(i) + "\n";
        if (i >= 10000)
            end += "line " + std::to_string(i) + "\n";
    }
    Sandbox::write("place0/log", text);
    Sandbox::write("place1/log", std::string("Starting \"") + OWN + "\"\none\n\ntwo");
    Sandbox::write("place3/log", std::string("Starting \"") + OWN + "\"\n");
    Sandbox::write("place4/log", "runs\n");
    const std::string two = "==> 1700000001: bravo <==\none\n\ntwo\n==> 1700000006: golf <==\n";
    const std::tuple<Words, std::string, int> cases[] = {
        { { "log", name(0) }, text, 0 },
        { { "log", "-n", "20000", name(0) }, end, 0 },
        { { "log", "-n1", name(0) }, "line 29999\n", 0 },
        { { "log", "--lines=0", name(0) }, "", 0 },
        { { "log", name(1) }, "one\n\ntwo", 0 },
        { { "log", "-n", "2", name(1) }, "\ntwo", 0 },
        { { "log", "-n", "9", name(1) }, "one\n\ntwo", 0 },
        { { "log", "-f", name(1) }, "one\n\ntwo", 0 },
        { { "log", "-fn1", name(1) }, "two", 0 },
        { { "log", name(3) }, "", 0 },
        { { "log" }, "runs\n", 0 },
        { { "log", name(1), name(6) }, two, 1 },
        { { "log", name(6) }, "", 1 },
    };
    for (const auto& [words, out, status] : cases)
        EXPECT_TRUE(out == zojob(words, status)) << joined(words);
    record(4, 12, "sleep 9", "exec", 90, 1);
    record(0, 12, "true", "alpha", 95, 1);
    save();
    EXPECT_EQ(text, Call({ "log" }).out()) << "the one that was started last";
}

TEST_F(View, FollowedLogGrowsToItsEnd)
{
    listenInVain();
    Sandbox::write("place4/log", "zero\none\n");
    Call following("exec \"$0\" \"$@\" >followed", { "log", "-f", "-n1" });
    for (const char* const text : { "one\n", "one\ntwo\nthree" }) {
        EXPECT_TRUE(Sandbox::waitFor([=] { return Sandbox::read("followed") == text; })) << text;
        EXPECT_FALSE(following.hasEnded(0.3));
        Sandbox::write("place4/log", "zero\none\ntwo\nthree");
    }
    Call unheard("exec \"$0\" \"$@\" >/dev/full", { "log", "-f" });
    EXPECT_TRUE(unheard.hasEnded(10)) << "nobody can read what comes";
    record(4, 12, "sleep 9", "exec", 90, 1);
    save();
    EXPECT_EQ(0, following.end());
    EXPECT_EQ("one\ntwo\nthree", Sandbox::read("followed"));
}

TEST_F(View, WaitEndsWithTheHighestStatus)
{
    listenInVain();
    for (const Row row :
         { "0: wait 1700000000", "3: wait 1700000001", "5: wait 1700000001 1700000002 1700000001",
           "5: wait 1700000002 1700000000", "143: wait 1700000002 1700000003",
           "124: wait --timeout 0 1700000004", "124: wait --timeout=0.1 1700000001 1700000004",
           "3: wait --timeout 0 1700000001", "124: wait --timeout 0",
           "1: wait 1700000001 nonsense" })
        zojob(row.words, std::stoi(row.expected));
}

TEST_F(View, InterruptedWaitSaysSoUnlessThatIsIgnored)
{
    for (const Words& words : { Words{ "wait", name(4) }, { "log", "-f" } }) {
        Call waiting(words), ignoring("trap '' INT; exec \"$0\" \"$@\"", words);
        EXPECT_FALSE(waiting.hasEnded(0.5) || ignoring.hasEnded());
        for (const Call* call : { &waiting, &ignoring })
            ::kill(call->pid, SIGINT);
        siginfo_t end = {};
        ::waitid(P_PID, waiting.pid, &end, WEXITED | WNOWAIT);
        EXPECT_EQ(CLD_KILLED, end.si_code) << "a shell would go on with its loop";
        EXPECT_EQ(128 + SIGINT, waiting.end());
        EXPECT_TRUE(holds(waiting.err(), "goes on")) << waiting.err();
        EXPECT_FALSE(ignoring.hasEnded(0.3));
        ::kill(ignoring.pid, SIGTERM);
        EXPECT_EQ(128 + SIGTERM, ignoring.end());
    }
}

TEST_F(View, WatchGoesOnUntilNobodyReads)
{
    Call watching("exec \"$0\" \"$@\" >watched", { "list", "--no-header", "--watch" });
    const auto isRepeated = [] { return shown(Sandbox::read("watched")).size() > 7; };
    EXPECT_TRUE(Sandbox::waitFor(isRepeated, 4)) << "at its interval";
    EXPECT_FALSE(watching.hasEnded());
    ::kill(watching.pid, SIGTERM);
    Call left("\"$0\" \"$@\" | head -n 1", { "list", "--watch=0.1" });
    EXPECT_TRUE(left.hasEnded(5)) << "the reader has gone";
    left.end();
}

/// `list --watch` on a terminal of its own.
class Watched
{
public:
    int terminal = -1;
    pid_t pid;

    explicit Watched(struct winsize size)
    {
        pid = ::forkpty(&terminal, nullptr, nullptr, &size);
        if (pid == 0) {
            ::setenv("TERM", "xterm", 1);
            ::execl(KELVO_BUILD_DIR "/bin/zojob", "zojob", "list", "--watch=60", nullptr);
            ::_exit(127);
        }
    }
    ~Watched() { ::close(terminal); }

    /// Whether the text comes within a few seconds, after what was looked for before.
    bool shows(const std::string& text)
    {
        struct pollfd ready = { terminal, POLLIN, 0 };
        char buffer[4096];
        for (long n = 0; n >= 0 && !holds(seen, text);) {
            n = ::poll(&ready, 1, 5000) > 0 ? ::read(terminal, buffer, sizeof buffer) : -1;
            seen.append(buffer, n > 0 ? n : 0);
        }
        const bool isThere = holds(seen, text);
        seen.erase(0, isThere ? seen.find(text) + text.size() : 0);
        return isThere;
    }
    /// Whether keys are shown, and taken line by line.
    bool isAsBefore() const
    {
        struct termios now = {};
        return ::tcgetattr(terminal, &now) == 0 && (now.c_lflag & ECHO) && (now.c_lflag & ICANON);
    }

private:
    std::string seen;
};

TEST_F(View, WatchFitsTheTerminalAndGivesItBack)
{
    Sandbox::write("place5/." + name(6), "");  // of the same second as the next one
    records[5].replace(records[5].find(name(5)), name(5).size(), name(6));
    Sandbox::write("place4/log", "old\nover\rnew\n");
    save();
    const std::string enter = "\033[?1049h", leave = "\033[?1049l";
    const std::pair<int, int> ends[] = { { 0, 0 }, { SIGTERM, SIGTERM }, { SIGINT, SIGINT } };
    for (const auto& [signal, expected] : ends) {
        ::setenv("NO_COLOR", signal ? "1" : "", 1);
        Watched watched({ 6, 40, 0, 0 });
        EXPECT_TRUE(watched.shows(enter) && watched.shows("running") &&
                    watched.shows("... 5 more") && watched.shows(name(4) + ": new"));
        EXPECT_FALSE(watched.isAsBefore());
        EXPECT_EQ(1, ::write(watched.terminal, "x", 1));  // means nothing
        const struct winsize larger = { 24, 80, 0, 0 };
        ::ioctl(watched.terminal, TIOCSWINSZ, &larger);
        EXPECT_TRUE(watched.shows(signal ? "\u2026rld/place6  waiting" : "\033[33mwaiting") &&
                    watched.shows("golf"));
        for (int stops = 0; stops < 2; ++stops) {
            ::kill(watched.pid, SIGTSTP);  // which nobody could continue here
            EXPECT_TRUE(watched.shows(leave) && watched.shows(enter) && watched.shows("golf"));
        }
        if (signal)
            ::kill(watched.pid, signal);
        else
            EXPECT_EQ(1, ::write(watched.terminal, "q", 1));
        EXPECT_TRUE(watched.shows(leave));
        int status = -1;
        EXPECT_TRUE(Sandbox::waitFor([&] { return ::waitpid(watched.pid, &status, WNOHANG) > 0; }));
        EXPECT_EQ(expected, status);
        EXPECT_TRUE(watched.isAsBefore());
    }
}

TEST_F(View, OutputThatCannotBeWrittenIsAFailure)
{
    const std::tuple<const char*, int, const char*> cases[] = {
        { "\"$0\" \"$@\" >/dev/full", 1, "cannot write to standard output: No space" },
        { "\"$0\" \"$@\" >&-", 1, "cannot write to standard output: Bad file" },
        { "\"$0\" \"$@\" 2>&- <&-", 0, "" },
        { "ulimit -f 0; exec \"$0\" \"$@\" >file", 1, "" },
    };
    for (const auto& [line, status, message] : cases)
        for (const Words& words : { Words{ "list" }, { "list", "--json" }, { "show", name(0) } }) {
            Call call(line, words);
            EXPECT_EQ(status, call.end()) << line << ", " << joined(words);
            EXPECT_TRUE(holds(call.err(), message)) << line << ": " << call.err();
        }
}

TEST_F(View, CompletionsKnowCommandsOptionsAndJobs)
{
    records[5] =
        "10:true:f\xc3\xb3xtrot:" + Sandbox::path("place6") + "/$(x):" + name(6) + ":0:0:0:-1\n";
    fs::create_directory("place6/$(x)");
    Sandbox::write("place6/$(x)/." + name(6), "");
    save();
    const std::string twin = name(6) + ":" + Sandbox::path("place6");
    const std::string both = twin.substr(twin.find(':') + 1);
    const std::pair<std::string, std::string> cases[] = {
        { "zojob rem", "remove" },
        { "zojob list --wi", "--wide" },
        { "zojob wait --ti", "--timeout" },
        { "zojob kill " + name(4).substr(0, 9) + "4", name(4) },
        { "zojob kill --gr", "--grace" },
        { "zojob show la", "last" },
        { "zojob --host x list --js", "--json" },
        { "zojob list --state=kil", "killed" },
        { "zojob list --state waiting,run", "waiting,running" },
        { "zojob submit --after=" + name(3) + "," + name(1), name(3) + "," + name(1) },
        { "zojob --color=al", "always" },
        { "zojob help sub", "submit" },
        { "zojob submit -qL a -C b --label c --directory d --host e --root f --color g --after 1 "
          "--after-any 1 --timeout 1 --retry 1 --then x --shell y --lines z --js",
          "--json" },
        { "zojob kill --grace ", "" },
        // Put into the line, it is not run.
        { "zojob show " + twin + "/", both + "/\\$\\(x\\)" }
    };
    const std::string script = "PATH=" KELVO_BUILD_DIR "/bin:$PATH; "
                               ". " KELVO_SOURCE_DIR "/zojob/completions/zojob.bash; "
                               "COMP_LINE=$1 COMP_POINT=${#1}; _zojob; "
                               "printf '%s\\n' \"${COMPREPLY[@]}\"";
    for (const auto& [line, word] : cases) {
        Process bash({ "bash", "-c", script, "bash", line });
        EXPECT_EQ(word + "\n", bash.out()) << line << ": " << bash.err();
    }
}
