#include "jobs/JobDirectory.h"
#include "jobs/JobName.h"
#include "jobs/JobState.h"
#include "jobs/Keeper.h"
#include "jobs/QueueWatch.h"
#include "jobs/StateDirectory.h"
#include "jobs/Submission.h"
#include "zojob/Report.h"
#include "zojob/command/Commands.h"

/// Brings a cancelled job back that still waits for its turn, or submits it anew. Returns its name.
static std::string bringBack(const Server& server, const Job& job, const std::string& name)
{
    if (job.isWaiting() && jobState(job) == JobState::CANCELLED) {
        if (!JobDirectory(job).setCancelled(false))
            throw Failure{ REFUSED, withReason("job " + name + " cannot be brought back") };
        return name;
    }
    return numberOf(Submission::again(server, job));
}

int againCommand(const Options& options)
{
    const Server server = serverOf(options);
    const Queue queue = readQueue(server);
    const std::vector<Job> jobs = findJobs(queue, options.jobs);
    std::vector<std::string> names;
    server.ensure();
    for (const Job& job : jobs) {
        names.push_back(bringBack(server, job, jobName(queue, job)));
        print(names.back() + "\n");
    }
    (void)flushPrinted();
    if (options.run)
        runQueue(server, findJobs(readQueue(server), names));
    return DONE_WELL;
}
