#include "jobs/JobName.h"
#include "zojob/command/Commands.h"
#include "zojob/command/Waiting.h"

int waitCommand(const Options& options)
{
    const Server server = serverOf(options);
    JobWatch watch(server);
    watch.follow(findJobs(watch.queue, options.jobs));
    if (options.jobs.empty()) {
        std::vector<Job> open;
        for (const Job& job : watch.queue.jobs)
            if (job.isWaiting() || job.isRunning())
                open.push_back(job);
        watch.follow(open);
    }
    return waitForJobs(watch, options.timeout);
}
