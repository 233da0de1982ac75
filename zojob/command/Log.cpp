#include "jobs/JobLog.h"
#include "jobs/JobName.h"
#include "jobs/JobState.h"
#include "jobs/Text.h"
#include "zojob/Report.h"
#include "zojob/command/Commands.h"
#include "zojob/command/Waiting.h"

static const std::size_t CHUNK = 65536;
static const double LOOK = 0.2;  // seconds between two looks at a log that is being followed

/// Copies what has come since to standard output; false when nothing can be written any more.
static bool copy(JobLog& log)
{
    for (;;) {
        const std::string text = log.read(CHUNK);
        if (text.empty())
            return flushPrinted();
        print(text);
        if (printError() != 0)
            return false;
    }
}

/// The job whose output is meant when none is named: the running one, else the one run last.
static const Job& lastRun(const Queue& queue)
{
    const Job* last = queue.running();
    if (last)
        return *last;
    for (const Job& job : queue.jobs)
        if (job.startTime && (!last || job.startTime >= last->startTime))
            last = &job;
    if (!last)
        throw Failure{ REFUSED, "no job has run yet: 'zojob run' runs the waiting ones" };
    return *last;
}

static const Job& chosen(const Queue& queue, const Options& options)
{
    if (options.jobs.size() > 1)
        throw Failure{ WRONG_USAGE, "one job can be followed at a time" };
    return options.jobs.empty() ? lastRun(queue) : findJob(queue, options.jobs[0]);
}

static int followLog(const Options& options)
{
    const Server server = serverOf(options);
    JobWatch watch(server);
    watch.follow({ chosen(watch.queue, options) });
    JobLog log(watch.targets[0].job);
    StuckNote stuck;
    bool wasOpened = false;
    refuseToWaitForOneself(watch);
    announceInterrupt(watch);
    for (bool ended = false; !ended; watch.wait(LOOK)) {
        watch.look();
        stuck.show(watch);
        ended = watch.allEnded();  // what comes after this look is not the job's any more
        if (!log.open())
            continue;
        if (!wasOpened && options.lines >= 0)
            log.skipToLast(options.lines);
        wasOpened = true;
        if (!copy(log))
            return DONE_WELL;  // main finds out why
    }
    noteDisk(watch.targets[0].job, watch.targets[0].name);
    if (watch.targets[0].wasRemoved)
        throw Failure{ REFUSED, "job " + watch.targets[0].name + " was removed before it ended" };
    return DONE_WELL;
}

static void printLog(const Queue& queue, const Job& job, const Options& options)
{
    JobLog log(job);
    if (!log.open())
        throw Failure{ REFUSED, "job " + jobName(queue, job) + " has no output: it is " +
                                    jobStateName(jobState(job)) + ", and there is no file log in " +
                                    job.directory };
    if (options.lines >= 0)
        log.skipToLast(options.lines);
    (void)copy(log);  // main finds out why it could not
    noteDisk(job, jobName(queue, job));
}

/// Several outputs, each below the name of its job; those of jobs that have one.
static int printLogs(const Queue& queue, const Options& options)
{
    int code = DONE_WELL;
    const std::vector<Job> jobs = findJobs(queue, options.jobs);
    for (const Job& job : jobs) {
        if (jobs.size() > 1)
            print("==> " + jobName(queue, job) + ": " + printable(job.description) + " <==\n");
        try {
            printLog(queue, job, options);
        } catch (const Failure& failure) {
            note(failure.text);
            code = failure.code;
        }
        print(jobs.size() > 1 && !job.isSame(jobs.back()) ? "\n" : "");
    }
    return code;
}

int logCommand(const Options& options)
{
    if (options.follow)
        return followLog(options);
    const Queue queue = readQueue(serverOf(options));
    if (!options.jobs.empty())
        return printLogs(queue, options);
    printLog(queue, lastRun(queue), options);
    return DONE_WELL;
}
