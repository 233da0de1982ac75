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

static const char* presenceName(Server::Presence presence)
{
    switch (presence) {
    case Server::OURS:
        return "running";
    case Server::REFUSING:
        return "refused";
    case Server::SILENT:
        return "silent";
    default:
        return "none";
    }
}

int statusCommand(const Options& options)
{
    const Server server = serverOf(options, Server::NEVER_START);
    const Server::Look look = server.look();
    const char* const name = presenceName(look.presence);
    Queue queue;
    if (server.isThisMachine() || look.presence == Server::OURS)
        queue = readQueue(server);
    if (options.json)
        writeJsonStatus(name, options.host, queue);
    else
        printStatus(name, queue);
    if (look.presence == Server::OURS || look.presence == Server::NONE)
        return DONE_WELL;
    note(look.reason);
    return look.presence == Server::SILENT ? NO_SERVER : REFUSED;
}
