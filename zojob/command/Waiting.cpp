#include "zojob/command/Waiting.h"

#include "jobs/JobDirectory.h"
#include "jobs/JobName.h"
#include "zojob/Report.h"
#include "zojob/view/Text.h"

#include <algorithm>
#include <csignal>
#include <cstdio>
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
        std::fprintf(stderr, "\r\033[Kwaiting for %ld of %zu; ", open, watch.targets.size());
        if (running)
            std::fprintf(stderr, "%s running %s", jobName(watch.queue, *running).c_str(),
                         duration(running->runTime()).c_str());
        else
            std::fputs("none running", stderr);
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

/// What a job that has ended counts as; says so where that is not its own status.
static int statusOf(const JobWatch::Target& target)
{
    if (target.wasRemoved) {
        note("job " + target.name + " was removed before it ended");
        return REFUSED;
    }
    const int status = exitStatus(target.job);
    if (status >= 0)
        return status;
    if (!JobDirectory(target.job).hasScript())
        return DONE_WELL;  // another application's job: it ended, and nobody knows more
    note("job " + target.name + " left no status behind: see 'zojob log " + target.name + "'");
    return REFUSED;
}

/// Starts the queue again when it has stopped short of the jobs waited for.
static void runAgain(const Server& server, const JobWatch& watch)
{
    // Refused when somebody else was faster; without a server there may be one the next time.
    if (watch.isStuck()) {
        try {
            (void)server.run();
        } catch (const JobError&) {
        }
    }
}

int waitForJobs(const Server& server, JobWatch& watch, bool run, double timeout)
{
    Progress progress;
    StuckNote stuck;
    const double end = secondsNow() + timeout;
    announceInterrupt(watch);
    for (watch.look(); !watch.allEnded(); watch.look()) {
        const double left = timeout < 0 ? STEP : end - secondsNow();
        if (left <= 0) {
            progress.clear();
            note("timed out; the jobs go on");
            return TIMED_OUT;
        }
        if (run)
            runAgain(server, watch);
        else
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
    note("no job is running, so the waiting ones stay waiting until 'zojob run' starts them");
}

static char lastWords[512];

static void sayAndEnd(int)
{
    // Nothing can be done about a failure to write, and the message is short.
    (void)!::write(STDERR_FILENO, lastWords, std::strlen(lastWords));
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
