#include "jobs/JobDirectory.h"
#include "jobs/JobName.h"
#include "jobs/JobState.h"
#include "jobs/QueueFile.h"
#include "jobs/QueueRemoval.h"
#include "jobs/QueueWatch.h"
#include "zojob/Report.h"
#include "zojob/command/Commands.h"
#include "zojob/command/SignalsHeld.h"

/// Why the job must stay; empty where it may go.
static std::string whyKept(const Job& job, bool isOurs, bool force)
{
    // Its command would go on unseen, and nothing else could be run until its end.
    if (job.isRunning())
        return "since it is running: 'zojob kill' ends it";
    if (!isOurs && !force)
        return "since its directory " + job.directory +
               " was not made by zojob and would go with all it holds; --force removes both";
    return "";
}

/// Whether the job may go; says what that means, or why not.
static bool isRemovable(const Queue& queue, const Job& job, bool force)
{
    const bool isOurs = JobDirectory(job).isOurs();
    const std::string why = whyKept(job, isOurs, force);
    if (!why.empty())
        note("job " + jobName(queue, job) + " stays, " + why);
    else if (!isOurs)
        note("removing job " + jobName(queue, job) + " with its directory " + job.directory);
    return why.empty();
}

/// Removes the jobs; false when not all have gone, after saying so.
static bool removeAll(const Server& server, const Queue& queue, const std::vector<Job>& jobs)
{
    if (jobs.empty())
        return true;
    server.ensure();  // first: this may start one, and take its time
    const SignalsHeld held;
    const std::vector<Job> left = removeJobs(server, jobs);
    const bool mayTell = !left.empty() && server.isThisMachine();
    const std::string trouble = mayTell ? QueueFile().trouble() : "";
    for (const Job& job : left)
        note("job " + jobName(queue, job) +
             (job.isRunning() ? " stays, since it has begun to run" : " could not be removed") +
             (trouble.empty() ? "" : ": " + trouble));
    return left.empty();
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
        note(std::to_string(kept) +
             (kept == 1 ? " job that has failed stays: --failed or --all removes it"
                        : " jobs that have failed stay: --failed or --all removes them"));
    std::vector<Job> removable;
    for (const Job& job : chosen)
        if (isRemovable(queue, job, options.force))
            removable.push_back(job);
    const bool all = removeAll(server, queue, removable) && removable.size() == chosen.size();
    return all ? DONE_WELL : REFUSED;
}
