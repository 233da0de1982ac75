#include "zojob/command/Waiting.h"

#include "jobs/JobDirectory.h"
#include "jobs/JobName.h"
#include "zojob/Report.h"
#include "zojob/view/Text.h"

#include <algorithm>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <unistd.h>

static const double STEP = 1;  // seconds between two states of the line for people

/// One line that is written over again and again; only people at a terminal see it.
class Progress
{
public:
    ~Progress() { clear(); }

    void show(const JobWatch& watch)
    {
        if (!terminal)
            return;
        const Job* const running = watch.queue.running();
        const long open = std::count_if(watch.targets.begin(), watch.targets.end(),
                                        [](const JobWatch::Target& t) { return !t.hasEnded; });
        const std::size_t all = watch.targets.size();
        const std::string wanted =
            all == 1 ? watch.targets[0].name
                     : std::to_string(open) + " of " + std::to_string(all) + " jobs";
        const std::string name = running ? jobName(watch.queue, *running) : "none";
        const std::string who = name == wanted ? "it" : name;
        const std::string what =
            running ? " has run " + duration(running->runTime()) : std::string(" runs");
        std::fprintf(stderr, "\r\033[Kwaiting for %s: %s%s", wanted.c_str(), who.c_str(),
                     what.c_str());
        shown = true;
    }

    void clear()
    {
        if (shown)
            std::fputs("\r\033[K", stderr);
        shown = false;
    }

private:
    const bool terminal = ::isatty(STDERR_FILENO);
    bool shown = false;
};

void noteDisk(const Job& job, const std::string& name)
{
    if (job.hasEnded() && JobDirectory(job).end().isDiskFull)
        note("the disk was full when job " + name + " ended: its output may be incomplete");
}

/// What a job that has ended counts as; says so where that is not its own status.
static int statusOf(const JobWatch::Target& target)
{
    if (target.wasRemoved) {
        note("job " + target.name + " was removed before it ended");
        return REFUSED;
    }
    const int status = exitStatus(target.job);
    noteDisk(target.job, target.name);
    if (status >= 0)
        return status;
    if (!JobDirectory(target.job).hasScript())
        return DONE_WELL;  // another application's job: it ended, and nobody knows more
    note("job " + target.name + " left no status behind: see 'zojob log " + target.name + "'");
    return REFUSED;
}

/// The running job that this process is part of; null when there is none.
static const Job* ownJob(const Queue& queue)
{
    const char* const own = std::getenv("ZOJOB_ID");
    const Job* const running = queue.running();
    return own && running && jobName(queue, *running) == own ? running : nullptr;
}

void refuseToWaitBehindOneself(const Queue& queue)
{
    if (const Job* const own = ownJob(queue))
        throw Failure{ REFUSED, "nothing was submitted: it would run behind job " +
                                    jobName(queue, *own) + ", which is waiting for it here" };
}

void refuseToWaitForOneself(const JobWatch& watch)
{
    const Job* const own = watch.server().isThisMachine() ? ownJob(watch.queue) : nullptr;
    for (const JobWatch::Target& target : watch.targets) {
        if (own && target.job.isSame(*own))
            throw Failure{ REFUSED, "this is part of job " + target.name +
                                        ", which would wait for its own end" };
        if (own && target.job.isWaiting())
            throw Failure{ REFUSED, "job " + target.name + " runs behind job " +
                                        jobName(watch.queue, *own) +
                                        ", which would wait for it here" };
    }
}

int waitForJobs(JobWatch& watch, double timeout)
{
    Progress progress;
    StuckNote stuck;
    const double end = secondsNow() + timeout;
    refuseToWaitForOneself(watch);
    announceInterrupt(watch);
    for (watch.look(); !watch.allEnded(); watch.look()) {
        const double left = timeout < 0 ? STEP : end - secondsNow();
        if (left <= 0) {
            progress.clear();
            note("timed out; the jobs go on");
            return TIMED_OUT;
        }
        if (watch.isStuck())
            progress.clear();  // or what is said now would stand behind it
        stuck.show(watch);
        progress.show(watch);
        watch.wait(std::min(left, STEP));
    }
    progress.clear();
    int status = 0;
    for (const JobWatch::Target& target : watch.targets)
        status = std::max(status, statusOf(target));
    return status;
}

void StuckNote::show(const JobWatch& watch)
{
    if (isSaid || !watch.isStuck())
        return;
    isSaid = true;
    note(watch.queue.trouble.empty()
             ? "no job is running, so the waiting ones stay waiting until 'zojob run' starts them"
             : "no job is started: " + watch.queue.trouble);
}

static char lastWords[512];

static void sayAndEnd(int)
{
    // Nothing can be done about a failure to write, and the message is short.
    (void)!::write(STDERR_FILENO, lastWords, std::strlen(lastWords));
    // By the signal itself: a shell would go on with what stands behind a command that only exits.
    sigset_t interrupt;
    ::sigemptyset(&interrupt);
    ::sigaddset(&interrupt, SIGINT);
    std::signal(SIGINT, SIG_DFL);
    ::raise(SIGINT);
    ::sigprocmask(SIG_UNBLOCK, &interrupt, nullptr);
    ::_exit(INTERRUPTED);
}

void announceInterrupt(const JobWatch& watch)
{
    const std::string one = watch.targets.size() == 1 ? " " + watch.targets[0].name : "";
    std::snprintf(lastWords, sizeof lastWords,
                  "%szojob: interrupted; what was waited for goes on: 'zojob wait%s' waits again, "
                  "'zojob kill%s' ends it\n",
                  ::isatty(STDERR_FILENO) ? "\r\033[K" : "", one.c_str(), one.c_str());
    if (std::signal(SIGINT, sayAndEnd) == SIG_IGN)
        std::signal(SIGINT, SIG_IGN);
}
