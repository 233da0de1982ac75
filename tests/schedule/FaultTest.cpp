// A saving process that is killed, or whose disk is full, leaves the queue before or the queue
// after: never another.

#include "schedule/ZoJobList.h"
#include "tests/sandbox/Process.h"
#include "tests/sandbox/Sandbox.h"

#include <algorithm>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <sys/prctl.h>
#include <sys/ptrace.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

namespace fs = std::filesystem;

extern int theGoodCalls, theBadCalls;  // see PowerCutTest.cpp

// This replaces the C library's, inside the libraries too: nobody waits here for a slow client.
extern "C" __attribute__((visibility("default"))) unsigned sleep(unsigned)
{
    ::usleep(1000);
    return 0;
}

namespace
{
/// A queue of n jobs in a home directory, which it brings back and judges.
class SavedQueue
{
public:
    explicit SavedQueue(int n, const std::string& inHome = Sandbox::home())
        : home(inHome), file(home + "/.zojobs-node1")
    {
        ::mkdir(directory.c_str(), 0700);
        for (int i = 1; i <= n; ++i) {
            Sandbox::write(directory + "/." + std::to_string(i), "");
            before += waiting(std::string(60, 'x') + " \\: \\\\:job " + std::to_string(i), i);
        }
        Sandbox::write(file, before);
    }

    /// The record of the job with a command and a description, "COMMAND:DESCRIPTION".
    std::string waiting(const std::string& text, int id) const
    {
        return "10:" + text + ":" + directory + ":" + std::to_string(id) + ":0:0:0:-1\n";
    }

    /// One change: the queue grows by a job, which the last change may have added already.
    void change() const
    {
        ZoJobList list;
        list.homeDirectory = home.c_str();
        list.submit("added", "", directory.c_str());
    }

    /// Whether the queue is the one before or holds the same jobs and the added ones; then brings
    /// back the one before. Looks first as a server does that starts, then as one that changes.
    bool isWhole() const
    {
        ZoJobList list;
        UtString seen, recovered;
        list.homeDirectory = home.c_str();
        list.readQueue(list.jobs);
        list.writeQueue(seen, list.jobs);
        list.update();
        list.writeQueue(recovered, list.jobs);
        const std::string text((const char*)seen);
        const bool isSame = text == (const char*)recovered;
        const std::string added = text.substr(std::min(text.size(), before.size()));
        if (text.size() > before.size())
            Sandbox::write(file, before);
        return isSame && text.compare(0, before.size(), before) == 0 &&
               (added.empty() || added.compare(0, 9, "10:added:") == 0);
    }

    std::string directory = Sandbox::path("jobs"), home, file, before;
};

/// Runs the change in a child and kills it at its n-th entry to or exit from a system call. Returns
/// whether it lived so long.
bool killAtSystemCall(const std::function<void()>& change, int n)
{
    const pid_t pid = ::fork();
    if (pid == 0) {
        ::ptrace(PTRACE_TRACEME, 0, nullptr, nullptr);
        ::raise(SIGSTOP);
        change();
        ::_exit(0);
    }
    int status = 0;
    ::waitpid(pid, &status, 0);
    for (int i = 0; i < n && WIFSTOPPED(status); ++i) {
        ::ptrace(PTRACE_SYSCALL, pid, nullptr, nullptr);
        ::waitpid(pid, &status, 0);
    }
    if (!WIFSTOPPED(status))
        return false;
    ::kill(pid, SIGKILL);
    ::waitpid(pid, &status, 0);
    return true;
}
}  // namespace

TEST(Faults, KillAtEverySystemCall)
{
    const SavedQueue queue(5);
    int n = 1;
    for (; killAtSystemCall([&] { queue.change(); }, n); ++n)
        ASSERT_TRUE(queue.isWhole()) << "killed at stop " << n << " of its system calls";
    EXPECT_GT(n, 60) << "the change was not followed through its system calls";
}

/// Waits for all children, job children among them whose server has gone.
static void waitForChildren()
{
    while (::wait(nullptr) > 0 || errno == EINTR)
        continue;
}

