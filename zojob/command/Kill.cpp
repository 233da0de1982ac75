#include "zojob/command/Commands.h"

#include "jobs/JobName.h"
#include "zojob/Report.h"

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
