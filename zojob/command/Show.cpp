#include "zojob/command/Commands.h"

#include "jobs/JobDirectory.h"
#include "jobs/JobName.h"
#include "zojob/Report.h"
#include "zojob/view/Table.h"
#include "zojob/view/Text.h"

#include <unistd.h>

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

static void showText(const ZoJob& job, const Options& options)
{
    const int status = PrivateDirectory::exitStatus(job);
    printField("id", std::to_string(job.id));
    printField("state", coloredState(job, wantsColor(options), 0));
    printField("exit status", status < 0 ? "-" : std::to_string(status));
    printField("description", printable(str(job.description)));
    printField("command", printable(str(job.command)));
    printField("directory", printable(str(job.directory)));
    printField("submitted", dateTime(job.id));
    printField("started", dateTime(job.startTime));
    printField("ended", dateTime(job.endTime));
    printField("run time", job.startTime ? duration(job.runTime()) : "-");
    printField("reserved", std::to_string(job.reserved));
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
