#include "zojob/command/Commands.h"

#include "jobs/JobName.h"
#include "jobs/JobWatch.h"
#include "zojob/Report.h"
#include "zojob/view/Table.h"
#include "zojob/view/Text.h"

#include <algorithm>
#include <unistd.h>

/// A part of the queue, with the jobs' names in the whole of it.
struct Selection {
    Jobs jobs;
    std::vector<std::string> names;
};

static Selection select(const Jobs& jobs, const Options& options)
{
    const std::vector<std::string> names = jobNames(jobs);
    const auto& states = options.states;
    Selection chosen;
    for (std::size_t i = 0; i < jobs.size(); ++i) {
        if (!states.empty() && !std::count(states.begin(), states.end(), stateName(*jobs[i])))
            continue;
        chosen.jobs.push_back(jobs[i]);
        chosen.names.push_back(names[i]);
    }
    const long excess = options.count < 0 ? 0 : (long)chosen.jobs.size() - options.count;
    if (excess > 0) {
        chosen.jobs.erase(chosen.jobs.begin(), chosen.jobs.begin() + excess);
        chosen.names.erase(chosen.names.begin(), chosen.names.begin() + excess);
    }
    return chosen;
}

/// What a shell completes: a name, a tab, a state and a description. Without a server there is
/// nothing to complete, and nobody to tell.
static int listNames(const Options& options)
{
    const Server server(options, Server::NEVER_START);
    if (server.presence() != Server::OURS)
        return DONE_WELL;
    const Selection chosen = select(server.list(), options);
    for (std::size_t i = 0; i < chosen.jobs.size(); ++i)
        print(chosen.names[i] + "\t" + stateName(*chosen.jobs[i]) + " " +
              printable(str(chosen.jobs[i]->description)) + "\n");
    return DONE_WELL;
}

static void listOnce(const Server& server, const Options& options)
{
    const Jobs jobs = server.list();
    const Selection chosen = select(jobs, options);
    if (options.json) {
        writeJsonList(chosen.jobs, chosen.names);
        return;
    }
    writeTable(chosen.jobs, options);
    if (!options.noHeader)
        print(countText(jobs) + "\n");
}

int listCommand(const Options& options)
{
    if (options.names)
        return listNames(options);
    const Server server(options);
    for (;;) {
        if (options.watch > 0 && ::isatty(STDOUT_FILENO))
            print("\033[H\033[2J");
        listOnce(server, options);
        if (options.watch <= 0 || !flushPrinted())
            return DONE_WELL;
        sleepSeconds(options.watch);
    }
}
