#include "jobs/Cluster.h"
#include "jobs/JobDirectory.h"
#include "jobs/JobName.h"
#include "jobs/QueueWatch.h"
#include "jobs/Text.h"
#include "zojob/Report.h"
#include "zojob/command/Commands.h"
#include "zojob/view/Json.h"
#include "zojob/view/Table.h"
#include "zojob/view/Text.h"

#include <algorithm>
#include <unistd.h>

static const double PATIENCE = 2;  // seconds for a cluster to answer

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

static void showText(const Listed& one, const Options& options)
{
    const Job& job = one.job;
    const JobDirectory directory(job);
    const GivenTexts given = directory.given();
    const int status = exitStatus(job);
    printField("job", printable(one.name));
    printField("state", coloredState(one.state, wantsColor(options), 0));
    printField("exit status", status < 0 ? "-" : std::to_string(status));
    if (directory.end().isDiskFull)
        printField("disk", "full when it ended: its output may be incomplete");
    if (job.isUnsaved)
        printField("queue", "does not hold yet that it has ended");
    if (given.label)
        printField("label", printable(*given.label));
    printField("command", printable(given.command));
    printField("runs in", printable(given.directory));
    printField("log", printable(directory.logPath()));
    printField("directory", printable(job.directory));
    if (!job.cluster.id.empty())
        printField("cluster", printable(job.cluster.id + " " + job.cluster.state));
    printField("submitted", dateTime(job.id));
    printField("started", dateTime(job.startTime));
    printField("ended", dateTime(job.endTime));
    printField("run time", job.startTime ? duration(job.runTime()) : "-");
    printField("id", std::to_string(job.id));
    printField("reserved", std::to_string(job.reserved));
    if (!options.script || !directory.isOurs())
        return;
    const std::string script = directory.script();
    print("script\n" + (::isatty(STDOUT_FILENO) ? printableLines(script) : script));
}

/// Asks the cluster about the job where nobody else does, and waits a moment for the answer.
static void askCluster(Job& job)
{
    ClusterQuestion question;
    question.ask({ job });
    question.wait(PATIENCE);
    readCluster(job);
}

int showCommand(const Options& options)
{
    const Server server = serverOf(options);
    const Queue queue = readQueue(server);
    std::vector<Listed> jobs;
    for (Job job : findJobs(queue, options.jobs)) {
        askCluster(job);
        jobs.push_back({ job, jobName(queue, job), jobState(job) });
    }
    if (options.json) {
        writeJsonJobs(jobs, server.strangerOnPort(), options.script);
        return DONE_WELL;
    }
    for (std::size_t i = 0; i < jobs.size(); ++i) {
        print(i ? "\n" : "");
        showText(jobs[i], options);
    }
    return DONE_WELL;
}
