// What the looking commands show of a queue file: no server, no job that runs for real.

#include "tests/zojob/ViewFixture.h"

#include <nlohmann/json.hpp>

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
    EXPECT_TRUE(holds(zojob({ "list", "--state", "killed" }), "\n2 waiting, 1 running, 1 done"));
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
                            { "done     -     1:02:05  alpha" },
                            { "failed", " 3 ", "1:00" },
                            { "failed", " 5 ", " 0:00 " },
                            { "killed", "143", "0:01" },
                            { "running", "1:0", "exec \"it\"" },
                            { "waiting  -     -        f\xc3\xb3xtrot \\x1b[31m?\\x9b\\u202e" },
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
    EXPECT_TRUE(holds(colored, "\x1b[1;34mrunning"));
    EXPECT_TRUE(holds(zojob({ "show", "--color=always", name(0) }), "\x1b[32mdone"));
    EXPECT_TRUE(holds(Call({ "list", "--wide" }).out(), Sandbox::path("place0")));
    const auto json = nlohmann::json::parse(Call({ "list", "--json" }).out());
    ASSERT_EQ(7u, json.size());
    EXPECT_EQ(nullptr, json[0]["exit"]);
    EXPECT_EQ(5, json[2]["exit"]);
    EXPECT_EQ(nullptr, json[5]["start"]);
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
    EXPECT_TRUE(holds(wide, " TIME START END DIRECTORY LOG COMMAND DESCRIPTION 1700000000 "));
    const std::string fields = joined(split(zojob({ "show", name(1), name(6) })));
    for (const std::string part :
         { "runs in /a \\ b log ", "label golf command true runs in ",
           "submitted 2023-11-14 23:43:26 started - ended - run time - id ",
           "started 2023-11-14 23:43:21 ended 2023-11-14 23:44:21 run time 1:00 id " })
        EXPECT_TRUE(holds(fields, part)) << part << " in: " << fields;
    EXPECT_EQ("\xe8\xa1\xa8\xe9\xa1\x8c x", json[2]["label"]);
    EXPECT_EQ(json[1]["command"], json[2]["command"]);
    EXPECT_EQ(0, json[2]["time"]);
    const std::string list = Call({ "list" }).out();
    EXPECT_TRUE(holds(list, "  printf \"\\n\" 'a\\nb'\n")) << list;
    EXPECT_TRUE(holds(list, "  \xe8\xa1\xa8\xe9\xa1\x8c x\n")) << list;
    EXPECT_FALSE(holds(Call({ "show", name(1) }).out(), made)) << "only with --script";
    EXPECT_TRUE(holds(Call({ "show", "--script", name(1) }).out(), made));
    EXPECT_TRUE(holds(zojob({ "show", "--script", "--json", name(1) }), "\"script\": \"#!/bin/sh"));
    Sandbox::write("place2/exit", "5 - full\n");
    Sandbox::write("place2/log", "");
    EXPECT_TRUE(holds(Call({ "log", name(2) }).err(), "may be incomplete"));
    EXPECT_TRUE(holds(Call({ "show", name(2) }).out(), "may be incomplete"));
    fs::remove("place2/exit");
    expectRefusal({ "wait", name(2) }, "left no status behind");
}

TEST_F(View, ShowAndStatusTellEverything)
{
    const std::string text = Call({ "show", name(1) }).out();
    for (const char* line : { "state         failed\n", "exit status   3\n",
                              "command       bravo\n", "/place1/log\n", "run time      1:00\n" })
        EXPECT_TRUE(holds(text, line)) << line << " in: " << text;
    EXPECT_TRUE(holds(Call({ "show", name(0), name(1) }).out(), "\n\njob  "));
    const auto json =
        nlohmann::json::parse(Call({ "show", "--script", "--json", name(1), name(0) }).out());
    EXPECT_EQ("true", json.at(1)["command"]);
    EXPECT_EQ(Sandbox::path("place0"), json[1]["directory"]);
    EXPECT_EQ(nullptr, json[1]["script"]);
    const auto statusJson = [] {
        return nlohmann::json::parse(Call({ "status", "--json" }).out());
    };
    EXPECT_EQ(name(4), statusJson()["running"]["name"]);
    const std::string status = Call({ "status" }).out();
    for (const char* part :
         { "server        none\n", "2 waiting, 1 running", " for 1:", ": exec \"it\"\n" })
        EXPECT_TRUE(holds(status, part)) << part << " in: " << status;
    EXPECT_FALSE(holds(status, "stands still"));
    record(4, 12, "sleep 9", "exec \"it\"", 0, 1);
    save();
    EXPECT_TRUE(holds(Call({ "status" }).out(), "stands still")) << "jobs wait, and nothing runs";
    EXPECT_TRUE(holds(Call({ "list" }).out(), "none runs"));
    const auto found = statusJson();
    EXPECT_EQ("none", found["server"]);
    EXPECT_EQ(2, found["counts"]["failed"]);
    EXPECT_EQ(true, found["standsStill"]);
    record(4, 12, "sleep 9", "exec \"it\"", ::time(nullptr) - IDS - 1, 1);
    save();
    const std::string own = Sandbox::queueFile(), old = Sandbox::home() + "/.zojobs-old";
    Sandbox::write(old, records[5] + records[0]);
    Sandbox::write(Sandbox::home() + "/.zojobs-empty", "");
    EXPECT_EQ(nlohmann::json({ { "file", old }, { "jobs", 2 }, { "waiting", 1 } }),
              statusJson()["otherQueues"][0]);
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
    EXPECT_EQ("no job is named 'x'; see 'zojob list'", failed["error"]);
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
