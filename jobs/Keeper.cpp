#include "jobs/Keeper.h"

#include "jobs/JobDirectory.h"
#include "jobs/JobError.h"
#include "jobs/JobWatch.h"
#include "jobs/Program.h"
#include "jobs/QueueWatch.h"
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
        const bool isTrouble = !watch.queue.trouble.empty();  // its end is waited for
        if (watch.isStuck() && !isTrouble)
            try {
                isRun = server.run();
            } catch (const JobError&) {
                isRun = false;
            }
        refusals = isRun ? 0 : refusals + 1;
        watch.wait((watch.queue.running() && isRun) || isTrouble ? STEP : AGAIN);
        watch.look();
    }
    return false;
}

/// One process at a time holds the lock; who marks a job while another one is about to end leaves
/// it to that one, which looks once more when it has let go.
static void keep(const Server& server)
{
    char name[256] = "";
    (void)::gethostname(name, sizeof name - 1);
    const std::string lockPath = stateDirectory() + "/keeper-" + name;
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

void keepRunning(const Server& server)
{
    const pid_t pid = ::fork();
    if (pid < 0)
        throw JobError(JobError::FILE_FAILED, withReason("cannot make a process"));
    if (pid > 0)
        return;
    leaveCaller();
    try {
        keep(server);
    } catch (const std::exception&) {
        ::_exit(1);  // nobody is there to be told
    }
    ::_exit(0);
}

/// Has the installation's zojob keep the promise. Not a copy of this process, which may have
/// threads and windows.
static bool startKeeper(const Server& server)
{
    std::vector<std::string> words = { "zojob", "--root", server.root, "keep" };
    if (!server.isThisMachine())
        words.insert(words.end(), { "--host", server.host });
    const pid_t pid = startProgram(server.root + "/bin/zojob", words, false);
    int status = 0;
    while (pid > 0 && ::waitpid(pid, &status, 0) < 0 && errno == EINTR)
        continue;
    if (status != 0)
        errno = EAGAIN;  // what a process that cannot be made most often fails with
    return pid > 0 && status == 0;
}

/// What hinders a promise; the jobs are queued all the same.
static JobError brokenPromise(const std::string& why)
{
    return JobError(
        JobError::FILE_FAILED,
        withReason("the job waits, but nothing will run it when its turn comes: " + why));
}

void runQueue(const Server& server, const std::vector<Job>& jobs)
{
    // The server refuses while a job runs, and does not tell whether it goes on afterwards.
    if (!readQueue(server).running() && server.run())
        return;
    for (const Job& job : jobs)
        if (!JobDirectory(job).setWanted(true))
            throw brokenPromise("cannot write into " + job.directory);
    if (!startKeeper(server))
        throw brokenPromise("cannot start " + server.root + "/bin/zojob");
}

void stopKeeping(const Queue& queue)
{
    for (const Job& job : queue.jobs)
        if (isWanted(job))
            (void)JobDirectory(job).setWanted(
                false);  // what cannot be written runs, as was asked for
}
