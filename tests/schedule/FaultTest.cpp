// A saving process that is killed, or whose disk is full, leaves the queue before or the queue
// after: never another.

#include "schedule/ZoJobList.h"
#include "tests/support/Sandbox.h"

#include <algorithm>
#include <csignal>
#include <cstdlib>
#include <fcntl.h>
#include <random>
#include <sys/ptrace.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

namespace
{
/// A queue of n jobs in a home directory, which it brings back and judges.
class SavedQueue
{
public:
    explicit SavedQueue(int n, const std::string& inHome = Sandbox::home()) : home(inHome)
    {
        file = home + "/.zojobs-node1";
        directory = Sandbox::path("jobs");
        ::mkdir(directory.c_str(), 0700);
        for (int i = 1; i <= n; ++i) {
            Sandbox::write(directory + "/." + std::to_string(i), "");
            before += "10:" + std::string(60, 'x') + " \\: \\\\:job " + std::to_string(i) + ":" +
                      directory + ":" + std::to_string(i) + ":0:0:0:-1\n";
        }
        Sandbox::write(file, before);
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

    std::string home, file, directory, before;
};

/// Runs the change in a child and kills it at its n-th entry to or exit from a system call. Returns
/// whether it lived so long.
bool killAtSystemCall(const SavedQueue& queue, int n)
{
    const pid_t pid = ::fork();
    if (pid == 0) {
        ::ptrace(PTRACE_TRACEME, 0, nullptr, nullptr);
        ::raise(SIGSTOP);
        queue.change();
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

/// Leaves so many pages of the small file system free, changes the queue, and frees the rest again.
void changeOnFullDisk(const SavedQueue& queue, int freePages)
{
    const std::string filler = queue.home + "/filler";
    const int fd = ::open(filler.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600);
    const std::string page(4096, 'x');
    long filled = 0;
    while (::write(fd, page.data(), page.size()) > 0)
        ++filled;
    EXPECT_EQ(0, ::ftruncate(fd, std::max(filled - freePages, 0L) * (long)page.size()));
    ::close(fd);
    queue.change();
    ::unlink(filler.c_str());
}
}  // namespace

TEST(Faults, KillAtEverySystemCall)
{
    const SavedQueue queue(5);
    int n = 1;
    for (; killAtSystemCall(queue, n); ++n)
        ASSERT_TRUE(queue.isWhole()) << "killed at stop " << n << " of its system calls";
    EXPECT_GT(n, 60) << "the change was not followed through its system calls";
}

TEST(Faults, KillAtAnyMoment)
{
    const char* const wanted = std::getenv("KELVO_KILLS");  // script/soak asks for more
    const int kills = wanted ? std::atoi(wanted) : 150;
    const SavedQueue queue(300);
    std::mt19937 random(std::random_device{}());
    std::uniform_int_distribution<int> microseconds(0, 5000);
    for (int i = 0; i < kills; ++i) {
        const pid_t pid = ::fork();
        if (pid == 0) {
            for (;;)
                queue.change();
        }
        ::usleep(microseconds(random));
        ::kill(pid, SIGKILL);
        ::waitpid(pid, nullptr, 0);
        ASSERT_TRUE(queue.isWhole()) << "kill " << i;
    }
}

TEST(Faults, FileSizeLimit)
{
    const SavedQueue queue(100);
    const long size = (long)queue.before.size();
    int untouched = 0;
    for (int level = 0; level <= 20; ++level) {
        const pid_t pid = ::fork();
        if (pid == 0) {
            const rlim_t bytes = size * level / 10;
            const struct rlimit limit = { bytes, bytes };
            ::signal(SIGXFSZ, SIG_IGN);
            ::setrlimit(RLIMIT_FSIZE, &limit);
            queue.change();
            ::_exit(0);
        }
        ::waitpid(pid, nullptr, 0);
        untouched += Sandbox::read(queue.file) == queue.before;
        ASSERT_TRUE(queue.isWhole()) << "limit of " << size * level / 10 << " bytes";
    }
    EXPECT_GT(untouched, 5);
    EXPECT_LT(untouched, 15);
}

TEST(Faults, FullDisk)
{
    const std::string disk = Sandbox::smallDisk();
    if (disk.empty())
        GTEST_SKIP() << "no file system can be mounted here; FileSizeLimit has to do";
    const SavedQueue queue(200, disk);
    int untouched = 0;
    for (int freePages = 0; freePages < 20; ++freePages) {
        changeOnFullDisk(queue, freePages);
        untouched += Sandbox::read(queue.file) == queue.before;
        ASSERT_TRUE(queue.isWhole()) << freePages << " free pages";
    }
    EXPECT_GT(untouched, 2);
    EXPECT_LT(untouched, 18);
}
