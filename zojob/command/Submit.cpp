#include "jobs/JobDirectory.h"
#include "jobs/JobName.h"
#include "jobs/JobScript.h"
#include "jobs/Keeper.h"
#include "jobs/Slurm.h"
#include "jobs/StateDirectory.h"
#include "jobs/Submission.h"
#include "zojob/Report.h"
#include "zojob/Usage.h"
#include "zojob/command/Commands.h"
#include "zojob/command/SignalsHeld.h"
#include "zojob/command/Waiting.h"
#include "zojob/view/Json.h"

#include <cerrno>
#include <climits>
#include <cstdlib>
#include <fstream>
#include <sstream>
#include <sys/stat.h>
#include <unistd.h>

static std::string readStandardInput()
{
    std::string text;
    char buffer[65536];
    for (;;) {
        const ssize_t n = ::read(STDIN_FILENO, buffer, sizeof buffer);
        if (n < 0 && errno == EINTR)
            continue;
        if (n < 0)
            throw Failure{ REFUSED, withReason("cannot read the script from standard input") };
        if (n == 0)
            return text;
        text.append(buffer, n);
    }
}

/// The caller's directory by the name that the caller's shell uses for it, links included.
static std::string callersDirectory()
{
    struct stat named, real;
    const char* const name = std::getenv("PWD");
    if (name && name[0] == '/' && ::stat(name, &named) == 0 && ::stat(".", &real) == 0 &&
        named.st_dev == real.st_dev && named.st_ino == real.st_ino)
        return name;
    char path[PATH_MAX];
    if (!::getcwd(path, sizeof path))
        throw Failure{ REFUSED,
                       withReason("cannot tell the current directory") + "; name one with -C" };
    return path;
}

static std::string workDirectory(const Options& options)
{
    const std::string& path = options.directory;
    if (path.empty())
        return callersDirectory();
    return path[0] == '/' ? path : callersDirectory() + "/" + path;
}

/// The jobs that must have ended before, as the options name them.
static void addConditions(Submission& job, const Queue& queue, const Options& options)
{
    for (const bool well : { true, false })
        for (const Job& other : findJobs(queue, well ? options.after : options.afterAny)) {
            const std::string number = numberOf(other.directory);
            if (!JobDirectory(other).hasScript() || number.empty())
                throw Failure{ REFUSED, "nobody knows how job " + jobName(queue, other) +
                                            " will end: it is another application's" };
            job.after.push_back({ number, other.directory, well });
        }
}

/// All that the options say, but for the command.
static Submission prepare(const Server& server, const Options& options)
{
    Submission job;
    const char* const shell = std::getenv("ZOJOB_SHELL");
    job.directory = workDirectory(options);
    job.timeout = options.jobTimeout;
    job.retries = (int)options.retries;
    job.then = options.then;
    if (shell && *shell)
        job.shell = shell;
    if (!options.shell.empty())
        job.shell = options.shell;
    if (options.labelled)
        job.label = options.label;
    if (options.slurm)
        job.cluster =
            Submission::Cluster{ Slurm::splitOptions(options.slurmOptions), options.detach };
    if (!options.after.empty() || !options.afterAny.empty())
        addConditions(job, readQueue(server), options);
    return job;
}

static void setCommand(Submission& job, const std::string& body, const std::string& command)
{
    if (body.compare(0, 2, "#!") != 0 && body.find('\0') != std::string::npos)
        throw Failure{ REFUSED, "nothing was submitted: the command holds a NUL byte" };
    job.body = body;
    job.command = command;
    job.description = describe(job.label ? *job.label : command);
    job.check();
}

static std::vector<std::string> readLines(const std::string& path)
{
    std::ifstream file;
    if (path != "-")
        file.open(path);
    if (path != "-" && !file)
        throw Failure{ REFUSED, withReason("cannot read " + path) };
    std::istringstream text(path == "-" ? readStandardInput() : "");
    std::istream& input = path == "-" ? (std::istream&)text : file;
    std::vector<std::string> lines;
    for (std::string line; std::getline(input, line);) {
        if (!line.empty() && line.back() == '\r')
            line.pop_back();
        const std::size_t word = line.find_first_not_of(" \t\r");
        if (word != std::string::npos && line[word] != '#')
            lines.push_back(line);
    }
    if (file.bad())
        throw Failure{ REFUSED, withReason("cannot read " + path) };
    return lines;
}

/// The jobs that the options ask for: one, or one for each line of a file.
static std::vector<Submission> submissions(const Server& server, const Options& options)
{
    const Submission common = prepare(server, options);
    std::vector<Submission> jobs;
    if (options.hasLines) {
        for (const std::string& line : readLines(options.linesFile)) {
            jobs.push_back(common);
            setCommand(jobs.back(), line, line);
        }
        return jobs;
    }
    jobs.push_back(common);
    if (options.words.size() == 1 && options.words[0] == "-") {
        const std::string script = readStandardInput();
        setCommand(jobs[0], script, firstLine(script));
    } else {
        setCommand(jobs[0], commandText(options.words, common.environment),
                   commandLine(options.words));
        const std::string warning = wordsWarning(options.words, common.directory);
        if (!warning.empty())
            note(warning);
    }
    return jobs;
}

/// The jobs in these directories, in their order.
static std::vector<Job> findByDirectories(const Queue& queue,
                                          const std::vector<std::string>& directories)
{
    std::vector<Job> jobs;
    for (const std::string& directory : directories) {
        const Job* const job = queue.findDirectory(directory);
        if (!job)
            throw Failure{ REFUSED, "the job was queued but is not in the list: its directory " +
                                        directory + " may have been removed meanwhile" };
        jobs.push_back(*job);
    }
    return jobs;
}

static void printJobs(const Server& server, const std::vector<Job>& jobs, const Options& options)
{
    const long long other = server.strangerOnPort();
    std::vector<Listed> listed;
    for (const Job& job : jobs)
        listed.push_back({ job, numberOf(job.directory), jobState(job) });
    if (options.hasLines)
        writeJsonList(listed, other);
    else
        writeJsonJobs(listed, other, false);
}

int submitCommand(const Options& options)
{
    const Server server = serverOf(options);
    const std::vector<Submission> wanted = submissions(server, options);
    if (options.wait)
        refuseToWaitBehindOneself(readQueue(server));
    std::vector<std::string> directories;
    if (!wanted.empty())
        server.ensure();  // first: this may start one, and take its time
    {
        const SignalsHeld held;
        directories = Submission::queueAll(server, wanted);
    }
    for (const std::string& directory : directories)
        if (!options.quiet && !options.json)
            print(numberOf(directory) + "\n");
    (void)flushPrinted();  // for a reader who wants the name now; what failed shows at the end
    if (!options.json && (directories.empty() || (!options.run && !options.wait)))
        return DONE_WELL;
    const std::vector<Job> jobs = findByDirectories(readQueue(server), directories);
    if (options.json)
        printJobs(server, jobs, options);
    (void)flushPrinted();
    if (options.run && !jobs.empty())
        runQueue(server, jobs);
    if (!options.wait)
        return DONE_WELL;
    JobWatch watch(server);
    watch.follow(jobs);
    return waitForJobs(watch, -1);
}
