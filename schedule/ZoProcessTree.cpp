#include "schedule/ZoProcessTree.h"

#include "utlib/UtClock.h"
#include "utlib/UtString.h"

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <dirent.h>
#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

static const int MOST_LOOKS = 50;          // at a tree in which new processes come all the time
static const int END_OF_PS = 100;          // milliseconds in which it must have gone
static const useconds_t END_PAUSE = 1000;  // microseconds between two looks for that

/// What /proc tells about a process.
struct Status {
    char state = 0;  ///< 0 when there is no such process
    int parent = -1;
    unsigned long long start = 0;  ///< ticks of the clock from the machine's start to its own

    explicit Status(int pid)
    {
        char path[32], text[512];
        ::snprintf(path, sizeof path, "/proc/%d/stat", pid);
        const int fd = ::open(path, O_RDONLY | O_CLOEXEC);
        if (fd < 0)
            return;
        const long n = ::read(fd, text, sizeof text - 1);
        ::close(fd);
        text[n < 0 ? 0 : n] = '\0';
        // "PID (NAME) STATE PARENT ...", and the name may hold anything.
        const char* const name = ::strrchr(text, ')');
        if (name && ::sscanf(name,
                             ") %c %d %*d %*d %*d %*d %*u %*u %*u %*u %*u %*u %*u %*d %*d %*d "
                             "%*d %*d %*d %llu",
                             &state, &parent, &start) != 3)
            state = 0;
    }
    bool isDead() const { return state == 'Z' || state == 'X'; }
};

/// Starts "ps xj" with its output on the descriptor. Returns its process id or -1. What the user's
/// environment says of the form of listings does not reach it.
static pid_t startPs(int output)
{
    static char name[] = "ps", words[] = "xj", locale[] = "LC_ALL=C";
    const char* const searched = ::getenv("PATH");
    UtString path("PATH=");
    path += searched ? searched : "/usr/bin:/bin";
    char* const arguments[] = { name, words, nullptr };
    char* const environment[] = { path.data, locale, nullptr };
    posix_spawn_file_actions_t actions;
    if (::posix_spawn_file_actions_init(&actions) != 0)
        return -1;
    pid_t pid = -1;
    if (::posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0) != 0 ||
        ::posix_spawn_file_actions_adddup2(&actions, output, STDOUT_FILENO) != 0 ||
        ::posix_spawn_file_actions_addopen(&actions, STDERR_FILENO, "/dev/null", O_WRONLY, 0) !=
            0 ||
        ::posix_spawnp(&pid, name, &actions, nullptr, arguments, environment) != 0)
        pid = -1;
    ::posix_spawn_file_actions_destroy(&actions);
    return pid;
}

/// Appends what comes until the other side closes. Returns false when it has not by the deadline.
static bool readUntil(long long deadline, int fd, UtString& text)
{
    char piece[65536];
    for (;;) {
        const long long left = deadline - UtClock::now();
        struct pollfd wait = { fd, POLLIN, 0 };
        const int ready = left > 0 ? ::poll(&wait, 1, (int)left) : 0;
        const long n = ready > 0 ? ::read(fd, piece, sizeof piece) : ready;
        if (n < 0 && errno == EINTR)
            continue;
        if (n <= 0)
            return ready > 0 && n == 0;
        text.appendText(piece, n);
    }
}

/// Collects a child that ends now. One that the kernel holds back stays uncollected.
static void collect(pid_t child)
{
    for (int i = 0; i < END_OF_PS && ::waitpid(child, nullptr, WNOHANG) == 0; ++i)
        ::usleep(END_PAUSE);
}

/// The output of "ps xj". Returns false when it cannot be started, or has not ended in time.
static bool runPs(long long deadline, UtString& text)
{
    int ends[2];
    if (::pipe2(ends, O_CLOEXEC) != 0)
        return false;
    const pid_t pid = startPs(ends[1]);
    ::close(ends[1]);
    const bool isWhole = pid > 0 && readUntil(deadline, ends[0], text);
    ::close(ends[0]);
    if (pid > 0 && !isWhole)
        ::kill(pid, SIGKILL);
    if (pid > 0)
        collect(pid);
    return isWhole;
}

