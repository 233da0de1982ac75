#include "zojob/command/Commands.h"

#include "jobs/JobName.h"
#include "zojob/Report.h"

static const char* const BUSY = "the server would not run it: it may be busy with a job that was "
                                "removed while it ran; try again later";

/// Why the server refused to run a job, or all of them.
static Failure whyNotRun(const Jobs& jobs, const JobHandle& job)
{
    const JobHandle running = runningJob(jobs);
    const std::string name = job ? jobName(jobs, *job) : "";
    if (job && !sameJob(jobs, *job))
        return { REFUSED, "job " + name + " has been removed meanwhile" };
    if (job && sameJob(jobs, *job)->state != ZoJob::WAITING)
        return { REFUSED, "job " + name + " is " + stateName(*sameJob(jobs, *job)) +
                              ": only a waiting job can be run; submit it again" };
    if (running) {
        const std::string other = jobName(jobs, *running);
        return { REFUSED, "job " + other +
                              " is running, and only one runs at a time: try again "
                              "after 'zojob wait " +
                              other + "'" };
    }
    for (const JobHandle& waiting : jobs)
        if (waiting->state == ZoJob::WAITING)
            return { REFUSED, BUSY };
    return { REFUSED, "no job is waiting: 'zojob submit' queues one" };
}

int runCommand(const Options& options)
{
    const Server server(options);
    const JobHandle job =
        options.jobs.empty() ? JobHandle() : findJob(server.list(), options.jobs[0]);
    if (!server.run(job))
        throw whyNotRun(server.list(), job);
    return DONE_WELL;
}
