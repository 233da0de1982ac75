#include "jobs/RunQueue.h"

#include "jobs/Keeper.h"
#include "jobs/QueueWatch.h"

void runQueue(const Server& server, const std::vector<Job>& jobs)
{
    // The server refuses while a job runs, and does not tell whether it goes on afterwards.
    if (!readQueue(server).running() && server.run())
        return;
    keepRunning(server, jobs);
}