bool ZoProcessTree::askPs()
{
    const long long start = UtClock::now();
    UtString text;
    const bool isWhole = runPs(start + timeForPs, text);
    timeForPs -= UtClock::now() - start;
    if (!isWhole)
        return false;
    for (const char *line = text, *next; *line; line = *next ? next + 1 : next) {
        next = ::strchrnul(line, '\n');
        char *first, *second;
        const long parent = ::strtol(line, &first, 10), own = ::strtol(first, &second, 10);
        if (first == line || second == first || second > next)
            continue;  // such as the header
        ids.append((int)own);
        parents.append((int)parent);
    }
    return isUsable();
}

void ZoProcessTree::readProc()
{
    DIR* const processes = ::opendir("/proc");
    while (const struct dirent* const entry = processes ? ::readdir(processes) : nullptr) {
        const int pid = ::atoi(entry->d_name);
        const Status status(pid);
        if (pid < 1 || !status.state)
            continue;
        ids.append(pid);
        parents.append(status.parent);
    }
    if (processes)
        ::closedir(processes);
}

/// Whether the look has shown at least this process, as it is. Another program under the name of
/// ps, or the /proc of other process ids, does not.
bool ZoProcessTree::isUsable() const
{
    for (long i = 0; i < ids.size(); ++i) {
        if (ids[i] == ::getpid())
            return parents[i] == ::getppid();
    }
    return false;
}

void ZoProcessTree::look()
{
    ids.resize(0);
    parents.resize(0);
    if (timeForPs > 0 && askPs())
        return;
    timeForPs = 0;
    ids.resize(0);
    parents.resize(0);
    readProc();
    if (!isUsable())
        ids.resize(0);
}

void ZoProcessTree::appendBelow(UtDArray<int>& pids, int pid) const
{
    const long start = pids.size();
    for (long i = 0; i < ids.size(); ++i) {
        // Never more than there are: a listing that is not true may have processes in a ring.
        if (parents[i] == pid && pids.size() < ids.size())
            pids.append(ids[i]);
    }
    const long end = pids.size();
    for (long k = start; k < end; ++k)
        appendBelow(pids, pids[k]);
}

/// Sends SIGTERM; a stopped process is woken up to it.
static void sendTerm(int pid)
{
    if (pid < 1)
        return;            // stands for a whole group of processes
    ::kill(pid, SIGTERM);  // fails only for one that has ended meanwhile
    if (Status(pid).state == 'T')
        ::kill(pid, SIGCONT);
}

static bool contains(const UtDArray<int>& pids, int pid)
{
    for (long i = 0; i < pids.size(); ++i) {
        if (pids[i] == pid)
            return true;
    }
    return false;
}

void ZoProcessTree::terminate(int pid)
{
    UtDArray<int> signalled;
    signalled.append(pid);  // not before all others
    long before = 0;
    for (int i = 0; i < MOST_LOOKS && signalled.size() > before; ++i) {
        before = signalled.size();
        UtDArray<int> below;
        look();
        appendBelow(below, pid);
        for (long k = 0; k < below.size(); ++k) {
            // A job may have started the server that ends it now.
            if (below[k] == ::getpid() || contains(signalled, below[k]))
                continue;
            sendTerm(below[k]);
            signalled.append(below[k]);
        }
    }
    sendTerm(pid);
}

bool ZoProcessTree::isGone(int pid)
{
    if (pid < 1)
        return true;
    if (::kill(pid, 0) != 0)
        return errno == ESRCH || errno == EPERM;  // EPERM: the id has come to another user
    return Status(pid).isDead();
}

unsigned long long ZoProcessTree::startTicks(int pid)
{
    const Status status(pid);
    return status.state && !status.isDead() ? status.start : 0;
}

bool ZoProcessTree::hasEnded(int child)
{
    siginfo_t info = {};
    return ::waitid(P_PID, child, &info, WEXITED | WNOHANG | WNOWAIT) == 0 && info.si_pid == child;
}

long long ZoProcessTree::bootTime()
{
    struct timespec sinceBoot, now;
    ::clock_gettime(CLOCK_BOOTTIME, &sinceBoot);
    ::clock_gettime(CLOCK_REALTIME, &now);
    return now.tv_sec - sinceBoot.tv_sec - 1;
}