TEST(Faults, AServerKilledInTheMiddleOfAStartRunsTheJobOnceOrLeavesItWaiting)
{
    const SavedQueue queue(1);
    const std::string ran = queue.directory + "/ran";
    Sandbox::write(queue.file, queue.waiting("echo x >>ran:", 1));
    ::prctl(PR_SET_CHILD_SUBREAPER, 1);
    const auto start = [] { ZoJobList().run(nullptr); };
    int waited = 0;
    bool isKilled = true;
    for (int n = 1; isKilled; ++n) {
        const std::string before = Sandbox::read(queue.file);
        isKilled = killAtSystemCall(start, n);
        waitForChildren();
        ZoJobList list;
        list.update();
        ASSERT_EQ(1, list.jobs.size());
        const bool waits = list.jobs[0]->state == ZoJob::WAITING;
        ASSERT_EQ(waits ? "" : "x\n", Sandbox::read(ran)) << "killed at stop " << n;
        ASSERT_TRUE(waits || list.jobs[0]->state == ZoJob::DONE) << "killed at stop " << n;
        waited += waits;
        ::unlink(ran.c_str());
        Sandbox::write(queue.file, before);
    }
    EXPECT_GT(waited, 40) << "the start was not followed through its system calls";
}

TEST(Faults, TwoServersStartNoJobTwiceAndLoseNone)
{
    const int jobs = 40;
    const SavedQueue queue(jobs);
    std::string text;
    for (int i = 1; i <= jobs; ++i)
        text += queue.waiting("echo x >>ran" + std::to_string(i) + ":", i);
    Sandbox::write(queue.file, text);
    const auto runAll = [](const char* own, const char* other) {
        Sandbox::write(own, "");
        Sandbox::waitFor([=] { return fs::exists(other); });
        ZoJobList list;
        int started = 0;
        while (list.hasWaitingJobs()) {
            started += list.run(nullptr) == 1;
            list.submit("removed", "", "");
            list.remove(list.jobs[list.jobs.size() - 1]);
        }
        waitForChildren();
        return started > 0 ? 0 : 1;
    };
    Process first([=] { return runAll("one", "two"); });
    Process second([=] { return runAll("two", "one"); });
    EXPECT_EQ(0, first.end() + second.end()) << "one of them has started nothing";
    for (int i = 1; i <= jobs; ++i)
        EXPECT_EQ("x\n", Sandbox::read(queue.directory + "/ran" + std::to_string(i))) << i;
    text = Sandbox::read(queue.file);
    EXPECT_EQ(jobs, std::count(text.begin(), text.end(), '\n')) << text;
}

TEST(Faults, AJobThatEndsWhileTheQueueCannotBeSavedIsRecordedLater)
{
    const SavedQueue queue(20);
    Sandbox::write(queue.file,
                   queue.waiting("until [ -e end ]; do sleep 0.01; done:", 1) + queue.before);
    ZoJobList::logFile = (queue.home + "/scheduler.log").c_str();
    ZoJobList list;
    EXPECT_EQ(1, list.run(nullptr));
    rlimit all = {};
    ::getrlimit(RLIMIT_FSIZE, &all);
    const rlimit logOnly = { 1000, all.rlim_max };
    ASSERT_EQ(0, ::prlimit(list.jobs[0]->pid, RLIMIT_FSIZE, &logOnly, nullptr));
    Sandbox::write(queue.directory + "/end", "");
    EXPECT_TRUE(Sandbox::waitFor([&] {
        return Sandbox::read(queue.home + "/scheduler.log").find("saved yet") != std::string::npos;
    }));
    EXPECT_EQ(0U, Sandbox::read(queue.file).find("11:"));
    ASSERT_EQ(0, ::prlimit(list.jobs[0]->pid, RLIMIT_FSIZE, &all, nullptr));
    waitForChildren();
    EXPECT_EQ(0U, Sandbox::read(queue.file).find("12:"));
}

