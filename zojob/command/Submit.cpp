#include "jobs/JobName.h"
#include "jobs/JobScript.h"
#include "jobs/Slurm.h"
#include "jobs/StateDirectory.h"
#include "jobs/Submission.h"
#include "zojob/Report.h"
#include "zojob/Usage.h"
#include "zojob/command/Commands.h"
#include "zojob/command/Waiting.h"
#include "zojob/view/Json.h"

#include <cerrno>
#include <climits>
#include <csignal>
#include <cstdlib>
#include <sys/stat.h>
#include <unistd.h>

/// Keeps Ctrl-C and its like waiting while a job is half made.
class SignalsHeld
{
public:
    SignalsHeld()
    {
        sigset_t held;
        ::sigemptyset(&held);
        for (const int signal : { SIGINT, SIGTERM, SIGHUP, SIGQUIT })
            ::sigaddset(&held, signal);
        ::sigprocmask(SIG_BLOCK, &held, &before);
    }
    ~SignalsHeld() { ::sigprocmask(SIG_SETMASK, &before, nullptr); }
    SignalsHeld(const SignalsHeld&) = delete;
    SignalsHeld& operator=(const SignalsHeld&) = delete;

private:
    sigset_t before;
};

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

static Submission prepare(const Options& options)
{
    Submission job;
    const bool fromInput = options.words.size() == 1 && options.words[0] == "-";
    job.directory = workDirectory(options);
    job.body = fromInput ? readStandardInput() : commandText(options.words);
    job.command = fromInput ? firstLine(job.body) : commandLine(options.words);
    if (options.labelled)
        job.label = options.label;
    job.description = describe(job.label ? *job.label : job.command);
    if (options.slurm)
        job.cluster =
            Submission::Cluster{ Slurm::splitOptions(options.slurmOptions), options.detach };
    job.check();
    const std::string warning = wordsWarning(options.words, job.directory);
    if (!warning.empty())
        note(warning);
    return job;
}

/// Queues the job and returns its directory, by which it is found in the queue.
static std::string queueJob(const Server& server, const Submission& job)
{
    server.ensure();  // first: this may start one, and take its time
    const SignalsHeld held;
    return job.queue(server);
}

static const Job& findByDirectory(const Queue& queue, const std::string& directory)
{
    if (const Job* const job = queue.findDirectory(directory))
        return *job;
    throw Failure{ REFUSED, "the job was queued but is not in the list: its directory " +
                                directory + " may have been removed meanwhile" };
}

/// Says what happens to the job while another one runs.
static void noteBehind(const Queue& queue, const Job& running, const std::string& name)
{
    note("job " + jobName(queue, running) + " is running; " + name +
         " follows if the whole queue is being run, else start it with 'zojob run' afterwards");
}

/// Runs the waiting jobs. `queue` holds the job as it was submitted just now.
static void runQueue(const Server& server, const Queue& queue, const Job& job,
                     const std::string& name)
{
    if (const Job* const running = queue.running())
        return noteBehind(queue, *running, name);  // the server would refuse
    if (server.run())
        return;
    const Queue later = readQueue(server);
    const Job* const now = later.find(job);
    if (!now || !now->isWaiting())
        return;  // another run request was faster
    if (const Job* const running = later.running())
        return noteBehind(later, *running, name);
    throw Failure{ REFUSED, "job " + name +
                                " was queued, but the server would not run it: try 'zojob run " +
                                name + "'" };
}

static int waitFor(const Server& server, const Job& job, bool run)
{
    JobWatch watch(server);
    watch.follow({ job });
    if (run && !watch.queue.running())
        (void)server.run();  // where it is refused, the wait below tries again
    return waitForJobs(server, watch, run, -1);
}

int submitCommand(const Options& options)
{
    const Submission submission = prepare(options);
    const Server server = serverOf(options);
    const std::string directory = queueJob(server, submission);
    const std::string name = numberOf(directory);
    if (!options.quiet && !options.json)
        print(name + "\n");
    (void)flushPrinted();  // for a reader who wants the name now; what failed shows at the end
    if (!options.json && !options.run && !options.wait)
        return DONE_WELL;
    const Queue queue = readQueue(server);
    const Job& job = findByDirectory(queue, directory);
    if (options.json)
        writeJsonJobs({ { job, name, jobState(job) } }, false);
    (void)flushPrinted();
    if (options.wait)
        return waitFor(server, job, options.run);
    if (options.run)
        runQueue(server, queue, job, name);
    return DONE_WELL;
}
