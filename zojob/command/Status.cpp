#include "zojob/command/Commands.h"

#include "jobs/JobName.h"
#include "zojob/Report.h"
#include "zojob/view/Table.h"
#include "zojob/view/Text.h"

static void statusText(const char* server, const Jobs& jobs)
{
    const JobHandle running = runningJob(jobs);
    printField("server", server);
    printField("jobs", countText(jobs));
    if (running)
        printField("running", jobName(jobs, *running) + " for " + duration(running->runTime()) +
                                  ": " + printable(str(running->description)));
}

int statusCommand(const Options& options)
{
    const Server server(options, Server::NEVER_START);
    const Server::Presence presence = server.presence();
    Jobs jobs;
    const bool up = presence == Server::OURS && server.tryList(jobs);
    const char* const text = up ? "running" : presence == Server::REFUSING ? "refused" : "none";
    if (options.json)
        writeJsonStatus(text, options.host, jobs);
    else if (up)
        statusText(text, jobs);
    else
        printField("server", text);
    if (presence == Server::REFUSING)
        server.fail();
    return DONE_WELL;
}
