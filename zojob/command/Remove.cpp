#include "zojob/command/Commands.h"

#include "jobs/JobDirectory.h"
#include "jobs/JobName.h"
#include "zojob/Report.h"
#include "zojob/view/Text.h"

/// Removes one job; false when it was refused, after saying why.
static bool removeJob(const Server& server, const Jobs& jobs, const JobHandle& job, bool force)
{
    const std::string name = jobName(jobs, *job);
    const std::string directory = str(job->directory);
    const bool ours = PrivateDirectory::isOurs(*job);
    if (job->state == ZoJob::RUNNING) {
        // Its command would go on unseen, and nothing else could be run until its end.
        note("job " + name + " stays, since it is running: 'zojob kill' ends it");
        return false;
    }
    if (!ours && !force) {
        note("job " + name + " stays: its directory " + directory +
             " was not made by zojob and would go with all it holds; --force removes both");
        return false;
    }
    if (!ours)
        note("removing job " + name + " with its directory " + directory);
    if (server.remove(job))
        return true;
    note("job " + name + " could not be removed: it has gone from the queue meanwhile");
    return false;
}

int removeCommand(const Options& options)
{
    const Server server(options);
    const Jobs jobs = server.list();
    Jobs chosen = findJobs(jobs, options.jobs);
    if (options.finished)
        for (const JobHandle& job : jobs)
            if (job->state == ZoJob::DONE || job->state == ZoJob::KILLED)
                chosen.push_back(job);
    if (chosen.empty())
        throw Failure{ REFUSED, "no job has finished: there is nothing to remove" };
    bool all = true;
    for (const JobHandle& job : chosen)
        all = removeJob(server, jobs, job, options.force) && all;
    return all ? DONE_WELL : REFUSED;
}
