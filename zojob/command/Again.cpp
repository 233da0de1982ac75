#include "jobs/JobError.h"
#include "jobs/JobName.h"
#include "jobs/Keeper.h"
#include "jobs/QueueWatch.h"
#include "jobs/StateDirectory.h"
#include "jobs/Submission.h"
#include "zojob/Report.h"
#include "zojob/command/Commands.h"

int againCommand(const Options& options)
{
    const Server server = serverOf(options);
    const Queue queue = readQueue(server);
    const std::vector<Job> jobs = findJobs(queue, options.jobs);
    std::vector<std::string> names;
    server.ensure();
    for (const Job& job : jobs) {
        try {
            names.push_back(numberOf(Submission::again(server, job)));
        } catch (const JobError& error) {
            throw Failure{ Failure(error).code,
                           "job " + jobName(queue, job) + ": " + error.what() };
        }
        print(names.back() + "\n");
    }
    (void)flushPrinted();
    if (options.run)
        runQueue(server, findJobs(readQueue(server), names));
    return DONE_WELL;
}
