#include "jobs/Cluster.h"
#include "jobs/JobName.h"
#include "jobs/QueueWatch.h"
#include "jobs/Text.h"
#include "zojob/Report.h"
#include "zojob/command/Commands.h"
#include "zojob/view/Json.h"
#include "zojob/view/Table.h"

#include <algorithm>
#include <unistd.h>

/// A part of the queue, with the jobs' names in the whole of it.
struct Selection {
    std::vector<Job> jobs;
    std::vector<std::string> names;
};

static Selection select(const Queue& queue, const Options& options)
{
    const std::vector<std::string> names = jobNames(queue);
    const auto& states = options.states;
    Selection chosen;
    for (std::size_t i = 0; i < queue.jobs.size(); ++i) {
        if (!states.empty() && !std::count(states.begin(), states.end(), stateName(queue.jobs[i])))
            continue;
        chosen.jobs.push_back(queue.jobs[i]);
        chosen.names.push_back(names[i]);
    }
    const long excess = options.count < 0 ? 0 : (long)chosen.jobs.size() - options.count;
    if (excess > 0) {
        chosen.jobs.erase(chosen.jobs.begin(), chosen.jobs.begin() + excess);
        chosen.names.erase(chosen.names.begin(), chosen.names.begin() + excess);
    }
    return chosen;
}

/// What a shell completes: a name, a tab, a state and a description.
static void listNames(const Queue& queue, const Options& options)
{
    const Selection chosen = select(queue, options);
    for (std::size_t i = 0; i < chosen.jobs.size(); ++i)
        print(chosen.names[i] + "\t" + stateName(chosen.jobs[i]) + " " +
              printable(chosen.jobs[i].description) + "\n");
}

static void listOnce(const Queue& queue, const Options& options)
{
    const Selection chosen = select(queue, options);
    if (options.json) {
        writeJsonList(chosen.jobs, chosen.names);
        return;
    }
    writeTable(chosen.jobs, chosen.names, options);
    if (!options.noHeader)
        print(countText(queue) + "\n");
}

/// Lists again at each change, and when the time is over in which running times grow unseen.
static int listAgainAndAgain(const Server& server, const Options& options)
{
    QueueWatch watch(server);
    Queue queue;
    for (double due = 0;;) {
        if (watch.hasChanged())
            queue = watch.read();
        else if (secondsNow() < due) {
            watch.wait(due - secondsNow());
            continue;
        } else {
            readClusters(queue.jobs);  // no queue tells of what happens there
        }
        due = secondsNow() + options.watch;
        if (::isatty(STDOUT_FILENO))
            print("\033[H\033[2J");
        listOnce(queue, options);
        if (!flushPrinted())
            return DONE_WELL;
    }
}

int listCommand(const Options& options)
{
    const Server server = serverOf(options, options.names ? Server::NEVER_START : Server::START);
    if (options.watch > 0)
        return listAgainAndAgain(server, options);
    const Queue queue = readQueue(server);
    if (options.names)
        listNames(queue, options);
    else
        listOnce(queue, options);
    return DONE_WELL;
}
