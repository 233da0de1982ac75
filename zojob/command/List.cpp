#include "jobs/QueueWatch.h"
#include "jobs/Text.h"
#include "zojob/Report.h"
#include "zojob/command/Commands.h"
#include "zojob/command/Watch.h"
#include "zojob/view/Json.h"
#include "zojob/view/Table.h"

#include <algorithm>

static const char* const HOW_TO_RUN = "none runs: 'zojob run' starts them";

/// Whether a state was asked for by this word: its name without blanks.
static bool isNamed(JobState state, const std::string& word)
{
    std::string name = jobStateName(state);
    std::replace(name.begin(), name.end(), ' ', '-');
    return name == word;
}

std::vector<Listed> selectJobs(const std::vector<Listed>& all, const Options& options)
{
    std::vector<Listed> chosen;
    for (const Listed& one : all) {
        const auto isAsked = [&one](const std::string& word) { return isNamed(one.state, word); };
        if (options.states.empty() ||
            std::any_of(options.states.begin(), options.states.end(), isAsked))
            chosen.push_back(one);
    }
    const long excess = options.count < 0 ? 0 : (long)chosen.size() - options.count;
    if (excess > 0)
        chosen.erase(chosen.begin(), chosen.begin() + excess);
    return chosen;
}

/// What is to be known or done where waiting jobs do not run; empty where there is nothing.
static std::string advice(const std::vector<Listed>& all, const std::string& trouble)
{
    if (!trouble.empty())
        return "no further job starts: " + printable(trouble);
    return standsStill(all) ? HOW_TO_RUN : "";
}

std::vector<std::string> summary(const std::vector<Listed>& all, const std::string& trouble,
                                 std::size_t columns)
{
    const std::string counts = countText(all), what = advice(all, trouble);
    const std::string both = counts + "; " + what;
    if (what.empty())
        return { cut(counts, columns) };
    if (width(both) <= columns)
        return { both };
    return { cut(counts + ";", columns), cut(what, columns) };
}

void printList(const std::vector<Listed>& jobs, const std::vector<Listed>& all,
               const std::string& trouble, const Options& options)
{
    const TerminalSize size = options.wide ? TerminalSize() : terminalSize();
    for (const std::string& line : tableLines(jobs, options, size.columns))
        print(line + "\n");
    if (options.noHeader)
        return;
    for (const std::string& line : summary(all, trouble, size.columns))
        print(line + "\n");
}

/// What a shell completes: a name, a tab, a state and a description.
static void listNames(const std::vector<Listed>& jobs)
{
    for (const Listed& one : jobs)
        print(printable(one.name) + "\t" + jobStateName(one.state) + " " +
              printable(titleOf(one.job)) + "\n");
}

int listCommand(const Options& options)
{
    const Server server = serverOf(options, options.names ? Server::NEVER_START : Server::START);
    if (options.watch > 0)
        return watchList(server, options);
    const Queue queue = readQueue(server);
    const std::vector<Listed> all = listedJobs(queue);
    const std::vector<Listed> jobs = selectJobs(all, options);
    if (options.names) {
        listNames(jobs);
    } else if (options.json) {
        writeJsonList(jobs, server.strangerOnPort());
    } else {
        printList(jobs, all, queue.trouble, options);
    }
    return DONE_WELL;
}
