// The job record and the job list, in this process; jobs run in forks of it.

#include "schedule/ZoJobList.h"
#include "tests/sandbox/Process.h"
#include "tests/sandbox/Sandbox.h"

#include <csignal>
#include <dlfcn.h>
#include <fcntl.h>
#include <filesystem>
#include <gtest/gtest.h>
#include <limits>
#include <netdb.h>
#include <poll.h>
#include <pwd.h>
#include <regex>
#include <sstream>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

namespace fs = std::filesystem;

static struct Fakes {
    time_t time = 1700000000;  // 22:13:20 UTC
    bool forkFails = false;
    bool isUnknown = false;              // the user, to the password database
    const char* officialHost = nullptr;  // of this machine; none: its name does not resolve
    std::function<void()> onDeletion;    // before each
    std::function<void(pid_t)> onSignal;
} fakes;

// These replace libc's, for the libraries too.
#pragma GCC visibility push(default)
extern "C" time_t time(time_t*) noexcept
{
    return fakes.time;
}

extern "C" pid_t fork() noexcept
{
    static const auto realFork = (pid_t(*)())::dlsym(RTLD_NEXT, "fork");
    return fakes.forkFails ? -1 : realFork();
}

extern "C" passwd* getpwuid(uid_t user)
{
    static const auto realEntry = (passwd * (*)(uid_t))::dlsym(RTLD_NEXT, "getpwuid");
    return fakes.isUnknown ? nullptr : realEntry(user);
}

extern "C" hostent* gethostbyname(const char*)
{
    static hostent entry = {};
    entry.h_name = const_cast<char*>(fakes.officialHost);
    return fakes.officialHost ? &entry : nullptr;
}

extern "C" int kill(pid_t pid, int signal) noexcept
{
    if (!fakes.onSignal)
        return (int)::syscall(SYS_kill, pid, signal);
    fakes.onSignal(signal == SIGTERM ? pid : -1);
    return 0;
}

extern "C" int unlinkat(int directory, const char* path, int flags) noexcept
{
    if (fakes.onDeletion)
        fakes.onDeletion();
    return (int)::syscall(SYS_unlinkat, directory, path, flags);
}
#pragma GCC visibility pop

/// The queue of the test's user, and a directory "d" with the markers of jobs.
class JobList : public ::testing::Test
{
protected:
    ZoJobList list;

    JobList()
    {
        ZoJobList::logFile = "scheduler.log";
        fs::create_directory("d");
        for (const char* marker : { "d/.1", "d/.2", "d/.3", "d/.4", "d/.5000000000" })
            Sandbox::write(marker, "");
    }

    void TearDown() override { fakes = Fakes(); }

    static std::string queue() { return Sandbox::read(Sandbox::queueFile()); }

    void load(const std::string& text)
    {
        Sandbox::write(Sandbox::queueFile(), text);
        list.update();
    }
};

TEST_F(JobList, EveryPrefixLoadsOnlyJobsThatWereSaved)
{
    std::string colons;
    while (colons.size() < 5000)
        colons += "\\:";
    const std::string whole = "10:::d:1:0:0:0:-1\n11:\\::\\\\:d:2:5000000001:0:0:4711\n"
                              "12:\\\\\\:12\\:x::d:3:1:2:3:4\n13:a b\\\\:\" \":d:4:0:0:0:-1\n10:" +
                              colons + "::d:5000000000:0:0:0:-1\n";
    load(whole);
    class OwnJob : public ZoJob
    {
    };
    UtDArray<UtHandle<ZoJob>> loaded;
    loaded.append(new OwnJob);
    loaded.append(UtHandle<ZoJob>());
    list.readQueue(whole.c_str(), loaded);
    EXPECT_FALSE(dynamic_cast<OwnJob*>((ZoJob*)loaded[0])) << "an object of the caller's class";
    for (size_t n = 0; n <= whole.size(); ++n) {
        list.readQueue(whole.substr(0, n).c_str(), loaded);
        for (long i = 0; i < loaded.size(); ++i) {
            UtHandle<ZoJob> saved = list.find(loaded[i], list.jobs);
            ASSERT_TRUE(saved) << "job " << loaded[i]->id << " made up from " << n << " bytes";
            EXPECT_STREQ(saved->command, loaded[i]->command);
        }
    }
    fs::remove(Sandbox::queueFile());
    list.update();  // no file: nothing changes
    list.writeQueue(list.jobs);
    EXPECT_EQ(whole, queue());
    load("\n\nstray:9:4294967306:14\n10:a::d:1:0:0:0:-1\n\n12x:b:\\\n:d: 2z:+1:-2:3:4294967297\n"
         "10:no marker::d:7:0:0:0:-1\n10:cut:x\n12:b::d:1:0:0:0:-1\n" +
         std::string("\0zeros\0\n", 8) +
         "13:c::d/:1:0:0:0:-1\n13:d::d/:2:0:0:0:-1\n10:only a command");
    list.writeQueue(list.jobs);
    EXPECT_EQ("10:a::d:1:0:0:0:-1\n12:b:\n:d:2:1:-2:3:0\n"
              "13:c::d/:1:0:0:0:-1\n13:d::d/:2:0:0:0:-1\n",
              queue());
}

