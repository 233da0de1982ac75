#include "jobs/Cluster.h"
#include "jobs/JobName.h"
#include "jobs/QueueWatch.h"
#include "zojob/Report.h"
#include "zojob/command/Commands.h"

int killCommand(const Options& options)
{
    const Server server = serverOf(options);
    const Queue queue = readQueue(server);
    const Job* const running = queue.running();
    const Job* const meant = options.jobs.empty() ? running : &findJob(queue, options.jobs[0]);
    if (!meant)
        throw Failure{ REFUSED, "no job is running" };
    const std::string name = jobName(queue, *meant);
    if (meant != running && !meant->isDetached)
        throw Failure{ REFUSED, "job " + name + " is " + stateName(*meant) +
                                    ", not running: nothing was killed" };
    if (meant->hasLostItsId()) {
        server.ensure();
        throw Failure{ REFUSED, "job " + name + " has ended without a report, and its process id " +
                                    std::to_string(meant->pid) +
                                    " belongs to another process by now: nothing was killed; the "
                                    "server marks the job as killed within a minute or two" };
    }
    if (!killJob(server, *meant))
        throw Failure{ REFUSED, "job " + name +
                                    " could not be killed; it may just have ended: see "
                                    "'zojob list'" };
    note("killed job " + name);
    return DONE_WELL;
}
