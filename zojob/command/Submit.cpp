#include "jobs/JobDirectory.h"
#include "jobs/JobName.h"
#include "jobs/JobScript.h"
#include "jobs/JobWatch.h"
#include "zojob/Report.h"
#include "zojob/command/Commands.h"
#include "zojob/view/Table.h"

#include "utlib/UtSocket.h"

#include <cerrno>
#include <climits>
#include <csignal>
#include <cstdlib>
#include <sys/stat.h>
#include <unistd.h>

/// Keeps Ctrl-C and its like waiting while a job is half made. Nothing may be started meanwhile: it
/// would inherit this.
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
    std::string path = options.directory;
    if (path.empty() || path[0] != '/')
        path = path.empty() ? callersDirectory() : callersDirectory() + "/" + path;
    struct stat status;
    if (::stat(path.c_str(), &status) != 0)
        throw Failure{ REFUSED, withReason("the job cannot run in " + path) };
    if (!S_ISDIR(status.st_mode))
        throw Failure{ REFUSED, "the job cannot run in " + path + ": it is no directory" };
    return path;
}

/// The first line of a script that does something.
static std::string firstLine(const std::string& script)
{
    std::size_t start = 0;
    while (start < script.size()) {
        const std::size_t end = std::min(script.find('\n', start), script.size());
        const std::size_t word = script.find_first_not_of(" \t", start);
        if (word < end && script[word] != '#')
            return script.substr(word, end - word);
        start = end + 1;
    }
    return "script";
}

/// What is to be queued; all of it is known before anything is made.
struct Submission {
    std::string body;
    std::string description;
    std::string directory;
};

static Submission prepare(const Options& options)
{
    Submission job;
    const bool fromInput = options.words.size() == 1 && options.words[0] == "-";
    job.directory = workDirectory(options);
    job.body = fromInput ? readStandardInput() : commandText(options.words);
    if (job.body.find_first_not_of(" \t\n") == std::string::npos)
        throw Failure{ WRONG_USAGE, "the command is empty: nothing was submitted" };
    if (options.labelled)
        job.description = describe(options.label);
    else
        job.description = fromInput ? describe(firstLine(job.body)) : describe(options.words);
    return job;
}

/// Queues the job and returns its directory, by which it is found in the queue.
static std::string queue(const Server& server, const Submission& job)
{
    const int fd = server.open();  // first: this may start a server
    const SignalsHeld held;
    struct Closer {
        int fd;
        ~Closer() { UtSocket::close(fd); }
    } closer{ fd };
    PrivateDirectory directory;
    directory.writeJob(job.body, job.directory);
    if (ZoScheduleJobSubmit(fd, PrivateDirectory::COMMAND, job.description.c_str(),
                            directory.path.c_str()) != 0)
        throw Failure{ REFUSED, "the server did not take the job: 'zojob status' shows whether "
                                "there is one" };
    directory.keep = true;
    return directory.path;
}

static JobHandle findByDirectory(const Jobs& jobs, const std::string& directory)
{
    for (const JobHandle& job : jobs)
        if (job->directory == directory.c_str())
            return job;
    throw Failure{ REFUSED, "the job was queued but is not in the list: its directory " +
                                directory + " may have been removed meanwhile" };
}

/// Runs the waiting jobs; says what happens to this one when the server refuses that.
static void runQueue(const Server& server, const ZoJob& job)
{
    if (server.run(JobHandle()))
        return;
    const Jobs jobs = server.list();
    const JobHandle now = sameJob(jobs, job);
    const JobHandle running = runningJob(jobs);
    if (!now || now->state != ZoJob::WAITING)
        return;  // another run request was faster
    const std::string name = jobName(jobs, job);
    if (!running)
        throw Failure{ REFUSED, "job " + name +
                                    " was queued, but the server would not run it: try "
                                    "'zojob run " +
                                    name + "'" };
    note("job " + jobName(jobs, *running) + " is running; " + name +
         " follows if the whole queue is being run, else start it with 'zojob run' afterwards");
}

int submitCommand(const Options& options)
{
    const Submission submission = prepare(options);
    const Server server(options);
    const std::string directory = queue(server, submission);
    if (options.quiet && !options.run && !options.wait)
        return DONE_WELL;
    const Jobs jobs = server.list();
    const JobHandle job = findByDirectory(jobs, directory);
    const std::string name = nameSubmitted(jobs, *job);
    if (options.json)
        writeJsonJob(*job, name, false);
    else if (!options.quiet)
        print(name + "\n");
    (void)flushPrinted();  // for a reader who wants the name now; what failed shows at the end
    if (options.run && !options.wait)
        runQueue(server, *job);
    else if (options.run)
        (void)server.run(JobHandle());  // while it is refused, the wait below tries again
    return options.wait ? waitForJobs(server, jobs, { job }, options.run, -1) : DONE_WELL;
}