TEST(Faults, FullDisk)
{
    if (Sandbox::smallDisk().empty())
        GTEST_SKIP() << "no file system can be mounted here; ADiskThatFails has to do";
    const SavedQueue queue(200, Sandbox::smallDisk());
    const std::string filler = queue.home + "/filler", page(4096, 'x');
    int untouched = 0;
    for (int freePages = 0; freePages < 20; ++freePages) {
        std::ofstream file(filler);
        long filled = 0;
        while (file << page << std::flush)
            ++filled;
        file.close();
        ASSERT_EQ(0, ::truncate(filler.c_str(), (filled - freePages) * (long)page.size()));
        queue.change();
        ::unlink(filler.c_str());
        untouched += Sandbox::read(queue.file) == queue.before;
        ASSERT_TRUE(queue.isWhole()) << freePages << " free pages";
    }
    EXPECT_GT(untouched, 2);
    EXPECT_LT(untouched, 18);
}

TEST(Faults, ADiskThatFailsAtAnyCallOnceOrMore)
{
    const SavedQueue queue(5);
    for (const int failures : { 1, 2, 3, 1000 }) {
        int n = 0;
        for (bool isReached = true; isReached; ++n) {
            theGoodCalls = n;
            theBadCalls = failures;
            queue.change();
            isReached = theBadCalls < failures;
            theBadCalls = 0;
            ASSERT_TRUE(queue.isWhole()) << failures << " calls failed after " << n;
        }
        EXPECT_GT(n, 5) << "the change was not followed through its calls";
    }
    Sandbox::write(queue.file, queue.waiting("echo x >>ran:", 1));
    for (int n = 0, result = -1; result < 0; ++n) {
        theGoodCalls = n;
        theBadCalls = 1;
        result = ZoJobList().run(nullptr);
        theGoodCalls = theBadCalls = 0;
        waitForChildren();
        EXPECT_EQ(result < 0 ? "" : "x\n", Sandbox::read(queue.directory + "/ran"));
        EXPECT_EQ(result < 0 ? '0' : '2', Sandbox::read(queue.file)[1]) << "waiting, or done";
    }
}

TEST(Faults, QueueFileThatCannotBeWrittenStaysAndIsNotShadowed)
{
    const SavedQueue queue(20);
    const std::string journal = queue.home + "/.zojobs.lock-node1";
    ASSERT_EQ(0, ::chmod(queue.file.c_str(), 0400));  // the journal can be written, the queue not
    ZoJobList list;
    list.submit("added", "", queue.directory.c_str());
    EXPECT_EQ(queue.before, Sandbox::read(queue.file));
    EXPECT_EQ("", Sandbox::read(journal));
    EXPECT_EQ(-1, list.run(nullptr)) << "without a record it would run again and again";
    EXPECT_EQ("", Sandbox::read(journal));
    ASSERT_EQ(0, ::chmod(queue.file.c_str(), 0600));
    Sandbox::write(queue.file, "");  // what somebody does meanwhile counts
    list.update();
    EXPECT_EQ(0, list.jobs.size());
}

TEST(Faults, NobodyElseReadsTheQueue)
{
    const SavedQueue queue(0);
    const std::string files[] = { queue.file, queue.home + "/.zojobs.lock-node1" };
    for (const mode_t mask : { 0, 0777 }) {
        ::umask(mask);
        for (const std::string& file : files)
            ::unlink(file.c_str());
        queue.change();
        for (const std::string& file : files) {
            EXPECT_EQ((fs::perms)0600, fs::status(file).permissions())
                << file << " with umask " << mask;
        }
    }
    ::umask(022);
    Sandbox::write("precious", "kept");
    ::unlink(files[1].c_str());
    fs::create_symlink(Sandbox::path("precious"), files[1]);
    queue.change();
    EXPECT_EQ("kept", Sandbox::read("precious")) << "a lock file that is a link was followed";
    ASSERT_EQ(0, ::chmod(queue.file.c_str(), 0664));
    queue.change();
    EXPECT_EQ((fs::perms)0644, fs::status(queue.file).permissions()) << "others may write to it";
}
