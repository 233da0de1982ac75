#include "jobs/Cluster.h"
#include "jobs/JobDirectory.h"
#include "jobs/JobName.h"
#include "jobs/JobState.h"
#include "jobs/JobTree.h"
#include "jobs/Keeper.h"
#include "jobs/QueueWatch.h"
#include "jobs/Seconds.h"
#include "zojob/Report.h"
#include "zojob/command/Commands.h"

#include <cerrno>
#include <cmath>

static const double STEP = 0.02;   // seconds between two looks whether all have ended
static const double PATIENCE = 1;  // seconds of a kill without a word

/// Ends by force what is left after so many seconds. Returns whether that was needed.
static bool endByForce(JobTree& tree, double grace, const std::string& name)
{
    tree.lookAgain();
    const double start = secondsNow(), end = start + grace;
    bool isDue = grace > 2 * PATIENCE;  // else it is over soon
    while (!tree.allGone() && secondsNow() < end) {
        sleepSeconds(STEP);
        if (!isDue || secondsNow() < start + PATIENCE || tree.allGone())
            continue;
        note("job " + name + " has not ended yet: what is left of it gets SIGKILL in " +
             std::to_string((long)std::ceil(end - secondsNow())) + " s");
        isDue = false;
    }
    return !tree.allGone() && tree.killRest();
}

/// How many jobs wait that are not cancelled.
static int waitingJobs(const Queue& queue)
{
    int count = 0;
    for (const Job& job : queue.jobs)
        count += jobState(job) == JobState::WAITING;
    return count;
}

static std::string waitingText(int count)
{
    if (count == 0)
        return "";
    return std::string("; ") + (count == 1 ? "1 job waits" : std::to_string(count) + " jobs wait") +
           " now: 'zojob run' goes on with " + (count == 1 ? "it" : "them") +
           ", and so may 'zojob run JOB' where the whole queue was being run";
}

static void killRunning(const Server& server, const Queue& queue, const Job& job,
                        const Options& options)
{
    const std::string name = jobName(queue, job);
    if (job.hasLostItsId()) {
        server.ensure();
        throw Failure{ REFUSED, "job " + name + " has ended without a report, and its process id " +
                                    std::to_string(job.pid) +
                                    " belongs to another process by now: nothing was killed; the "
                                    "server marks the job as killed within a minute or two" };
    }
    JobTree tree(server.isThisMachine() ? job : Job());
    stopKeeping(queue);
    if (!killJob(server, job))
        throw Failure{ REFUSED, "job " + name +
                                    " could not be killed; it may just have ended: see "
                                    "'zojob list'" };
    const bool byForce = endByForce(tree, options.grace, name);
    const int waiting = waitingJobs(queue);
    std::string text = "killed job " + name + (byForce ? ", by force (SIGKILL)" : "");
    if (!queue.trouble.empty()) {
        note(text + ", which is written down later: " + queue.trouble);
        return;
    }
    // Somebody else may have been quicker.
    if (options.goOn && waiting > 0 && !server.run() && !readQueue(server).running())
        throw Failure{ REFUSED, text + ", but the server would not go on: try 'zojob run'" };
    note(text + (options.goOn ? "" : waitingText(waiting)));
}

/// Lets a waiting job end at once when its turn comes.
static void cancel(const Job& job, const std::string& name)
{
    const JobDirectory directory(job);
    if (!directory.hasScript())
        throw Failure{ REFUSED, "job " + name +
                                    " waits and is another application's: 'zojob remove "
                                    "--force' takes it out of the queue" };
    if (!directory.setCancelled(true))
        throw Failure{ REFUSED, withReason("job " + name + " cannot be cancelled") };
    note("cancelled job " + name + "; 'zojob again " + name + "' brings it back");
}

static void killOne(const Server& server, const Queue& queue, const Job& job,
                    const Options& options)
{
    const std::string name = jobName(queue, job);
    if (job.isDetached) {
        (void)killJob(server, job);  // no server has a say in it
        note("killed job " + name + ", " + job.cluster.id + " of the cluster");
    } else if (job.isRunning())
        killRunning(server, queue, job, options);
    else if (jobState(job) == JobState::WAITING)
        cancel(job, name);
    else
        throw Failure{ REFUSED, "job " + name + " is " + jobStateName(jobState(job)) +
                                    ", not running: nothing was killed" };
}

int killCommand(const Options& options)
{
    const Server server = serverOf(options);
    const Queue queue = readQueue(server);
    std::vector<Job> chosen = findJobs(queue, options.jobs);
    if (options.jobs.empty() && !queue.running())
        throw Failure{ REFUSED, "no job is running" };
    if (options.jobs.empty())
        chosen.push_back(*queue.running());
    int code = DONE_WELL;
    // The waiting ones first: none of them is to start when the running one has ended.
    for (const bool waiting : { true, false })
        for (const Job& job : chosen) {
            if (job.isWaiting() != waiting)
                continue;
            try {
                killOne(server, readQueue(server), job, options);
            } catch (const Failure& failure) {
                note(failure.text);
                code = failure.code;
            }
        }
    return code;
}