TEST_F(JobList, BelongsToTheUserAndTheHost)
{
    ::setenv("USER", "\xc3\xa9mile", 1);
    EXPECT_STREQ("tester", ZoJobList().user);
    fakes.isUnknown = true;
    EXPECT_STREQ("\xc3\xa9mile", ZoJobList().user);
    EXPECT_EQ(Sandbox::home(), (const char*)ZoJobList().homeDirectory);
    for (const char* name : { "USER", "HOME" })
        ::unsetenv(name);
    EXPECT_STREQ("user", ZoJobList().user);
    EXPECT_STREQ("/", ZoJobList().homeDirectory);
    ::setenv("HOME", Sandbox::home().c_str(), 1);
    EXPECT_STREQ("node1", ZoJobList().hostName);
    fakes.officialHost = "node1.example.org";
    EXPECT_STREQ("node1.example.org", ZoJobList().hostName);
}

TEST_F(JobList, ReadsWhatIsThereWhileSomebodyHoldsTheLock)
{
    load("10:a::d:1:0:0:0:-1\n");
    list.lockQueue();
    const double start = now();
    EXPECT_EQ(1, ZoJobList().jobs.size());
    EXPECT_GT(10, now() - start) << "who only reads waits 2 seconds";
    list.unlockQueue();
    const Process holder([] {
        ZoJobList other;
        other.lockQueue();
        Sandbox::write("held", "");
        ::usleep(300000);
        Sandbox::write("let go", "");
        return 0;
    });
    ASSERT_TRUE(Sandbox::waitFor([] { return fs::exists("held"); }));
    struct sigaction action = {};  // without SA_RESTART
    action.sa_handler = [](int) {};
    ::sigaction(SIGALRM, &action, nullptr);
    ::ualarm(50000, 0);
    list.lockQueue();
    EXPECT_TRUE(fs::exists("let go")) << "a signal is taken for the lock";
    list.unlockQueue();
}

TEST_F(JobList, LineOfAListBecomesAJob)
{
    const std::pair<const char*, std::string> cases[] = {
        { "12 \"make  all\" \"\" /d 5000000001 5000000002 5000000009 -3 more",
          "12|make  all||/d|5000000001|5000000002|5000000009|-3|-1" },
        { "", "0||||0|0|0|0|-1" },
        { "99 x", "99|x|||0|0|0|0|-1" },
        { "4294967306 a b c +7z 8 x 9", "0|a|b|c|7|8|0|9|-1" },
    };
    for (const auto& [line, wanted] : cases) {
        const UtHandle<ZoJob> job = ZoJob::createFromMessage(line);
        std::ostringstream found;
        found << job->state << '|' << job->command << '|' << job->description << '|'
              << job->directory << '|' << job->id << '|' << job->startTime << '|' << job->endTime
              << '|' << job->reserved << '|' << job->pid;
        EXPECT_EQ(wanted, found.str()) << line;
    }
}

