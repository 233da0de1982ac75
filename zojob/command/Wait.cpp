#include "jobs/JobWatch.h"

#include "jobs/JobDirectory.h"
#include "jobs/JobName.h"
#include "zojob/Report.h"
#include "zojob/command/Commands.h"
#include "zojob/view/Text.h"

#include <algorithm>
#include <cstdio>
#include <unistd.h>

/// One line that is written over again and again; only people at a terminal see it.
class Progress
{
public:
    ~Progress() { clear(); }

    void show(const Watch& watch)
    {
        if (!terminal)
            return;
        const JobHandle running = runningJob(watch.queue);
        const long open = std::count_if(watch.targets.begin(), watch.targets.end(),
                                        [](const Watch::Target& t) { return !t.ended; });
        std::fprintf(stderr, "\r\033[Kwaiting for %ld of %zu; ", open, watch.targets.size());
        if (running)
            std::fprintf(stderr, "%lld running %s", running->id,
                         duration(running->runTime()).c_str());
        else
            std::fputs("none running", stderr);
        shown = true;
    }

    void clear()
    {
        if (shown)
            std::fputs("\r\033[K", stderr);
        shown = false;
    }

private:
    const bool terminal = ::isatty(STDERR_FILENO);
    bool shown = false;
};

/// What a job that has ended counts as; says so where that is not its own status.
static int statusOf(const Watch::Target& target)
{
    if (target.removed) {
        note("job " + target.name + " was removed before it ended");
        return REFUSED;
    }
    const int status = PrivateDirectory::exitStatus(*target.job);
    if (status >= 0)
        return status;
    if (!(target.job->command == PrivateDirectory::COMMAND))
        return DONE_WELL;  // another application's job: it ended, and nobody knows more
    note("job " + target.name + " left no status behind: see 'zojob log " + target.name + "'");
    return REFUSED;
}

/// Starts the queue again when it has stopped short of the jobs waited for.
static void runAgain(const Server& server, const Watch& watch)
{
    // Refused when somebody else was faster, and without a server the next poll says so.
    if (watch.isStuck()) {
        try {
            (void)server.run(JobHandle());
        } catch (const Failure&) {
        }
    }
}

int waitForJobs(const Server& server, const Jobs& queue, const Jobs& jobs, bool run, double timeout)
{
    Watch watch(server, queue, jobs);
    Progress progress;
    const double end = secondsNow() + timeout;
    announceInterrupt(watch.targets);
    for (watch.poll(); !watch.allEnded(); watch.poll()) {
        const double left = timeout < 0 ? 1 : end - secondsNow();
        if (left <= 0) {
            progress.clear();
            note("timed out; the jobs go on");
            return TIMED_OUT;
        }
        if (run)
            runAgain(server, watch);
        else
            watch.noteStuck();
        progress.show(watch);
        watch.pause(left);
    }
    progress.clear();
    int status = 0;
    for (const Watch::Target& target : watch.targets)
        status = std::max(status, statusOf(target));
    return status;
}

int waitCommand(const Options& options)
{
    const Server server(options);
    const Jobs queue = server.list();
    Jobs jobs = findJobs(queue, options.jobs);
    if (options.jobs.empty())
        for (const JobHandle& job : queue)
            if (job->state == ZoJob::WAITING || job->state == ZoJob::RUNNING)
                jobs.push_back(job);
    return waitForJobs(server, queue, jobs, false, options.timeout);
}
