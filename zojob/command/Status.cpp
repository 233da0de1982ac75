#include "jobs/QueueWatch.h"
#include "jobs/Text.h"
#include "zojob/Report.h"
#include "zojob/command/Commands.h"
#include "zojob/view/Json.h"
#include "zojob/view/Table.h"
#include "zojob/view/Text.h"

#include <pwd.h>

/// The login name of a user; empty where there is none.
static std::string userName(long long user)
{
    const struct passwd* const entry = user >= 0 ? ::getpwuid((uid_t)user) : nullptr;
    return entry ? entry->pw_name : "";
}

static std::string serverText(const char* name, long long otherUser)
{
    const std::string other = userName(otherUser);
    if (otherUser < 0)
        return name;
    return std::string(name) + ", the port is user " +
           (other.empty() ? std::to_string(otherUser) : other) + "'s";
}

static void printStatus(const std::string& server, const std::vector<Listed>& jobs)
{
    printField("server", server);
    printField("jobs", countText(jobs));
    if (standsStill(jobs))
        printField("queue", "stands still: 'zojob run' starts the jobs that wait");
    for (const Listed& one : jobs)
        if (one.job.isRunningHere())
            printField("running", printable(one.name + " for " + duration(one.job.runTime()) +
                                            ": " + titleOf(one.job)));
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
    std::vector<Listed> jobs;
    if (server.isThisMachine() || look.presence == Server::OURS)
        jobs = listedJobs(readQueue(server));
    if (options.json)
        writeJsonStatus(name, options.host, look.otherUser, userName(look.otherUser), jobs);
    else
        printStatus(serverText(name, look.otherUser), jobs);
    if (look.presence == Server::OURS || look.presence == Server::NONE)
        return DONE_WELL;
    note(look.reason);
    return look.presence == Server::SILENT ? NO_SERVER : REFUSED;
}
