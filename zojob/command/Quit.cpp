#include "zojob/command/Commands.h"

#include "jobs/JobName.h"
#include "zojob/Report.h"

static const char* const KEPT = " goes on; its end is recorded without a server";

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
