#include "jobs/JobName.h"
#include "jobs/QueueWatch.h"
#include "zojob/Report.h"
#include "zojob/command/Commands.h"

int quitCommand(const Options& options)
{
    const Server server = serverOf(options, Server::NEVER_START);
    server.quit();
    const Queue queue = readQueue(server);
    if (const Job* const running = queue.running())
        note("job " + jobName(queue, *running) + " goes on; its end is recorded without a server");
    return DONE_WELL;
}
