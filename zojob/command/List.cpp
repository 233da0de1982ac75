// The commands that only look: list, show, status.
#include "jobs/JobDirectory.h"
#include "jobs/JobName.h"
#include "jobs/JobWatch.h"
#include "zojob/Report.h"
#include "zojob/command/Commands.h"
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

/// Text of several lines without what a terminal would obey.
static std::string printableLines(const std::string& text)
{
    std::string result;
    for (std::size_t start = 0; start < text.size();) {
        const std::size_t end = std::min(text.find('\n', start), text.size());
        result += printable(text.substr(start, end - start)) + "\n";
        start = end + 1;
    }
    return result;
}

static const std::size_t FIELD = 14;  // columns of a field's name

static void field(const char* name, const std::string& value)
{
    std::string line = name;
    line.resize(FIELD, ' ');
    print(line + value + "\n");
}

static void showText(const ZoJob& job, const Options& options)
{
    const int status = PrivateDirectory::exitStatus(job);
    field("id", std::to_string(job.id));
    field("state", coloredState(job, wantsColor(options), 0));
    field("exit status", status < 0 ? "-" : std::to_string(status));
    field("description", printable(str(job.description)));
    field("command", printable(str(job.command)));
    field("directory", printable(str(job.directory)));
    field("submitted", dateTime(job.id));
    field("started", dateTime(job.startTime));
    field("ended", dateTime(job.endTime));
    field("run time", job.startTime ? duration(job.runTime()) : "-");
    field("reserved", std::to_string(job.reserved));
    if (!PrivateDirectory::isOurs(job))
        return;
    const std::string script = PrivateDirectory::script(job);
    print("script\n" + (::isatty(STDOUT_FILENO) ? printableLines(script) : script));
}

int showCommand(const Options& options)
{
    const Server server(options);
    const Jobs jobs = server.list();
    const JobHandle job = findJob(jobs, options.jobs[0]);
    if (options.json)
        writeJsonJob(*job, jobName(jobs, *job), true);
    else
        showText(*job, options);
    return DONE_WELL;
}

static void statusText(const char* server, const Jobs& jobs)
{
    const JobHandle running = runningJob(jobs);
    field("server", server);
    field("jobs", countText(jobs));
    if (running)
        field("running", jobName(jobs, *running) + " for " + duration(running->runTime()) + ": " +
                             printable(str(running->description)));
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
        field("server", text);
    if (presence == Server::REFUSING)
        server.fail();
    return DONE_WELL;
}
