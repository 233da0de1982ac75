// The commands that change the queue: run, kill, remove, quit.
#include "jobs/JobDirectory.h"
#include "jobs/JobName.h"
#include "zojob/Report.h"
#include "zojob/command/Commands.h"
#include "zojob/view/Text.h"

static const char* const BUSY = "the server would not run it: it may be busy with a job that was "
                                "removed while it ran; try again later";
static const char* const KEPT = " goes on; its end is recorded without a server";

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

int killCommand(const Options& options)
{
    const Server server(options);
    const Jobs jobs = server.list();
    const JobHandle running = runningJob(jobs);
    const JobHandle meant = options.jobs.empty() ? running : findJob(jobs, options.jobs[0]);
    if (!meant)
        throw Failure{ REFUSED, "no job is running" };
    const std::string name = jobName(jobs, *meant);
    if (meant != running)
        throw Failure{ REFUSED, "job " + name + " is " + stateName(*meant) +
                                    ", not running: nothing was killed" };
    if (!server.kill())
        throw Failure{ REFUSED, "job " + name +
                                    " could not be killed; it may just have ended: see "
                                    "'zojob list'" };
    note("killed job " + name);
    return DONE_WELL;
}

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

int quitCommand(const Options& options)
{
    const Server server(options, Server::NEVER_START);
    const Jobs jobs = server.list();
    const JobHandle running = runningJob(jobs);
    if (!server.quit())
        throw Failure{ NO_SERVER, "the server ended before it could be asked to" };
    if (running)
        note("job " + jobName(jobs, *running) + KEPT);
    return DONE_WELL;
}
