// What is handed over with zojob: words, scripts, options and the numbers that jobs get.

#include "tests/zojob/ZojobFixture.h"

#include <random>
#include <set>
#include <sys/resource.h>
#include <sys/stat.h>

TEST_F(Zojob, ArgumentsComeOutByteForByte)
{
    std::string all;
    for (int byte = 1; byte < 256; ++byte)
        all += (char)byte;
    ::setenv("HOSTILE", all.c_str(), 1);
    ::setenv("IFS", "x", 1);
    ::setenv("UID", "none", 1);
    zojob({ "submit", "-r", "-w", "printf %s \"$HOSTILE\" a\\ b 'c \"d' $(echo x y)" });
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
            words.back() += std::string(round + n == 1 ? 100000 : 0, 'x');
            expected += words.back() + '\0';
        }
        const std::string name = Call(words).line();
        EXPECT_EQ(expected + "0", runScript(name)) << "round " << round;
        // What is shown can be typed again. JSON holds no bytes that are no UTF-8.
        const std::string shown = job(name)["command"];
        if (!holds(shown, "\xef\xbf\xbd")) {
            EXPECT_EQ(expected, Process({ "sh", "-c", shown }).out()) << shown;
        }
    }
    EXPECT_EQ("a \"b\" c\n0", runScript(Call({ "submit", "-" }, "echo 'a \"b\" c'").line()));
}

TEST_F(Zojob, NothingRunsOfAJobWhoseFilesAreDamaged)
{
    const std::string long_ = "touch ran\n" + std::string(9000, '#') + "\ntouch ran\n";
    for (const std::string& body : { long_, "#!/bin/sh\n" + long_ }) {
        const std::string name = Call({ "submit", "-" }, body).line();
        const std::string file = directory(name) + (body[0] == '#' ? "/script" : "/job");
        const std::string whole = Sandbox::read(file), nothing;
        const std::size_t size = whole.size();
        for (const std::string& text :
             { nothing, whole.substr(0, 4096), whole.substr(0, size - 1), std::string(size, '\0'),
               whole.substr(0, 4096) + std::string(size - 4096, '\0'),
               std::string(whole).replace(4096, 4096, 4096, '\0') }) {
            Sandbox::write(file, text);
            const std::string result = runScript(name);
            EXPECT_TRUE(holds(result, "damaged, as by a power cut: nothing was run\n125"))
                << result;
        }
        fs::remove(file);
        EXPECT_TRUE(holds(runScript(name), "nothing was run\n125"));
        EXPECT_FALSE(fs::exists("ran"));
        Sandbox::write(file, whole);
        fs::permissions(file, fs::perms::owner_all);
        EXPECT_EQ("0", runScript(name));
        EXPECT_TRUE(fs::remove("ran"));
    }
}