TEST_F(JobList, FindsAndRemovesWhatWasSubmitted)
{
    list.submit("a", nullptr, "d");
    list.submit("b", "x:y\\", "d");
    list.submit("c", "", "");
    const std::string fresh(list.jobs[2]->directory), end = ":1700000000:0:0:0:-1\n";
    EXPECT_EQ("10:a::d" + end + "10:b:x\\:y\\\\:d" + end + "10:c::" + fresh + end, queue());
    EXPECT_EQ((fs::perms)0775, fs::status(fresh).permissions());
    EXPECT_EQ((fs::perms)0664, fs::status("d/.1700000000").permissions());
    EXPECT_EQ(list.jobs[0], list.find(list.jobs[1], list.jobs)) << "the earlier one of a pair";
    EXPECT_EQ(0, list.remove(list.jobs[2]));
    EXPECT_FALSE(fs::exists(fresh));
    UtHandle<ZoJob> job = list.jobs[0];
    fs::remove("d/.1700000000");
    EXPECT_EQ(-1, list.remove(job));
    EXPECT_TRUE(fs::exists("d"));
    UtDArray<UtHandle<ZoJob>> both;
    for (const char* const name : { "e", "f" }) {
        fs::create_directory(name);
        list.submit(name, "", name);
        both.append(list.jobs[list.jobs.size() - 1]);
    }
    Sandbox::write(Sandbox::queueFile(), "11" + queue().substr(2));
    list.remove(both);
    EXPECT_EQ("11:e::e" + end, queue()) << "it runs meanwhile";
}

TEST_F(JobList, NeverDeletesTheHomeOrADirectoryThatHoldsIt)
{
    fs::create_directories("d/home/me/keep");
    fs::create_directories("d/home/m/job");
    fs::create_directory_symlink("home/me", "d/link");
    fs::create_directory_symlink("d/home/me", "me");
    list.homeDirectory = "me";
    for (const char* kept : { "d/home", "d/home/me/", "d/link", "d/home/m/../me/.", "d/home/m" }) {
        list.submit("x", "", kept);
        EXPECT_EQ(0, list.remove(list.jobs[0])) << kept;
        EXPECT_FALSE(fs::exists(kept + std::string("/.1700000000"))) << kept;
        EXPECT_TRUE(fs::exists("d/home/me/keep") && fs::exists("d/link")) << kept;
    }
    EXPECT_FALSE(fs::exists("d/home/m")) << "this one holds nothing of the home";
}

TEST_F(JobList, DeletesTheDirectoryThatItHasJudgedWhateverItsNameLeadsToMeanwhile)
{
    fs::create_directory("documents");
    Sandbox::write("documents/.1700000000", "precious");
    list.submit("x", "", "d");
    fakes.onDeletion = [] {
        fakes.onDeletion = nullptr;
        fs::rename("d", "swapped");
        fs::create_directory_symlink("documents", "d");
    };
    EXPECT_EQ(0, list.remove(list.jobs[0]));
    EXPECT_TRUE(fs::is_empty("swapped"));
    EXPECT_EQ("precious", Sandbox::read("documents/.1700000000"));
}

TEST_F(JobList, DeletesTheRestOfALargeDirectoryWhileNobodyWaits)
{
    for (int i = 0; i < 100; ++i)
        Sandbox::write("d/" + std::to_string(i), "");
    list.submit("x", "", "d");
    int inherited[2];
    ASSERT_EQ(0, ::pipe(inherited));
    fakes.onDeletion = [] { ::usleep(30000); };  // too long for a client, with all of them
    EXPECT_EQ(0, list.remove(list.jobs[0]));
    EXPECT_FALSE(fs::exists("d"));
    const auto isLeft = [] { return std::system("ls -d .kelvo-removed* >ls 2>&1") == 0; };
    EXPECT_TRUE(isLeft());
    ::close(inherited[1]);
    struct pollfd wait = { inherited[0], POLLIN, 0 };
    EXPECT_EQ(1, ::poll(&wait, 1, 500)) << "who deletes holds what a client may wait for";
    EXPECT_TRUE(Sandbox::waitFor([&] { return !isLeft(); }));
    EXPECT_EQ(-1, ::waitpid(-1, nullptr, WNOHANG)) << "a zombie";
}

