#include "jobs/QueueWatch.h"
#include "jobs/Text.h"
#include "zojob/Report.h"
#include "zojob/command/Commands.h"
#include "zojob/view/Json.h"
#include "zojob/view/Table.h"
#include "zojob/view/Text.h"

#include <pwd.h>
#include <unistd.h>

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

/// Of a queue under another name of this machine, or of another one that has the same home.
static std::string otherText(const OtherQueue& other, const std::string& own)
{
    const std::string file = shellWord(other.path), to = shellWord(own);
    const bool isFirst = ::access(own.c_str(), F_OK) != 0;
    return other.path + ": " + std::to_string(other.jobs) +
           (other.jobs == 1 ? " job, " : " jobs, ") + std::to_string(other.waiting) +
           " waiting, of a machine called " + other.host + "; if that is this one: " +
           (isFirst ? "mv " + file + " " + to : "cat " + file + " >>" + to + " && rm " + file);
}

static void printStatus(const StatusView& view)
{
    printField("server", serverText(view.server.c_str(), view.otherUser));
    printField("jobs", countText(view.jobs));
    if (!view.trouble.empty())
        printField("queue", printable("no further job starts: " + view.trouble));
    else if (standsStill(view.jobs))
        printField("queue", "stands still: 'zojob run' starts the jobs that wait");
    for (const OtherQueue& other : view.others)
        printField("other queue", printable(otherText(other, QueueFile().path())));
    for (const Listed& one : view.jobs)
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
    StatusView view;
    view.server = presenceName(look.presence);
    view.host = options.host;
    view.otherUser = look.otherUser;
    if (server.isThisMachine() || look.presence == Server::OURS) {
        const Queue queue = readQueue(server);
        view.jobs = listedJobs(queue);
        view.trouble = queue.trouble;
    }
    if (server.isThisMachine())
        view.others = otherQueues();
    if (options.json)
        writeJsonStatus(view);
    else
        printStatus(view);
    if (look.presence == Server::OURS || look.presence == Server::NONE)
        return DONE_WELL;
    note(look.reason);
    return look.presence == Server::SILENT ? NO_SERVER : REFUSED;
}
