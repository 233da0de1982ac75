#include "jobs/JobName.h"
#include "jobs/Keeper.h"
#include "jobs/QueueWatch.h"
#include "zojob/Report.h"
#include "zojob/command/Commands.h"

int quitCommand(const Options& options)
{
    const Server server = serverOf(options, Server::NEVER_START);
    stopKeeping(readQueue(server));
    server.quit();
    const Queue queue = readQueue(server);
    const Job* const running = queue.running();
    if (running && queue.waiting())
        note("job " + jobName(queue, *running) +
             " goes on to its end; those behind it wait until 'zojob run'");
    else if (running)
        note("job " + jobName(queue, *running) + " goes on; its end is recorded without a server");
    return DONE_WELL;
}