TEST_F(JobList, TakesNothingOfOthersForItsOwn)
{
    if (::geteuid() != 0)
        GTEST_SKIP() << "only root can have a second user id here";
    ::umask(0);
    for (const char* place :
         { "marker-link", "marker-other", "log-link", "log-own-link", "log-other", "log-pipe" })
        fs::create_directory(place);
    for (const char* file : { "precious", "emptied" })
        Sandbox::write(file, "text");
    fs::create_symlink("../precious", "marker-link/.1");
    fs::create_symlink("../emptied", "log-own-link/log");
    fs::permissions("emptied", fs::perms::owner_write);  // becomes readable, too
    fs::create_directory_symlink("log-own-link", "link");
    ::mkfifo("log-pipe/log", 0666);
    Sandbox::asStranger([] {
        Sandbox::write("marker-other/.1", "");
        Sandbox::write("log-other/log", "text");
        fs::create_symlink("../precious", "log-link/log");
    });
    load("10:x::marker-link:1:0:0:0:-1\n10:x::marker-other:1:0:0:0:-1\n");
    EXPECT_EQ(0, list.jobs.size());
    for (const char* directory : { "log-link", "link", "log-other", "log-pipe" }) {
        list.submit("echo out", "", directory);
        EXPECT_EQ(1, list.run(nullptr));
        ::waitpid(list.jobs[list.jobs.size() - 1]->pid, nullptr, 0);
    }
    for (const char* file : { "log-link/log", "log-other/log", "new.log" }) {
        ZoJobList::logFile = file;
        ZoJobList::log("a line\n");
    }
    EXPECT_EQ("text", Sandbox::read("precious"));
    EXPECT_EQ("Starting \"echo out\"\nout\n", Sandbox::read("emptied"));
    EXPECT_EQ("textStarting \"echo out\"\nout\n", Sandbox::read("log-other/log"));
    EXPECT_EQ((fs::perms)0600, fs::status("new.log").permissions());
    const std::string lock = "home/.zojobs.lock-node1",  // a whole journal, as protocol.md shows it
        journal = "kelvo-undo 00000000000000000047 73a7e4d2d7a21209 00000000000000000090 "
                  "b9353892c9648c21\n10:make all::/home/ann/run:1700000000:0:0:0:-1\n";
    fs::permissions("home", fs::perms::all);
    for (const int mode : { 0, 0600, 0400 }) {  // the first is a stranger's
        fs::remove(lock);
        const auto leave = [&] { Sandbox::write(lock, journal); };
        mode ? leave() : Sandbox::asStranger(leave);
        Sandbox::write(Sandbox::queueFile(), "10:x::d:1:0:0:0:-1\n");
        ::chmod(Sandbox::queueFile().c_str(), mode ? mode : 0600);
        const int held = ::open(lock.c_str(), O_RDONLY);
        ::flock(held, mode == 0600 ? LOCK_EX : LOCK_UN);
        EXPECT_EQ(mode ? 0 : 1, ZoJobList().jobs.size()) << "locked or not";
        ::close(held);
        list.update();
        EXPECT_EQ(mode ? 0 : 1, list.jobs.size());
        EXPECT_EQ(mode == 0600 ? "" : journal, Sandbox::read(lock)) << "emptied or kept: " << mode;
    }
}

TEST_F(JobList, RunsNothingThatDoesNotWait)
{
    std::string text = "11:x::d:1:0:0:0:7\n12:x::d:2:0:0:0:7\n13:x::d:3:0:0:0:7\n";
    load(text);
    for (long i = 0; i < 3; ++i)
        EXPECT_EQ(-1, list.run(list.jobs[i])) << i;
    EXPECT_EQ(-1, list.run(new ZoJob));
    EXPECT_EQ(-1, list.run(nullptr));
    EXPECT_EQ(text, queue());
    load(text += "10:x::d:4:0:0:0:-1\n");
    fakes.forkFails = true;
    EXPECT_EQ(-1, list.run(nullptr));
    EXPECT_EQ(ZoJob::WAITING, list.jobs[3]->state);
    EXPECT_EQ(0, list.jobs[3]->startTime);
    list.update();  // would wait for ever on a lock that was left
    EXPECT_EQ(text, queue());
}

/// Puts a "ps" of ours first in PATH: a script that counts its runs in the file "looks".
static void replacePs(const std::string& script)
{
    Sandbox::write("ps", "#!/bin/sh\n[ \"$*\" = xj ] && echo >> looks && " + script);
    fs::permissions("ps", fs::perms::owner_all);
    ::setenv("PATH", (Sandbox::path() + ":" + ::getenv("PATH")).c_str(), 1);
}