TEST_F(Zojob, SubmitTakesItsOptionsAndTheRestIsTheJobs)
{
    fs::create_directory("a 'b");
    const std::string python = "#!/usr/bin/env python3\nprint(6 * 7)\n";
    const struct {
        Words words;
        std::string label, output, input = "";
    } cases[] = {
        { { "-Lx", "echo", "a" }, "x", "a\n0" },
        { { "--label=y  z", "exit 3" }, "y  z", "3" },
        { { "--label=", "true" }, "", "0" },
        { { "-L", "say \"hi\"\n", "true" }, "say 'hi'\\n", "0" },
        { { "-Ca 'b", "pwd" }, "pwd", Sandbox::path("a 'b") + "\n0" },
        { { "--directory", "a 'b/..", "pwd -P" }, "pwd -P", Sandbox::path() + "\n0" },
        { { "-L", "own", "umask; echo $OF_A $OF_B" }, "own", "0027\ncaller\n0" },
        { { "-qLq", "true" }, "q", "0" },
        { { "--", "echo", "--json" }, "echo --json", "--json\n0" },
        { { "echo", "-L", "z y", "--run" }, "echo -L 'z y' --run", "-L z y --run\n0" },
        { { "-" }, "echo one", "one\n0", "# first\n\n  echo one\n" },
        { { "-" }, "print(6 * 7)", "42\n0", python },
    };
    for (auto [words, label, output, input] : cases) {
        words.insert(words.begin(), "submit");
        ::umask(027);
        ::setenv("OF_A", "caller", 1);
        ::unsetenv("OF_B");
        EXPECT_EQ(words[1] == "-qLq", zojob(words, 0, input).empty()) << joined(words);
        ::umask(0);
        ::setenv("OF_A", "server", 1);
        ::setenv("OF_B", "server", 1);
        EXPECT_EQ(label, job("last")["description"]) << joined(words);
        EXPECT_EQ(output, runScript("last")) << joined(words);
        EXPECT_EQ("waiting", job("last")["state"]) << joined(words);
    }
    for (const Words& time : { Words{ "90s", "90" }, { "2h", "7200" }, { "1d", "86400" } }) {
        zojob({ "submit", "--timeout", time[0], "true" });
        EXPECT_TRUE(holds(zojob({ "show", "--script", "last" }), " zj_time=" + time[1] + " "));
    }
    EXPECT_TRUE(holds(zojob({ "show", "--script", "last" }),
                      "='" + Sandbox::home() + "/.config/zojob/done'\n"));
    Sandbox::write("file", "true\n");
    zojob({ "submit", "--lines", "file" });
    const size_t count = jobs().size();
    for (const Words& words : { split("submit"), split("submit -"), split("submit --nonsense true"),
                                split("submit --shell nosuch true"), Words({ "submit", "" }),
                                Words({ "submit", " \n" }) })
        EXPECT_EQ(2, Call(words).end()) << joined(words);
    EXPECT_TRUE(holds(Call({ "submit", "echo a", "b" }).err(), "the name of one program"));
    zojob({ "rm", "last" });
    EXPECT_EQ(1, Call({ "submit", "-C", "file", "true" }).end());
    EXPECT_EQ(1, Call({ "submit", "--lines", "none" }).end());
    EXPECT_EQ(1, Call({ "submit", "-" }, std::string("a\0b", 3)).end());
    EXPECT_EQ(count, jobs().size());
}

TEST_F(Zojob, JobIsPrivateAndHasTheCallersDirectoryAndLimits)
{
    ::umask(0);
    const auto shown = nlohmann::json::parse(Call({ "add", "--json", "true" }).out());
    const fs::path place = shown["directory"].get<std::string>();
    EXPECT_EQ(1u, jobs().size());
    const std::string niceness = std::to_string(::getpriority(PRIO_PROCESS, 0) + 2);
    const Words own = { "submit", "ulimit -n; ulimit -f; ulimit -s; ulimit -t; nice" };
    Call limited("ulimit -Sn 77; ulimit -Sf 5000; ulimit -Ss 4000; ulimit -St 60; "
                 "exec nice -n 2 \"$0\" \"$@\"",
                 own);
    EXPECT_EQ("77\n5000\n4000\n60\n" + niceness + "\n0", runScript(limited.line()));
    fs::create_symlink(".", "link");
    Call linked("cd link; \"$0\" \"$@\"", { "submit", "pwd" });
    EXPECT_EQ(Sandbox::path("link") + "\n0", runScript(linked.line()));
    EXPECT_EQ('[', zojob({ "submit", "--json", "--lines", "-" }, 0, "true")[0]);
    for (const fs::path& path : { place, place.parent_path(), place / "job" })
        EXPECT_EQ(fs::perms::owner_all, fs::status(path).permissions()) << path;
}

