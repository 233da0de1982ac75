#include "jobs/JobDirectory.h"
#include "jobs/JobName.h"
#include "jobs/JobState.h"
#include "jobs/QueueWatch.h"
#include "zojob/Report.h"
#include "zojob/command/Commands.h"

/// Removes one job; false when it was refused, after saying why.
static bool removeJob(const Server& server, const Queue& queue, const Job& job, bool force)
{
    const std::string name = jobName(queue, job);
    const bool isOurs = JobDirectory(job).isOurs();
    if (job.isRunning()) {
        // Its command would go on unseen, and nothing else could be run until its end.
        note("job " + name + " stays, since it is running: 'zojob kill' ends it");
        return false;
    }
    if (!isOurs && !force) {
        note("job " + name + " stays: its directory " + job.directory +
             " was not made by zojob and would go with all it holds; --force removes both");
        return false;
    }
    if (!isOurs)
        note("removing job " + name + " with its directory " + job.directory);
    if (server.remove(job))
        return true;
    note("job " + name + " could not be removed: it has gone from the queue meanwhile");
    return false;
}

int removeCommand(const Options& options)
{
    const Server server = serverOf(options);
    const Queue queue = readQueue(server);
    std::vector<Job> chosen = findJobs(queue, options.jobs);
    long kept = 0;
    if (options.jobs.empty())
        for (const Job& job : queue.jobs) {
            if (!job.hasEnded())
                continue;
            const bool isFailed = hasFailed(job);
            if (options.all || (isFailed ? options.failed : options.finished))
                chosen.push_back(job);
            else
                kept += isFailed;
        }
    if (kept > 0)
        note(std::to_string(kept) + (kept == 1 ? " job that has" : " jobs that have") +
             " failed stay: --failed or --all removes them");
    bool all = true;
    for (const Job& job : chosen)
        all = removeJob(server, queue, job, options.force) && all;
    return all ? DONE_WELL : REFUSED;
}