TEST_F(JobList, KillSavesFirstAndThenSignalsTheTreeFromItsTop)
{
    // Process ids that no process can have: 9000001 has 2, which has 3 and 4; 3 has 5. At the
    // second look 2 has ended and left its children to 1, 4 has got 6, and 7 is new.
    replacePs("[ -z \"$PS_FORMAT\" ] && cat own listing$(grep -c . -v looks)");
    ::setenv("PS_FORMAT", "cmd", 1);
    Sandbox::write("own", "   PPID     PID    PGID COMMAND\n" + std::to_string(::getppid()) + " " +
                              std::to_string(::getpid()) + " 1 sh\n     -1 9000008 1 sh\n");
    Sandbox::write("listing1", "9000003 9000005 1 sh\n9000002 9000003 1 sh\n9000002 9000004 1 sh\n"
                               "9000001 9000002 1 sh\n      1 9000001 1 sh\n");
    Sandbox::write("listing2",
                   "9000003 9000005 1 sh\n9000001 9000003 1 sh\n9000001 9000004 1 sh\n"
                   "9000004 9000006 1 sh\n9000001 9000007 1 sh\n9000007 9000001 1 sh\n");
    fs::copy("listing2", "listing3");
    load("11:tree::d:1:0:0:0:9000001\n11:lost::d:2:0:0:0:-1\n11:lost::d:3:0:0:0:0\n"
         "12:over::d:4:0:0:0:9000008\n");
    std::string order;
    fakes.onSignal = [&](pid_t pid) {
        EXPECT_EQ("13:tree::d:1:0:1700000000:0:9000001\n13:lost::d:2:0:1700000000:0:-1\n"
                  "13:lost::d:3:0:1700000000:0:0\n12:over::d:4:0:0:0:9000008\n",
                  queue());
        order += std::to_string(pid) + " ";
    };
    EXPECT_EQ(1, list.kill());
    EXPECT_EQ("9000002 9000003 9000004 9000005 9000007 9000006 9000001 ", order);
    EXPECT_EQ("\n\n\n", Sandbox::read("looks")) << "one listing for each look";
    EXPECT_EQ(0, list.kill());
    fakes.onSignal = [](pid_t) {};
    load("11:lost::d:2:0:0:0:-1\n");
    ::chmod(Sandbox::queueFile().c_str(), 0400);
    EXPECT_EQ(1, list.kill());
    fakes.time += 60;
    list.saveKills();
    ::chmod(Sandbox::queueFile().c_str(), 0600);
    list.saveKills();
    EXPECT_EQ("13:lost::d:2:0:1700000000:0:-1\n", queue()) << "as soon as it can be written";
}

TEST_F(JobList, KillReachesTheTreeWhateverBecomesOfPs)
{
    fs::copy("/bin/sleep", "d/sleep) Z");  // as a zombie's line in /proc would read
    for (const char* script : { "exec cat missing", "echo 1 $$", "exec sleep 60" }) {
        replacePs(script);
        fs::remove("looks");
        // The stopped one is an orphan, and has a child.
        list.submit("(sh -c 'sleep 61 & echo up > up; kill -STOP $$' &); './sleep) Z' 60", "", "d");
        EXPECT_EQ(1, list.run(nullptr));
        UtHandle<ZoJob> job = list.jobs[list.jobs.size() - 1];
        EXPECT_TRUE(Sandbox::waitFor([] { return Sandbox::read("d/up") == "up\n"; }));
        const double start = now();
        EXPECT_EQ(1, list.kill());
        EXPECT_GT(8, now() - start) << script;
        EXPECT_EQ("\n", Sandbox::read("looks")) << "asked again";
        int status;
        EXPECT_EQ(job->pid, ::waitpid(job->pid, &status, 0));
        EXPECT_EQ(SIGTERM, status);
        EXPECT_TRUE(Sandbox::waitFor([] {
            return ProcessTable::descendants(::getppid()).find("(sleep") == std::string::npos;
        })) << script
            << ProcessTable::descendants(::getppid());
        fs::remove("d/up");
    }
}

