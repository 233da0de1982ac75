#include "jobs/Keeper.h"

#include "jobs/JobDirectory.h"
#include "jobs/JobError.h"
#include "jobs/JobWatch.h"
#include "jobs/StateDirectory.h"

#include <cerrno>
#include <csignal>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

static const double STEP = 60;         // seconds between two looks, unless something changes
static const double AGAIN = 0.5;       // after the server would not run the queue
static const int MOST_REFUSALS = 240;  // in a row: nobody is there, or nothing can be run

static bool isWanted(const Job& job)
{
    return job.isWaiting() && JobDirectory(job).isWanted();
}

/// Runs the queue until no marked job waits; false when it cannot be run.
static bool keepOn(const Server& server, JobWatch& watch)
{
    for (int refusals = 0; refusals < MOST_REFUSALS;) {
        watch.targets.clear();
        for (const Job& job : watch.queue.jobs)
            if (isWanted(job))
                watch.follow({ job });
        if (watch.targets.empty())
            return true;
        bool isRun = true;
        if (watch.isStuck())
            try {
                isRun = server.run();
            } catch (const JobError&) {
                isRun = false;
            }
        refusals = isRun ? 0 : refusals + 1;
        watch.wait(watch.queue.running() && isRun ? STEP : AGAIN);
        watch.look();
    }
    return false;
}

/// What the process does. One at a time holds the lock; who marks a job while another one is about
/// to end leaves it to that one, which looks once more when it has let go.
static void keep(const Server& server, const std::string& lockPath)
{
    const int lock = ::open(lockPath.c_str(), O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW, 0600);
    JobWatch watch(server);
    while (lock >= 0 && ::flock(lock, LOCK_EX | LOCK_NB) == 0) {
        watch.look();
        if (!keepOn(server, watch))
            return;
        ::flock(lock, LOCK_UN);
        watch.queue = readQueue(server);
        bool isOpen = false;
        for (const Job& job : watch.queue.jobs)
            isOpen = isOpen || isWanted(job);
        if (!isOpen)
            return;
    }
}

/// Leaves everything that belongs to the caller: terminal, streams, directory, group.
static void leaveCaller()
{
    ::setsid();
    std::signal(SIGHUP, SIG_IGN);
    const int null = ::open("/dev/null", O_RDWR | O_CLOEXEC);
    for (int fd = STDIN_FILENO; null >= 0 && fd <= STDERR_FILENO; ++fd)
        ::dup2(null, fd);
    (void)::syscall(SYS_close_range, STDERR_FILENO + 1, ~0U, 0);  // a kernel without it keeps them
    (void)!::chdir("/");  // else a directory stays in use, no more
}

void keepRunning(const Server& server, const std::vector<Job>& jobs)
{
    for (const Job& job : jobs)
        if (!JobDirectory(job).setWanted(true))
            throw JobError(JobError::FILE_FAILED,
                           withReason("the job waits, but nobody will run it when its turn comes: "
                                      "cannot write into " +
                                      job.directory));
    char name[256] = "";
    (void)::gethostname(name, sizeof name - 1);
    const std::string lockPath = stateDirectory() + "/keeper-" + name;
    const pid_t pid = ::fork();
    if (pid < 0)
        throw JobError(JobError::FILE_FAILED,
                       withReason("the job waits, but nobody will run it when its turn comes: "
                                  "cannot make a process"));
    if (pid > 0) {
        while (::waitpid(pid, nullptr, 0) < 0 && errno == EINTR)
            continue;
        return;
    }
    if (::fork() != 0)
        ::_exit(0);
    leaveCaller();
    try {
        keep(server, lockPath);
    } catch (const std::exception&) {
        ::_exit(1);  // nobody is there to be told
    }
    ::_exit(0);
}

void stopKeeping(const Queue& queue)
{
    for (const Job& job : queue.jobs)
        if (isWanted(job))
            (void)JobDirectory(job).setWanted(
                false);  // what cannot be written runs, as was asked for
}
