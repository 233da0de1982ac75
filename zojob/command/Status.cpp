#include "jobs/JobName.h"
#include "jobs/QueueWatch.h"
#include "jobs/Text.h"
#include "zojob/Report.h"
#include "zojob/command/Commands.h"
#include "zojob/view/Json.h"
#include "zojob/view/Table.h"
#include "zojob/view/Text.h"

static void printStatus(const char* server, const Queue& queue)
{
    printField("server", server);
    printField("jobs", countText(queue));
    if (const Job* const running = queue.running())
        printField("running", jobName(queue, *running) + " for " + duration(running->runTime()) +
                                  ": " + printable(running->description));
}

int statusCommand(const Options& options)
{
    const Server server = serverOf(options, Server::NEVER_START);
    const Server::Presence presence = server.presence();
    const char* const text = presence == Server::OURS       ? "running"
                             : presence == Server::REFUSING ? "refused"
                                                            : "none";
    Queue queue;
    if (server.isThisMachine() || presence == Server::OURS)
        queue = readQueue(server);
    if (options.json)
        writeJsonStatus(text, options.host, queue);
    else
        printStatus(text, queue);
    if (presence == Server::REFUSING)
        server.throwNotServed();
    return DONE_WELL;
}
