// What a person at a terminal meets: watching, waiting, interrupts, completions, full disks.

#include "tests/zojob/ViewFixture.h"

#include <csignal>
#include <pty.h>
#include <sys/ioctl.h>
#include <sys/wait.h>
#include <termios.h>

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
        EXPECT_TRUE(holds(waiting.err(), "goes on: 'zojob wait " + name(4) + "'")) << waiting.err();
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

/// A command on a terminal of its own.
class Watched
{
public:
    int terminal = -1;
    pid_t pid;

    explicit Watched(struct winsize size, Words words = { "list", "--watch=60" })
    {
        pid = ::forkpty(&terminal, nullptr, nullptr, &size);
        if (pid == 0) {
            ::setenv("TERM", "xterm", 1);
            char* const argv[] = { (char*)"zojob", words[0].data(),
                                   words.size() > 1 ? words[1].data() : nullptr, nullptr };
            ::execv(KELVO_BUILD_DIR "/bin/zojob", argv);
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
        EXPECT_TRUE(watched.shows(enter) && watched.shows("running") && watched.shows("waiting") &&
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

TEST_F(View, TerminalHasItsWidthAndSeesWhatIsWaitedFor)
{
    const struct winsize narrow = { 24, 40, 0, 0 };
    const std::string counts = "2 waiting, 1 running, 1 done, 2 failed,";
    EXPECT_TRUE(Watched(narrow, { "list" }).shows(counts + "\u2026\r\n"));
    EXPECT_TRUE(Watched(narrow, { "list", "--wide" }).shows(counts + " 1 killed\r\n"));
    EXPECT_TRUE(Watched(narrow, { "list", "--color=never" }).shows("waiting  -"));
    EXPECT_TRUE(Watched(narrow, { "wait", name(4) }).shows(name(4) + ": it has run 1:"));
    EXPECT_TRUE(Watched(narrow, { "wait" }).shows("3 of 3 jobs: " + name(4) + " has run 1:"));
    Call help("for c in '' submit list kill; do \"$0\" help $c; done | grep -E '.{80}'", {});
    EXPECT_EQ("", help.out());
    EXPECT_TRUE(holds(Call({ "--nonsense" }).err(), "no option is named '--nonsense'; see"));
    EXPECT_TRUE(std::regex_match(zojob({ "-V" }), std::regex("zojob [0-9]+(\\.[0-9]+)*\n")));
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
    Sandbox::write("file", "");
    Sandbox::write("place6/$(x)/." + name(6), "");
    save();
    const std::string twin = name(6) + ":" + Sandbox::path("place6");
    const std::string both = twin.substr(twin.find(':') + 1);
    const std::pair<std::string, std::string> cases[] = {
        { "zojob rem", "remove" },
        { "zojob list --wi", "--wide" },
        { "zojob wait --ti", "--timeout" },
        { "zojob kill " + name(4).substr(0, 9) + "4", name(4) },
        { "zojob kill " + name(3), "" },
        { "zojob wait " + name(3), "" },
        { "zojob run " + name(4), "" },
        { "zojob log " + name(3), name(3) },
        { "zojob log -n ", "" },
        { "zojob log --lines fi", "" },
        { "zojob submit --lines fi", "file" },
        { "zojob submit -C tru", "" },
        { "zojob --root fi", "" },
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
        { "zojob kill " + twin + "/", both + "/\\$\\(x\\)" }
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
