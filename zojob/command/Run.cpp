#include "jobs/JobName.h"
#include "jobs/JobState.h"
#include "jobs/QueueWatch.h"
#include "zojob/Report.h"
#include "zojob/command/Commands.h"

static const char* const BUSY = "the server would not run it: it may be busy with a job that was "
                                "removed while it ran; try again later";

/// Why the server refused to run this job.
static Failure whyNotRun(const Queue& queue, const Job& job)
{
    const Job* const now = queue.find(job);
    const std::string name = jobName(queue, job);
    if (!now)
        return { REFUSED, "job " + name + " has been removed meanwhile" };
    return { REFUSED, "job " + name + " is " + stateName(*now) +
                          ": only a waiting job can be run; submit it again" };
}

static void refuseInTrouble(const Queue& queue)
{
    if (!queue.trouble.empty())
        throw Failure{ REFUSED, "no job is started: " + queue.trouble };
}

/// Why the server refused to run a job, or all of them.
static Failure whyNotRun(const Queue& queue)
{
    refuseInTrouble(queue);
    for (const Job& job : queue.jobs)
        if (job.isUnsaved || job.isAbandoned())
            return { REFUSED, "job " + jobName(queue, job) +
                                  " has ended, which the server does not know yet: it finds out "
                                  "within a minute or two; try again then" };
    if (const Job* const running = queue.running()) {
        const std::string name = jobName(queue, *running);
        return { REFUSED, "job " + name +
                              " is running, and only one runs at a time: try again after 'zojob "
                              "wait " +
                              name + "'" };
    }
    return { REFUSED, queue.waiting() ? BUSY : "no job is waiting: 'zojob submit' queues one" };
}

int runCommand(const Options& options)
{
    const Server server = serverOf(options);
    if (options.jobs.empty()) {
        if (!server.run())
            throw whyNotRun(readQueue(server));
        return DONE_WELL;
    }
    const Queue before = readQueue(server);
    const Job job = findJob(before, options.jobs[0]);
    if (job.isWaiting() && jobState(job) == JobState::CANCELLED) {
        const std::string name = jobName(before, job);
        throw Failure{ REFUSED,
                       "job " + name + " is cancelled: 'zojob again " + name + "' brings it back" };
    }
    if (server.run(job))
        return DONE_WELL;
    const Queue queue = readQueue(server);
    refuseInTrouble(queue);
    const Job* const now = queue.find(job);
    throw now && now->isWaiting() ? whyNotRun(queue) : whyNotRun(queue, job);
}