TEST_F(JobList, CommandInheritsNothingAndKeepsItsOutputInOrder)
{
    const std::string command =
        "while read name value; do case $name$value in Sig[BI]*00000) echo $name; esac; "
        "done < /proc/self/status; "  // before it waits for a program, which changes the signals
        "for f in /proc/$$/fd/*; do [ -e $f ] && echo ${f##*/}; done; "
        "(true &); sleep 0.2; ps o stat= --ppid $PPID | grep -c Z; "
        "echo error >&2; echo end; exit 3";
    list.port = Sandbox::freePort();
    list.submit(command.c_str(), "", "d");
    const int inherited = ::open("/dev/null", O_RDONLY);
    const sighandler_t child = ::signal(SIGCHLD, SIG_IGN);
    sigset_t all, before;
    ::sigfillset(&all);
    ::sigprocmask(SIG_BLOCK, &all, &before);
    EXPECT_EQ(1, list.run(nullptr));
    ::sigprocmask(SIG_SETMASK, &before, nullptr);
    ::signal(SIGCHLD, child);
    ::close(inherited);
    const std::string end = ":d:1700000000:1700000000:", pid = std::to_string(list.jobs[0]->pid);
    EXPECT_EQ(0U, queue().find("11:")) << queue();
    EXPECT_NE(std::string::npos, queue().find(end + "0:0:" + pid + "\n")) << queue();
    EXPECT_TRUE(Sandbox::waitFor([] { return queue().find("12:") == 0; })) << queue();
    EXPECT_NE(std::string::npos, queue().find(end + "1700000000:0:" + pid + "\n")) << queue();
    const std::string log = Sandbox::read("scheduler.log");
    EXPECT_TRUE(std::regex_search(log, std::regex("\\d\\d:13\\.20 +\\d+: executing \"while")))
        << log;
    EXPECT_EQ((fs::perms)0644, fs::status("d/log").permissions()) << "as the umask allows";
    EXPECT_EQ("Starting \"" + command + "\"\nSigBlk:\nSigIgn:\n0\n1\n2\n0\nerror\nend\n",
              Sandbox::read("d/log"));
}

TEST_F(JobList, AKilledJobWhoseChildLivesOnStaysKilled)
{
    list.submit("true", "", "d");
    EXPECT_EQ(1, list.run(nullptr));
    fakes.onSignal = [](pid_t) {};
    EXPECT_EQ(1, list.kill());
    EXPECT_EQ(list.jobs[0]->pid, ::waitpid(list.jobs[0]->pid, nullptr, 0));
    EXPECT_EQ(0U, queue().find("13:")) << queue();
    fakes.onSignal = nullptr;
    fakes.time = 5000000000;  // the machine was not started since
    list.submit("true", "", "d");
    EXPECT_EQ(1, list.run(nullptr));
    const int pid = list.jobs[1]->pid;
    siginfo_t end;
    EXPECT_EQ(0, ::kill(pid, SIGKILL) + ::waitid(P_PID, pid, &end, WEXITED | WNOWAIT));
    list.reapChildren();
    EXPECT_EQ(1, list.endLostJobs()) << "somebody else may have got its number";
}

TEST_F(JobList, RunTimesAreNeverNegativeAndAlwaysFit)
{
    const long long most = std::numeric_limits<long long>::max(), now = fakes.time,
                    least = std::numeric_limits<long long>::min();
    // State, start, end and run time.
    const long long cases[][4] = {
        { ZoJob::RUNNING, now - 60, 0, 60 }, { ZoJob::RUNNING, now + 3600, 0, 0 },
        { ZoJob::DONE, 100, 160, 60 },       { ZoJob::KILLED, 160, 100, 0 },
        { ZoJob::DONE, least, most, most },  { ZoJob::DONE, most, least, 0 },
        { ZoJob::RUNNING, least, 0, most },  { ZoJob::WAITING, 0, 0, 0 }
    };
    for (const auto& [state, start, end, runTime] : cases) {
        ZoJob job;
        job.state = (int)state;
        job.startTime = start;
        job.endTime = end;
        EXPECT_EQ(runTime, job.runTime()) << state << " from " << start << " to " << end;
    }
}