TEST_F(Zojob, JobEndsAsItsOptionsSay)
{
    const std::string good = Call({ "submit", "true" }).line();
    const std::string bad = Call({ "submit", "exit 3" }).line();
    fs::create_directories(".config/zojob");
    ::setenv("XDG_CONFIG_HOME", Sandbox::path(".config").c_str(), 1);
    ::setenv("SECRET", "of the user", 1);
    ::setenv("ZOJOB_SHELL", "bash", 1);
    Sandbox::write(".config/zojob/done", "#!/bin/sh\necho $ZOJOB_ID $ZOJOB_STATUS >>" +
                                             Sandbox::path("told") + "\nexit 5\n");
    fs::permissions(".config/zojob/done", fs::perms::owner_all);
    ::setenv("BASH_FUNC_f%%", "() { echo of bash; }", 1);
    fs::create_directory("gone");
    ::umask(037);
    const std::string tell =
        "echo $ZOJOB_NAME/$ZOJOB_LABEL/${ZOJOB_LOG##*/}/${PWD##*/}/$SECRET; umask";
    const std::tuple<Words, const char*, const char*, int> cases[] = {
        { { "--after", good, "echo ran" }, "ran\n", "done", 0 },
        { { "--after", bad, "echo ran" }, "ended with 3", "skipped", 126 },
        { { "--after", "last", "echo ran" }, "ended with 126", "skipped", 126 },
        { { "--after-any", good + "," + bad, "echo ran" }, "ran\n", "done", 0 },
        { { "--timeout=0.02m", "trap '' TERM; setsid sleep 77 & sleep 78" },
          "1.200 s, was over",
          "timed out",
          124 },
        { { "--timeout", "9", "cat /proc/*/cmdline 2>&- | grep -a SEC[R]ET=" }, "", "failed", 1 },
        { { "--timeout=1m", "exit 124" }, "", "failed", 124 },
        { { "--retry", "1", "echo x; exit 4" }, "4; again, 1 of 1\nx\nzojob: /", "failed", 4 },
        { { "--then", tell, "exit 2" }, "exit 2//log/world/of the user\n0037\n", "failed", 2 },
        { { "--then", "echo $ZOJOB_NAME/$ZOJOB_LABEL", "-Ll", "true" }, "l/l\n", "done", 0 },
        { { "--retry=9", "[ -e x ] || { >x; exit 4; }" }, "1 of 9\nzojob: /", "done", 0 },
        { { "--shell=sh", "bash", "-c", "f" }, "of bash\n", "done", 0 },
        { { "-Cgone", "true" }, "cannot enter", "failed", 125 },
        { { "a=(1 2)\n\n\nnosuch" }, "script: line 4: nosuch", "failed", 127 },
        { { "--shell=sh", "a\n(" }, "script: 2: Syntax error", "failed", 2 },
    };
    for (const auto& [words, output, state, status] : cases) {
        Words call = { "submit" };
        call.insert(call.end(), words.begin(), words.end());
        EXPECT_EQ(0, Call(call).end()) << joined(call);
    }
    fs::remove("gone");
    EXPECT_EQ(0, Call({ "run" }).end());
    EXPECT_EQ(127, Call({ "wait" }).end());
    std::string told;
    int number = 2;
    for (const auto& [words, output, state, status] : cases) {
        const std::string name = std::to_string(++number);
        const std::string log = Call({ "log", name }).out();
        EXPECT_TRUE(holds(log, output)) << joined(words) << ": " << log;
        EXPECT_TRUE(holds(log, "done ended with 5")) << log;
        EXPECT_EQ(status, job(name)["exit"]) << joined(words);
        EXPECT_EQ(state, job(name)["state"]) << joined(words);
        told += name + " " + std::to_string(status) + "\n";
    }
    EXPECT_EQ(told, Sandbox::read("told"));
    EXPECT_NE(0, std::system("pgrep -fx 'sleep 7.'")) << "what the time was over for goes on";
    EXPECT_EQ(0u, zojob({ "list", "--names", "--state", "timed-out" }).find("7\t"));
    zojob({ "remove", "--failed" });
    EXPECT_EQ("", zojob({ "list", "--names", "--state", "failed,timed-out,skipped" }));
}

TEST_F(Zojob, ConditionKnowsTheEndOfJobsThatAreGone)
{
    ::setenv("LOOKS_LIKE", "ours\nzj_d=1\n    zj_after 1", 1);
    const std::string good = Call({ "submit", "true" }).line();
    const std::string bad = Call({ "submit", "exit 3" }).line();
    const std::string skipped = Call({ "submit", "--after", bad, "echo ran $ZOJOB_ID" }).line();
    const std::string behindGood = Call({ "submit", "--after", good, "true" }).line();
    EXPECT_EQ(0, Call({ "run" }).end());
    EXPECT_EQ(126, Call({ "wait", skipped }).end());
    const std::string again = Call({ "again", "-r", skipped }).line();
    const std::string late =
        Call({ "submit", "-r", "--after", good + "," + behindGood, "printenv LOOKS_LIKE" }).line();
    EXPECT_EQ(0, Call({ "wait", again, late }).end());
    EXPECT_EQ("ran " + again + "\n", Call({ "log", again }).out()) << "without the condition";
    EXPECT_EQ("echo ran $ZOJOB_ID", job(again)["description"]);
    EXPECT_EQ(0, Call({ "remove", good, again }).end());
    EXPECT_EQ(0, Call({ "remove", behindGood }).end());
    const std::string output = "ours\nzj_d=1\n    zj_after 1\n0";
    EXPECT_EQ(output, runScript(Call({ "again", late }).line()));
    EXPECT_EQ(output, runScript(late)) << "the removed one had ended well";
    zojob({ "quit" });                     // or it might run what comes now
    fs::remove(directory(bad) + "/exit");  // as where a kill has ended all that could tell
    EXPECT_TRUE(holds(runScript(Call({ "submit", "--after", bad, "true" }).line()), "with 143"));
    EXPECT_EQ(1, Call({ "submit", "--after", "99", "true" }).end());
    const std::string open = Call({ "submit", "true" }).line();
    const std::string behind = Call({ "submit", "--after", open, "true" }).line();
    EXPECT_TRUE(holds(runScript(behind), open + " has not run"));
    EXPECT_EQ(0, Call({ "remove", open }).end());
    EXPECT_TRUE(holds(runScript(behind), open + " has been removed"));
}

TEST_F(Zojob, NumbersCountUpAndAreNotGivenAgain)
{
    for (const char* const expected : { "1", "2", "3" })
        EXPECT_EQ(expected, Call({ "submit", "-L", expected, "true" }).line());
    EXPECT_EQ(0, Call({ "remove", "2-3" }).end());
    EXPECT_EQ(0u, server->request("tester list\n").find("1\n")) << "the server knows of both";
    EXPECT_FALSE(fs::exists(fs::path(directory("1")).parent_path() / "job-2"));
    std::vector<std::unique_ptr<Call>> calls;
    std::set<std::string> names;
    for (int i = 0; i < 15; ++i)  // all at the same time
        calls.push_back(std::make_unique<Call>(Words{ "submit", "--lines", "-" }, "true\ntrue\n"));
    for (const auto& call : calls)
        for (const std::string& name : split(call->out()))
            names.insert(name);
    EXPECT_EQ(30u, names.size());
    EXPECT_EQ(31u, jobs().size());
    EXPECT_EQ(0u, names.count("2") + names.count("3")) << "somebody may still mean the removed";
    EXPECT_EQ("1", job("1")["description"]);
    const fs::path state = Sandbox::home() + "/.local/state/zojob";
    for (const char* const left : { "job-98", "job-99" })
        fs::create_directory(state / left);
    for (const char* const old : { "job-1", "job-99", "swept" })
        fs::last_write_time(state / old, fs::file_time_type::clock::now() - std::chrono::hours(25));
    Sandbox::write(state / "next", "damage");
    EXPECT_EQ("2", Call({ "submit", "true" }).line()) << "the directories alone make them unique";
    EXPECT_FALSE(fs::exists(state / "job-99")) << "of a submission that died";
    EXPECT_TRUE(fs::exists(state / "job-98") && fs::exists(state / "job-1"));
    ::setenv("XDG_STATE_HOME", Sandbox::path("white space").c_str(), 1);
    EXPECT_EQ("1", Call({ "submit", "-L", "elsewhere", "true" }).line());
    EXPECT_EQ("elsewhere", job("1")["description"]) << "what submit has just called so";
    const std::string place = fs::path(directory("1")).parent_path();
    EXPECT_EQ(0u, place.find("/var/tmp/zojob-")) << place;
    ::chmod(place.c_str(), 0777);
    EXPECT_EQ(1, Call({ "submit", "true" }).end()) << "others could write there";
    EXPECT_EQ(0, Call({ "remove", "1" }).end());
    fs::remove_all(place);
}

TEST_F(Zojob, OutputAndScriptsThatNobodyTakes)
{
    Call closed("{ trap '' PIPE; while echo; do :; done 2>&-; trap - PIPE; "
                "\"$0\" \"$@\"; echo $? >&2; } | :",
                { "list", "--json" });
    EXPECT_EQ("0\n", closed.err());
    ::setenv("XDG_STATE_HOME", Sandbox::path("other").c_str(), 1);
    Call limited("ulimit -f 200; exec \"$0\" \"$@\"", { "submit", "-" },
                 std::string(300000, '#') + "\ntrue\n");
    EXPECT_EQ(1, limited.end());
    EXPECT_TRUE(holds(limited.err(), "File too large")) << limited.err();
    EXPECT_FALSE(fs::exists("other/zojob/job-1")) << "half a job";
}
